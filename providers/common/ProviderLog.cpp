#include "providers/common/ProviderLog.h"

#include <cmpift.h>

namespace NQORVA20::providers {

void ProviderLog::write(const CMPIBroker* broker, Severity severity, const std::string& text) {
    if (broker == nullptr || broker->eft == nullptr || broker->eft->logMessage == nullptr)
        return;
    broker->eft->logMessage(broker, static_cast<CMPISeverity>(severity), "zorq", text.c_str(),
                            nullptr);
}

} // namespace NQORVA20::providers
