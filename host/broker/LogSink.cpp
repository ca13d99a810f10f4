#include "host/broker/LogSink.h"

#include <cstring>

namespace diaghost {

namespace {

// Overwrites a kept text, reusing its buffer.
void overwrite(std::string& kept, std::string_view text) {
    kept.resize(text.size());
    if (!text.empty())
        std::memcpy(kept.data(), text.data(), text.size());
}

} // namespace

LogSink::LogSink(std::size_t capacity) : capacity_(capacity) {}

void LogSink::echo(const LogEntry& entry) {
    if (echo_ && !entry.dropped && entry.severity >= 1 && entry.severity <= echoLevel_) {
        *echo_ << (entry.trace ? "trace " : "") << entry.id << "[" << entry.severity
               << "]: " << entry.text << '\n';
        echo_->flush();
    }
}

LogEntry& LogSink::nextSlot() {
    if (capacity_ == 0 || entries_.size() < capacity_) {
        entries_.emplace_back();
        return entries_.back();
    }
    LogEntry& slot = entries_[oldest_];
    oldest_ = (oldest_ + 1) % entries_.size();
    return slot;
}

void LogSink::write(LogEntry entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    echo(entry);
    nextSlot() = std::move(entry);
}

void LogSink::write(int severity, std::string_view id, std::string_view text, bool trace,
                    bool dropped) {
    std::lock_guard<std::mutex> lock(mutex_);
    LogEntry& slot = nextSlot();
    slot.severity = severity;
    overwrite(slot.id, id);
    overwrite(slot.text, text);
    slot.trace = trace;
    slot.dropped = dropped;
    echo(slot);
}

std::vector<LogEntry> LogSink::entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<LogEntry> out;
    out.reserve(entries_.size());
    for (std::size_t i = 0; i < entries_.size(); ++i)
        out.push_back(entries_[(oldest_ + i) % entries_.size()]);
    return out;
}

std::vector<std::string> LogSink::texts(const std::string& id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const LogEntry& e = entries_[(oldest_ + i) % entries_.size()];
        if (!e.trace && e.id == id)
            out.push_back(e.text);
    }
    return out;
}

std::size_t LogSink::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}

void LogSink::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
    oldest_ = 0;
}

void LogSink::echoTo(std::ostream* out, int maxSeverity) {
    std::lock_guard<std::mutex> lock(mutex_);
    echo_ = maxSeverity > 0 ? out : nullptr;
    echoLevel_ = maxSeverity;
}

} // namespace diaghost
