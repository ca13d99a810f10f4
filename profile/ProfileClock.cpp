#include "profile/ProfileClock.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace NQORVA20::profile {

ProfileClock::Micros ProfileClock::now() const {
    if (manual_.load())
        return manualAt_.load();
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void ProfileClock::set(Micros at) {
    manualAt_.store(at);
    manual_.store(true);
}

void ProfileClock::advance(Micros by) {
    if (!manual_.load())
        set(now());
    manualAt_.fetch_add(by);
}

std::string ProfileClock::timestampText(Micros at) {
    const std::time_t seconds = static_cast<std::time_t>(at / second);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[96];
    std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02d.%06lld+000", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<long long>(at % second));
    return text;
}

std::string ProfileClock::intervalText(Micros length) {
    if (length < 0)
        length = 0;
    const long long totalSeconds = length / second;
    char text[96];
    std::snprintf(text, sizeof text, "%08lld%02lld%02lld%02lld.%06lld:000",
                  std::min(totalSeconds / 86400, 99999999LL), totalSeconds / 3600 % 24,
                  totalSeconds / 60 % 60, totalSeconds % 60,
                  static_cast<long long>(length % second));
    return text;
}

std::optional<ProfileClock::Micros> ProfileClock::parseInterval(const std::string& text) {
    if (text.size() != 25 || text[14] != '.' || text[21] != ':')
        return std::nullopt;
    for (std::size_t i = 0; i < 25; ++i)
        if (i != 14 && i != 21 && (text[i] < '0' || text[i] > '9'))
            return std::nullopt;
    auto number = [&](std::size_t from, std::size_t length) {
        return std::stoll(text.substr(from, length));
    };
    const long long hours = number(8, 2), minutes = number(10, 2), seconds = number(12, 2);
    if (hours > 23 || minutes > 59 || seconds > 59)
        return std::nullopt;
    return ((number(0, 8) * 86400 + hours * 3600 + minutes * 60 + seconds) * second) +
           number(15, 6);
}

} // namespace NQORVA20::profile
