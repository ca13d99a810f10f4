#include "common/LogMirror.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

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

// Opens a regular file for appending, or answers null. The open never waits: a FIFO without a
// reader fails at once (ENXIO), and a FIFO with one, a device or a socket is refused after
// fstat, so that naming one cannot stall or feed another process.
std::FILE* openRegularFile(const std::string& path) {
    const int fd = ::open(path.c_str(),
                          O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
    if (fd < 0)
        return nullptr;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0)
        ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    std::FILE* out = ::fdopen(fd, "a");
    if (out == nullptr)
        ::close(fd);
    return out;
}

// Appends text with its control characters written out (\n, \r, \t, other bytes as \xNN), so
// that a line always ends where the mirror ends it, whatever a client put into a key value.
void appendEscaped(std::string& line, const char* text) {
    static const char hex[] = "0123456789abcdef";
    for (const char* p = text; *p != '\0'; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c >= 0x20 && c != 0x7f) {
            line.push_back(*p);
        } else if (c == '\n') {
            line += "\\n";
        } else if (c == '\r') {
            line += "\\r";
        } else if (c == '\t') {
            line += "\\t";
        } else {
            line += "\\x";
            line.push_back(hex[c >> 4]);
            line.push_back(hex[c & 0xf]);
        }
    }
}

} // namespace

bool LogMirror::open(const std::string& target, int maxSeverity) {
    // Called from providers' MI factories: nothing may leave it, a failed lock included.
    try {
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
            s.out = openRegularFile(target);
            s.ownsFile = s.out != nullptr;
        }
        s.enabled = s.out != nullptr;
        return target.empty() || s.out != nullptr;
    } catch (...) {
        return false;
    }
}

void LogMirror::openFromEnvironment() {
    // Once, but again after a failed attempt. Not std::call_once: a callable that throws leaves
    // some implementations' once flag taken for good (ThreadSanitizer's, for one), so that the
    // next call would wait forever.
    static std::mutex opening;
    static std::atomic<bool> opened{false};
    if (opened.load(std::memory_order_acquire))
        return;
    try {
        std::lock_guard<std::mutex> lock(opening);
        if (opened.load(std::memory_order_relaxed))
            return;
        const char* target = std::getenv("DIAGCORE_LOG");
        if (target != nullptr && *target != '\0') {
            const char* level = std::getenv("DIAGCORE_LOG_LEVEL");
            int maxSeverity = level ? std::atoi(level) : 4;
            open(target, maxSeverity > 0 ? maxSeverity : 4);
        }
        opened.store(true, std::memory_order_release);
    } catch (...) {
        // No mirror this time; the next call tries again.
    }
}

void LogMirror::write(int severity, const char* id, const char* text) {
    MirrorState& s = state();
    if (!s.enabled.load(std::memory_order_relaxed))
        return;
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.out == nullptr || severity > s.maxSeverity)
        return;
    std::string line;
    try {
        appendEscaped(line, id ? id : "");
        line += "[" + std::to_string(severity) + "]: ";
        appendEscaped(line, text ? text : "");
        line += '\n';
    } catch (...) {
        return; // no memory for the copy: the broker still has the line
    }
    std::fwrite(line.data(), 1, line.size(), s.out);
    std::fflush(s.out);
}

} // namespace NQORVA20
