// One RunDiagnosticService call through the embedded object manager, followed to its end: the
// job it starts is read until it has ended, each change of its state or progress written as a
// line, then the run's completion record is found through the job's element.
#ifndef DIAGCORE_TOOLS_PROFILERUN_H
#define DIAGCORE_TOOLS_PROFILERUN_H

#include "host/OperationResult.h"

#include <cmpidt.h>

#include <memory>
#include <ostream>
#include <string>

namespace diaghost {
class Host;
}

namespace NQORVA20::tools {

class ProfileRun {
public:
    // Runs the method on the element with `loops` passes (0: the service's default of one) and
    // follows the job, writing progress lines to `progress`.
    ProfileRun(diaghost::Host& host, const CMPIObjectPath* servicePath,
               const CMPIObjectPath* elementPath, unsigned loops, std::ostream& progress);

    const diaghost::OperationStatus& status() const { return call_->status; }
    bool carriedOut() const { return call_->ok(); }
    CMPIData returnValue() const { return call_->returnValue(); }
    // The job as it ended, and the run's completion record; null when there is none.
    const CMPIInstance* job() const { return job_ ? job_->instance() : nullptr; }
    const CMPIInstance* record() const { return record_; }

private:
    std::unique_ptr<diaghost::OperationResult> call_;
    std::unique_ptr<diaghost::OperationResult> job_;
    std::unique_ptr<diaghost::OperationResult> records_;
    const CMPIInstance* record_ = nullptr;
};

} // namespace NQORVA20::tools

#endif
