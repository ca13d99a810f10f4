// Keeps exceptions inside the core: an entry function's body runs under guarded(), and anything
// it throws (memory exhaustion included) becomes CMPI_RC_ERR_FAILED with a message and an error
// log line instead of unwinding into the object manager.
#ifndef DIAGCORE_ENTRY_ENTRYGUARD_H
#define DIAGCORE_ENTRY_ENTRYGUARD_H

#include <cmpidt.h>

#include <exception>

namespace NQORVA20 {

CMPIStatus entryFailure(const CMPIBroker* broker, const char* operation,
                        const char* reason) noexcept;

template <typename Body>
CMPIStatus guarded(const CMPIBroker* broker, const char* operation, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        return entryFailure(broker, operation, e.what());
    } catch (...) {
        return entryFailure(broker, operation, "unknown exception");
    }
}

} // namespace NQORVA20

#endif
