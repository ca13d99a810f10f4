#include "entry/EntryGuard.h"

#include "common/CmpiBoundary.h"
#include "common/CoreLog.h"

#include <string>

namespace NQORVA20 {

CMPIStatus entryFailure(const CMPIBroker* broker, const char* operation,
                        const char* reason) noexcept {
    CMPIStatus status = {CMPI_RC_ERR_FAILED, nullptr};
    try {
        std::string text = std::string(operation) + " failed: " + (reason ? reason : "");
        coreLog(broker, LogError, text);
        status.msg = CmpiBoundary::newString(broker, text.c_str());
    } catch (...) {
        // No memory left for a composed text: report with fixed ones.
        coreLog(broker, LogError, "operation failed: out of memory");
        status.msg = CmpiBoundary::newString(broker, "operation failed: out of memory");
    }
    return status;
}

} // namespace NQORVA20
