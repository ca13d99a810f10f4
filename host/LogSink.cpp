#include "host/LogSink.h"

namespace NQORVA20::host {

LogSink::LogSink(std::size_t capacity) : capacity_(capacity) {}

void LogSink::write(LogEntry entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (echo_ && !entry.dropped && entry.severity >= 1 && entry.severity <= echoLevel_) {
        *echo_ << (entry.trace ? "trace " : "") << entry.id << "[" << entry.severity
               << "]: " << entry.text << '\n';
        echo_->flush();
    }
    entries_.push_back(std::move(entry));
    if (capacity_ != 0 && entries_.size() > capacity_)
        entries_.pop_front();
}

std::vector<LogEntry> LogSink::entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {entries_.begin(), entries_.end()};
}

std::vector<std::string> LogSink::texts(const std::string& id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (const LogEntry& e : entries_)
        if (!e.trace && e.id == id)
            out.push_back(e.text);
    return out;
}

std::size_t LogSink::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}

void LogSink::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

void LogSink::echoTo(std::ostream* out, int maxSeverity) {
    std::lock_guard<std::mutex> lock(mutex_);
    echo_ = maxSeverity > 0 ? out : nullptr;
    echoLevel_ = maxSeverity;
}

} // namespace NQORVA20::host
