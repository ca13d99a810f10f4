#include "entry/ProviderStartup.h"

#include "common/CoreLog.h"

#include <exception>
#include <string>

namespace NQORVA20 {

ProviderStartup::ProviderStartup(Function function) : function_(function) {}

void ProviderStartup::ensure(const CMPIBroker* broker, const CMPIContext* ctx) noexcept {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (state_ == State::Done)
            return;
        if (state_ == State::Running) {
            if (runner_ == std::this_thread::get_id())
                return;
            finished_.wait(lock, [this] { return state_ == State::Done; });
            return;
        }
        state_ = State::Running;
        runner_ = std::this_thread::get_id();
    }
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
