// The outcome of one operation as the host reports it: a CMPI return code and a message text
// owned by the host, so it outlives the provider call that produced it.
#ifndef DIAGHOST_BROKER_OPERATIONSTATUS_H
#define DIAGHOST_BROKER_OPERATIONSTATUS_H

#include <cmpidt.h>

#include <string>

namespace diaghost {

struct OperationStatus {
    CMPIrc rc = CMPI_RC_OK;
    bool hasMessage = false;
    std::string message;

    bool ok() const { return rc == CMPI_RC_OK; }
    static OperationStatus make(CMPIrc rc) { return OperationStatus{rc, false, {}}; }
    static OperationStatus make(CMPIrc rc, std::string message) {
        return OperationStatus{rc, true, std::move(message)};
    }
    // Copies a provider's status; the message text is read at once.
    static OperationStatus fromCmpi(const CMPIStatus& status);
    // CMPI_RC_ERR_FAILED saying `what` failed, and why when `why` is given. Never throws: short
    // of memory, the status comes without its message.
    static OperationStatus failed(const char* what, const char* why) noexcept;
};

// The standard name of a return code ("CMPI_RC_ERR_NOT_FOUND"), or "CMPI_RC_<n>" for others.
const char* rcName(CMPIrc rc);

} // namespace diaghost

#endif
