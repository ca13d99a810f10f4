#include "providers/common/DiagnosticLog.h"

namespace NQORVA20::providers {

DiagnosticLog::DiagnosticLog(std::string className, std::string serviceName)
    : InstanceImpl(std::move(className)), serviceName_(std::move(serviceName)) {
    DiagnosticLog::init();
}

DiagnosticLog::~DiagnosticLog() = default;

void DiagnosticLog::init() {
    const std::pair<const char*, std::string> defaults[] = {
        {"InstanceID", "ZORQ:" + serviceName_ + ":Log"},
        {"Name", serviceName_ + " log"},
        {"ElementName", serviceName_ + " log"},
        {"Caption", "Results of " + serviceName_},
        {"Description", "The diagnostic records " + serviceName_ + " produces"},
        {"EnabledState", "2"},
        {"OperationalStatus", "2"},
    };
    for (const auto& [name, text] : defaults)
        if (find(name) == end())
            get(name) = text;
}

} // namespace NQORVA20::providers
