// The log a family's diagnostic service writes its records to, published as an instance of the
// family's CIM_DiagnosticLog subclass so that the service's UseOfLog association has a log at
// its "Antecedent" end. One per service; it holds no records itself (the records are published
// on their own).
#ifndef ZORQ_PROVIDERS_COMMON_DIAGNOSTICLOG_H
#define ZORQ_PROVIDERS_COMMON_DIAGNOSTICLOG_H

#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20::providers {

class DiagnosticLog : public InstanceImpl {
public:
    // serviceName: the service whose log this is; it names the log and its InstanceID
    // "ZORQ:<serviceName>:Log".
    DiagnosticLog(std::string className, std::string serviceName);
    ~DiagnosticLog() override;
    // Adds the defaults that are missing; never overwrites.
    void init() override;

private:
    std::string serviceName_;
};

} // namespace NQORVA20::providers

#endif
