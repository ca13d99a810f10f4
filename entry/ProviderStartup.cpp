#include "entry/ProviderStartup.h"

#include "common/CmpiBoundary.h"
#include "common/CoreLog.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <string>

namespace NQORVA20 {

namespace {

CMPIStatus ok() {
    CMPIStatus s = {CMPI_RC_OK, nullptr};
    return s;
}

CMPIStatus stillRunning(const CMPIBroker* broker) noexcept {
    return CmpiBoundary::status(broker, CMPI_RC_ERR_FAILED, "provider start-up is still running");
}

std::string upper(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

ProviderStartup::ProviderStartup(Function function, std::chrono::milliseconds waitLimit)
    : function_(function), waitLimit_(waitLimit) {}

CMPIStatus ProviderStartup::ensure(const CMPIBroker* broker, const CMPIContext* ctx,
                                   const CMPIObjectPath* op) noexcept {
    ProviderScope::enter(this);
    try {
        std::unique_lock<std::mutex> lock(mutex_);
        if (state_ == State::Done)
            return ok();
        if (state_ == State::Running) {
            if (runner_ == std::this_thread::get_id() || isOwnUpcall(op))
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
        // A failing lock or no memory for a class name: the call cannot know whether the
        // start-up ran.
        return stillRunning(broker);
    }
    run(broker, ctx);
    // A call into another provider library on this thread during the start-up named that one.
    ProviderScope::enter(this);
    return ok();
}

void ProviderStartup::run(const CMPIBroker* broker, const CMPIContext* ctx) noexcept {
    {
        ProviderScope::RunningStartup marker(*this, this);
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

void ProviderStartup::upcallBegins(const std::string& className) noexcept {
    try {
        std::string key = upper(className);
        std::lock_guard<std::mutex> lock(mutex_);
        upcallClasses_.push_back(std::move(key));
    } catch (...) {
        // Unrecorded, a call the upcall causes waits out the limit instead of going ahead.
    }
}

void ProviderStartup::upcallEnds(const std::string& className) noexcept {
    try {
        const std::string key = upper(className);
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = std::find(upcallClasses_.begin(), upcallClasses_.end(), key);
        if (it != upcallClasses_.end())
            upcallClasses_.erase(it);
    } catch (...) {
        // The class stays listed; it only lets calls of that class go ahead until start-up ends.
    }
}

bool ProviderStartup::isOwnUpcall(const CMPIObjectPath* op) const {
    if (upcallClasses_.empty() || !CmpiBoundary::usable(op))
        return false;
    const char* chars = CmpiBoundary::chars(op->ft->getClassName(op, nullptr));
    if (chars == nullptr)
        return false;
    return std::find(upcallClasses_.begin(), upcallClasses_.end(), upper(chars)) !=
           upcallClasses_.end();
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
