// The time the profile layer reads: the system clock, or one a test sets and moves. Also writes
// CIM datetime texts, a point in time ("yyyymmddhhmmss.mmmmmm+000", UTC) and an interval
// ("ddddddddhhmmss.mmmmmm:000"), and reads the interval form back.
#ifndef DIAGPROFILE_PROFILECLOCK_H
#define DIAGPROFILE_PROFILECLOCK_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace NQORVA20::profile {

class ProfileClock {
public:
    using Micros = std::int64_t; // microseconds since the epoch, or of an interval

    // The system clock.
    ProfileClock() = default;

    Micros now() const;
    // From now on the clock stands at `at` until set or moved again.
    void set(Micros at);
    void advance(Micros by);

    static std::string timestampText(Micros at);
    static std::string intervalText(Micros length);
    // An interval text as microseconds; nothing for a text that is not one.
    static std::optional<Micros> parseInterval(const std::string& text);

    static constexpr Micros second = 1000000;

private:
    std::atomic<bool> manual_{false};
    std::atomic<Micros> manualAt_{0};
};

} // namespace NQORVA20::profile

#endif
