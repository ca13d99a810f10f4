#include "common/CoreLog.h"

#include "common/LogMirror.h"

#include <cmpift.h>

namespace NQORVA20 {

void coreLog(const CMPIBroker* broker, int severity, const char* text) {
    LogMirror::write(severity, "diagcore", text);
    if (broker == nullptr || broker->eft == nullptr || broker->eft->logMessage == nullptr)
        return;
    broker->eft->logMessage(broker, severity, "diagcore", text, nullptr);
}

void coreLog(const CMPIBroker* broker, int severity, const std::string& text) {
    coreLog(broker, severity, text.c_str());
}

} // namespace NQORVA20
