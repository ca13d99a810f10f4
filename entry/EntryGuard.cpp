#include "entry/EntryGuard.h"

#include "common/CoreLog.h"

#include <cmpift.h>

#include <string>

namespace NQORVA20 {

CMPIStatus entryFailure(const CMPIBroker* broker, const char* operation,
                        const char* reason) noexcept {
    CMPIStatus status = {CMPI_RC_ERR_FAILED, nullptr};
    const bool haveBroker = broker != nullptr && broker->eft != nullptr;
    try {
        std::string text = std::string(operation) + " failed: " + (reason ? reason : "");
        coreLog(broker, LogError, text);
        if (haveBroker)
            status.msg = broker->eft->newString(broker, text.c_str(), nullptr);
    } catch (...) {
        // No memory left for a composed text: report with fixed ones.
        coreLog(broker, LogError, "operation failed: out of memory");
        if (haveBroker)
            status.msg = broker->eft->newString(broker, "operation failed: out of memory", nullptr);
    }
    return status;
}

} // namespace NQORVA20
