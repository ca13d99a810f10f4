#include "profile/DiagJob.h"

#include <algorithm>

namespace NQORVA20::profile {

DiagJob::DiagJob(Identity identity, const ProfileClock& clock)
    : identity_(std::move(identity)), clock_(clock), submitted_(clock.now()),
      lastChange_(submitted_) {}

bool DiagJob::isEnd(State s) {
    return s == State::Completed || s == State::Terminated || s == State::Killed ||
           s == State::Exception;
}

void DiagJob::started() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::New)
        return;
    // A stop asked for before the worker got going leaves the job shutting down.
    state_ = stop_.load() == Stop::None ? State::Running : State::ShuttingDown;
    startTime_ = lastChange_ = clock_.now();
}

void DiagJob::progress(unsigned percent) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!isEnd(state_))
        percent_ = std::min(percent, 100u);
}

void DiagJob::finished(const std::string& errorDescription) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (isEnd(state_))
        return;
    const Stop stop = stop_.load();
    if (stop == Stop::Kill) {
        state_ = State::Killed;
    } else if (stop == Stop::Terminate) {
        state_ = State::Terminated;
    } else if (!errorDescription.empty()) {
        state_ = State::Exception;
        errorDescription_ = errorDescription;
    } else {
        state_ = State::Completed;
        percent_ = 100;
    }
    if (startTime_ == 0)
        startTime_ = clock_.now();
    endTime_ = lastChange_ = clock_.now();
    endChanged_.notify_all();
}

void DiagJob::setRecord(std::string recordId) {
    std::lock_guard<std::mutex> lock(mutex_);
    record_ = std::move(recordId);
}

std::uint32_t DiagJob::requestStateChange(std::uint16_t requested) {
    // RequestedState: 2 Start, 3 Suspend, 4 Terminate, 5 Kill, 6 Service.
    if (requested == 2 || requested == 3 || requested == 6)
        return 1;
    if (requested != 4 && requested != 5)
        return 5;
    std::lock_guard<std::mutex> lock(mutex_);
    if (isEnd(state_))
        return 4097;
    stop_.store(requested == 5 ? Stop::Kill : Stop::Terminate);
    if (state_ == State::Running) {
        state_ = State::ShuttingDown;
        lastChange_ = clock_.now();
    }
    return 4096;
}

DiagJob::State DiagJob::state() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_;
}

bool DiagJob::ended() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return isEnd(state_);
}

bool DiagJob::waitForEnd(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return endChanged_.wait_for(lock, timeout, [this] { return isEnd(state_); });
}

std::string DiagJob::errorDescription() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return errorDescription_;
}

std::string DiagJob::record() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return record_;
}

bool DiagJob::expired(ProfileClock::Micros now) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return isEnd(state_) && identity_.deleteOnCompletion &&
           now >= endTime_ + identity_.timeBeforeRemoval;
}

ProfileClock::Micros DiagJob::endTime() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return endTime_;
}

CimObject DiagJob::toObject(const std::string& className) const {
    std::lock_guard<std::mutex> lock(mutex_);
    CimObject job(ObjectName{className, {{"InstanceID", identity_.instanceId}}, {}});
    job.text("Name", identity_.name)
        .text("Caption", "RunDiagnosticService of " + identity_.service.text())
        .uint16("JobState", static_cast<std::uint16_t>(state_))
        .uint16("PercentComplete", static_cast<std::uint16_t>(percent_))
        .boolean("DeleteOnCompletion", identity_.deleteOnCompletion)
        .dateTime("TimeBeforeRemoval", ProfileClock::intervalText(identity_.timeBeforeRemoval))
        .dateTime("TimeSubmitted", ProfileClock::timestampText(submitted_))
        .dateTime("TimeOfLastStateChange", ProfileClock::timestampText(lastChange_));
    const char* status = "OK";
    switch (state_) {
    case State::Exception:
        status = "Error";
        break;
    case State::Terminated:
    case State::Killed:
        status = "Stopped";
        break;
    default:
        break;
    }
    job.text("JobStatus", status);
    if (startTime_ != 0) {
        job.dateTime("StartTime", ProfileClock::timestampText(startTime_));
        const ProfileClock::Micros until = isEnd(state_) ? endTime_ : clock_.now();
        job.dateTime("ElapsedTime", ProfileClock::intervalText(until - startTime_));
    }
    if (state_ == State::Exception) {
        job.uint16("ErrorCode", 1).text("ErrorDescription", errorDescription_);
    }
    return job;
}

} // namespace NQORVA20::profile
