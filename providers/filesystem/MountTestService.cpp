#include "providers/filesystem/MountTestService.h"

#include "providers/common/EnvironmentSetting.h"
#include "providers/common/TestOutcome.h"
#include "providers/filesystem/FSDiag.h"

#include <condition_variable>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

namespace NQORVA20::providers {

namespace {

constexpr char deadlineVariable[] = "ZORQ_FS_TEST_TIMEOUT_SECONDS";

struct Deadline {
    double seconds = MountTestService::defaultDeadlineSeconds;
    std::string note; // empty unless the variable held something unusable
};

std::string secondsText(double seconds) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g s", seconds);
    return buffer;
}

// The deadline the operator set, read at every run like the thresholds.
Deadline readDeadline() {
    const EnvironmentSetting::Percent read =
        EnvironmentSetting::number(deadlineVariable, MountTestService::defaultDeadlineSeconds, 0,
                                   MountTestService::longestDeadlineSeconds,
                                   "a number of seconds above 0 and up to " +
                                       secondsText(MountTestService::longestDeadlineSeconds));
    Deadline deadline;
    deadline.seconds = read.value;
    deadline.note = read.note;
    return deadline;
}

// Where a worker leaves its finding. The worker and the call each hold it; whichever lets go
// last frees it.
struct Attempt {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    bool abandoned = false; // the call stopped waiting; the worker counts as stuck on the mount
    MountFinding finding;
    std::exception_ptr thrown; // what the work threw, for the call to rethrow
};

// The worker's whole life. Nothing here may throw (an exception leaving a thread ends the
// process): what the work throws is kept, without allocating, for the call to rethrow on its
// own thread, where the service reports it as a test that stopped.
void runWorker(const std::shared_ptr<Attempt>& attempt, const std::shared_ptr<MountPoint>& point,
               const MountTestService::Check& check) noexcept {
    MountFinding finding;
    std::exception_ptr thrown;
    try {
        finding = check(*point);
    } catch (...) {
        thrown = std::current_exception();
    }
    std::lock_guard<std::mutex> lock(attempt->mutex);
    attempt->finding = std::move(finding);
    attempt->thrown = std::move(thrown);
    attempt->done = true;
    if (attempt->abandoned)
        point->removeStuck();
    attempt->finished.notify_all();
}

} // namespace

MountTestService::MountTestService(std::string installDate, std::string systemName,
                                   const MountedFileSystems& fileSystems, Naming naming,
                                   Check check)
    : ElementDiagService(fsdiag::serviceClass, fsdiag::recordClass, std::move(installDate),
                         std::move(systemName), fileSystems.catalog(), std::move(naming)),
      fileSystems_(fileSystems), check_(std::move(check)) {}

std::string MountTestService::elementName(std::size_t index) const {
    return fileSystems_.mount(index).mountPoint;
}

unsigned int MountTestService::runOnElement(std::size_t index, DiagnosticRecord& record) {
    const std::shared_ptr<MountPoint> point = fileSystems_.point(index);
    const std::string& where = point->entry().mountPoint;
    if (const unsigned int stuck = point->stuck()) {
        failWith(record, {fsdiag::mountStuck},
                 where + ": not started: " + std::to_string(stuck) +
                     (stuck == 1 ? " earlier test" : " earlier tests") +
                     " on this mount ran past the deadline and still wait on the file system; "
                     "no test starts on it until they return");
        return TestTimedOut;
    }
    const Deadline deadline = readDeadline();

    auto attempt = std::make_shared<Attempt>();
    std::thread(runWorker, attempt, point, check_).detach();

    std::unique_lock<std::mutex> lock(attempt->mutex);
    const auto limit = std::chrono::duration<double>(deadline.seconds);
    if (!attempt->finished.wait_for(lock, limit, [&] { return attempt->done; })) {
        attempt->abandoned = true;
        point->addStuck();
        std::string details = where + ": the test did not finish within " +
                              secondsText(deadline.seconds) +
                              " and was abandoned; it still waits on the file system and no "
                              "test starts on this mount until it returns";
        if (!deadline.note.empty())
            details += "; " + deadline.note;
        failWith(record, {fsdiag::timedOut}, details);
        return TestTimedOut;
    }
    if (attempt->thrown) {
        // Taken out under the lock: the exception then lives on this thread alone, whichever
        // thread lets go of the attempt last.
        std::exception_ptr thrown = std::move(attempt->thrown);
        attempt->thrown = nullptr;
        lock.unlock();
        std::rethrow_exception(thrown);
    }
    MountFinding finding = std::move(attempt->finding);
    lock.unlock();

    if (!deadline.note.empty())
        finding.details += "; " + deadline.note;
    if (finding.codes.empty())
        passWith(record, finding.details);
    else
        failWith(record, finding.codes, finding.details);
    return finding.outcome;
}

} // namespace NQORVA20::providers
