// What both file-system tests share: the work on a mount runs on a worker thread of its own, and
// the call waits for it at most ZORQ_FS_TEST_TIMEOUT_SECONDS (read at every run, default 10). A
// mount that does not answer (a stuck FUSE or network file system) then costs the caller the
// deadline, not its thread: the run is recorded as FS_TIMEOUT and returns TestTimedOut, and the
// worker, stuck in the kernel, is counted on the mount until it returns. While one is counted,
// no test starts on that mount: the run is refused at once with FS_MOUNT_STUCK and the same
// return value, so stuck threads cannot pile up.
//
// The worker holds copies and shared state only (the check, the shared MountPoint and the slot
// its finding goes to), never the call's record, so returning after its call did touches
// nothing that is gone.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_MOUNTTESTSERVICE_H
#define ZORQ_PROVIDERS_FILESYSTEM_MOUNTTESTSERVICE_H

#include "providers/common/ElementDiagService.h"
#include "providers/filesystem/MountPoint.h"
#include "providers/filesystem/MountedFileSystems.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace NQORVA20::providers {

// What one test found on a mount: made on the worker thread, written into the record by the
// thread that answers the call.
struct MountFinding {
    unsigned int outcome = 0;       // a TestOutcome value
    std::vector<std::string> codes; // the record's error codes; none when the test passed
    std::string details;            // what was checked, or what went wrong
};

class MountTestService : public ElementDiagService {
public:
    // The test's work on one mount; it may block for as long as the file system does.
    using Check = std::function<MountFinding(MountPoint&)>;

    // The deadline when ZORQ_FS_TEST_TIMEOUT_SECONDS is unset or unusable, and the largest one
    // it may set.
    static constexpr double defaultDeadlineSeconds = 10;
    static constexpr double longestDeadlineSeconds = 86400;

    MountTestService(std::string installDate, std::string systemName,
                     const MountedFileSystems& fileSystems, Naming naming, Check check);

protected:
    unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) final;
    std::string elementName(std::size_t index) const final;

private:
    const MountedFileSystems& fileSystems_;
    Check check_;
};

} // namespace NQORVA20::providers

#endif
