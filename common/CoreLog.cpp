#include "common/CoreLog.h"

#include "common/LogMirror.h"

#include <cmpift.h>

namespace NQORVA20 {

void coreLog(const CMPIBroker* broker, int severity, const char* text) {
    LogMirror::write(severity, "diagcore", text);
    if (broker == nullptr || broker->eft == nullptr || broker->eft->logMessage == nullptr)
        return;
    // Header sets declare the severity as int or as CMPISeverity; the enumeration converts to
    // either, and the CoreLogSeverity values are the CMPISeverity ones.
    broker->eft->logMessage(broker, static_cast<CMPISeverity>(severity), "diagcore", text, nullptr);
}

void coreLog(const CMPIBroker* broker, int severity, const std::string& text) {
    coreLog(broker, severity, text.c_str());
}

} // namespace NQORVA20
