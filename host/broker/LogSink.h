// Where the broker's logMessage and trace calls land: kept in order for tests to read, and
// echoed to a stream (tools use stderr) for lines at or above a chosen severity. Thread-safe.
#ifndef DIAGHOST_BROKER_LOGSINK_H
#define DIAGHOST_BROKER_LOGSINK_H

#include <cstddef>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace diaghost {

struct LogEntry {
    int severity = 0; // CMPI severity: 1 error, 2 info, 3 warning, 4 debug; the level for traces
    std::string id;   // message id, or the component for traces
    std::string text;
    bool trace = false; // written through the broker's trace function rather than logMessage
    // Refused by the object manager being imitated (sfcb answers logMessage with
    // CMPI_RC_ERR_NOT_SUPPORTED): kept so tests can see what was sent, never echoed.
    bool dropped = false;
};

class LogSink {
public:
    // Keeps at most `capacity` entries, dropping the oldest first; 0 keeps everything.
    explicit LogSink(std::size_t capacity = 1u << 20);

    void write(LogEntry entry);
    // The same for a line given as texts; once the sink is full, the dropped entry's strings are
    // reused, so a steady stream of lines costs no allocation.
    void write(int severity, std::string_view id, std::string_view text, bool trace, bool dropped);
    std::vector<LogEntry> entries() const;
    // The texts of the logMessage entries with this id, in order, dropped ones included.
    std::vector<std::string> texts(const std::string& id) const;
    std::size_t size() const;
    void clear();

    // Echoes every later logMessage entry of severity 1..maxSeverity (and traces up to that
    // level) to `out`; a null stream or 0 turns echoing off.
    void echoTo(std::ostream* out, int maxSeverity);

private:
    void echo(const LogEntry& entry);
    // The slot the next entry goes to, after the oldest has been dropped when the sink is full.
    LogEntry& nextSlot();

    mutable std::mutex mutex_;
    // A ring once it holds `capacity_` entries: the oldest is at `oldest_`.
    std::vector<LogEntry> entries_;
    std::size_t oldest_ = 0;
    std::size_t capacity_;
    std::ostream* echo_ = nullptr;
    int echoLevel_ = 0;
};

} // namespace diaghost

#endif
