#include "common/LogMirror.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace NQORVA20 {

namespace {

struct MirrorState {
    std::mutex mutex;
    std::FILE* out = nullptr;
    bool ownsFile = false;
    int maxSeverity = 4;
    std::atomic<bool> enabled{false};
};

MirrorState& state() {
    static MirrorState* mirror = new MirrorState; // outlives every static destructor that logs
    return *mirror;
}

} // namespace

bool LogMirror::open(const std::string& target, int maxSeverity) {
    MirrorState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.ownsFile && s.out != nullptr)
        std::fclose(s.out);
    s.out = nullptr;
    s.ownsFile = false;
    s.maxSeverity = maxSeverity;
    if (target == "stderr") {
        s.out = stderr;
    } else if (!target.empty()) {
        s.out = std::fopen(target.c_str(), "a");
        s.ownsFile = s.out != nullptr;
    }
    s.enabled = s.out != nullptr;
    return target.empty() || s.out != nullptr;
}

void LogMirror::openFromEnvironment() {
    static std::once_flag once;
    std::call_once(once, [] {
        const char* target = std::getenv("DIAGCORE_LOG");
        if (target == nullptr || *target == '\0')
            return;
        const char* level = std::getenv("DIAGCORE_LOG_LEVEL");
        int maxSeverity = level ? std::atoi(level) : 4;
        open(target, maxSeverity > 0 ? maxSeverity : 4);
    });
}

void LogMirror::write(int severity, const char* id, const char* text) {
    MirrorState& s = state();
    if (!s.enabled.load(std::memory_order_relaxed))
        return;
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.out == nullptr || severity > s.maxSeverity)
        return;
    std::fprintf(s.out, "%s[%d]: %s\n", id ? id : "", severity, text ? text : "");
    std::fflush(s.out);
}

} // namespace NQORVA20
