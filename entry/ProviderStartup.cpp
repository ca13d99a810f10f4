#include "entry/ProviderStartup.h"

#include "common/CoreLog.h"
#include "common/ProviderScope.h"

#include <cmpift.h>

#include <exception>
#include <string>

namespace NQORVA20 {

namespace {

CMPIStatus ok() {
    CMPIStatus s = {CMPI_RC_OK, nullptr};
    return s;
}

CMPIStatus stillRunning(const CMPIBroker* broker) noexcept {
    CMPIStatus s = {CMPI_RC_ERR_FAILED, nullptr};
    if (broker != nullptr && broker->eft != nullptr && broker->eft->newString != nullptr)
        s.msg = broker->eft->newString(broker, "provider start-up is still running", nullptr);
    return s;
}

} // namespace

ProviderStartup::ProviderStartup(Function function, std::chrono::milliseconds waitLimit)
    : function_(function), waitLimit_(waitLimit) {}

CMPIStatus ProviderStartup::ensure(const CMPIBroker* broker, const CMPIContext* ctx) noexcept {
    ProviderScope::enter(this);
    try {
        std::unique_lock<std::mutex> lock(mutex_);
        if (state_ == State::Done)
            return ok();
        if (state_ == State::Running) {
            if (runner_ == std::this_thread::get_id() || upcalls_.load() > 0)
                return ok();
            if (!finished_.wait_for(lock, waitLimit_, [this] { return state_ == State::Done; })) {
                lock.unlock();
                coreLog(broker, LogWarning, "provider start-up is still running");
                return stillRunning(broker);
            }
            return ok();
        }
        state_ = State::Running;
        runner_ = std::this_thread::get_id();
    } catch (const std::exception&) {
        // Only a failing lock gets here; the call cannot know whether the start-up ran.
        return stillRunning(broker);
    }
    run(broker, ctx);
    return ok();
}

void ProviderStartup::run(const CMPIBroker* broker, const CMPIContext* ctx) noexcept {
    {
        ProviderScope::RunningStartup marker(upcalls_);
        try {
            if (function_ != nullptr)
                function_(broker, ctx);
        } catch (const std::exception& e) {
            try {
                coreLog(broker, LogError, std::string("provider start-up failed: ") + e.what());
            } catch (...) {
                // No memory for the composed text: this function must not throw.
                coreLog(broker, LogError, "provider start-up failed");
            }
        } catch (...) {
            coreLog(broker, LogError, "provider start-up failed");
        }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::Done;
    finished_.notify_all();
}

bool ProviderStartup::done() {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_ == State::Done;
}

CMPIStatus ProviderStartup::cleanupAnswer(CMPIStatus core, CMPIBoolean terminating) {
    if (terminating)
        return core;
    CMPIStatus neverUnload = {CMPI_RC_NEVER_UNLOAD, nullptr};
    return neverUnload;
}

} // namespace NQORVA20
