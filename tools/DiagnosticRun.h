// One RunDiagnostic call through the embedded object manager, with the diagnostic record it
// published: the records of the namespace are listed before and after the call, and the one that
// is new is the run's.
#ifndef DIAGCORE_TOOLS_DIAGNOSTICRUN_H
#define DIAGCORE_TOOLS_DIAGNOSTICRUN_H

#include "host/OperationResult.h"

#include <cmpidt.h>

#include <chrono>
#include <memory>
#include <string>

namespace diaghost {
class Host;
}

namespace NQORVA20::tools {

class DiagnosticRun {
public:
    // Runs the method of the service at servicePath on the element at elementPath.
    DiagnosticRun(diaghost::Host& host, const CMPIObjectPath* servicePath,
                  const CMPIObjectPath* elementPath, const std::string& nameSpace);

    // The method call's own status: OK when the run was carried out, whatever the test found.
    const diaghost::OperationStatus& status() const { return call_->status; }
    bool carriedOut() const { return call_->ok(); }
    CMPIData returnValue() const { return call_->returnValue(); }
    // The record the run published; null when none was found.
    const CMPIInstance* record() const { return record_; }
    std::chrono::microseconds elapsed() const { return elapsed_; }

    static constexpr const char* recordClass = "CIM_DiagnosticRecord";

private:
    std::unique_ptr<diaghost::OperationResult> call_;
    std::unique_ptr<diaghost::OperationResult> recordsAfter_;
    const CMPIInstance* record_ = nullptr;
    std::chrono::microseconds elapsed_{0};
};

} // namespace NQORVA20::tools

#endif
