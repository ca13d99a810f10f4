#include "providers/common/EnvironmentSetting.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace NQORVA20::providers {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text.substr(0, 40))
        out.push_back(std::isprint(static_cast<unsigned char>(c)) ? c : '?');
    return out + (text.size() > 40 ? "...\"" : "\"");
}

} // namespace

std::string EnvironmentSetting::text(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

namespace {

// The variable as a decimal number within (above, upTo], or below `above` too when inclusive.
EnvironmentSetting::Percent decimal(const char* name, double fallback, double low, bool lowIncluded,
                                    double high, const std::string& meaning) {
    EnvironmentSetting::Percent result;
    result.value = fallback;
    const std::string raw = trimmed(EnvironmentSetting::text(name));
    if (raw.empty())
        return result;
    errno = 0;
    char* end = nullptr;
    const double parsed = std::strtod(raw.c_str(), &end);
    if (end == raw.c_str() || *end != '\0' || errno == ERANGE || !std::isfinite(parsed) ||
        (lowIncluded ? parsed < low : parsed <= low) || parsed > high) {
        result.note =
            std::string(name) + "=" + quoted(raw) + " is not " + meaning + "; using the default";
        return result;
    }
    result.value = parsed;
    return result;
}

} // namespace

EnvironmentSetting::Percent EnvironmentSetting::percent(const char* name, double fallback) {
    return decimal(name, fallback, 0, true, 100, "a percentage from 0 to 100");
}

EnvironmentSetting::Percent EnvironmentSetting::number(const char* name, double fallback,
                                                       double above, double upTo,
                                                       const std::string& meaning) {
    return decimal(name, fallback, above, false, upTo, meaning);
}

EnvironmentSetting::Limit EnvironmentSetting::limit(const char* name,
                                                    std::optional<unsigned long long> fallback) {
    Limit result;
    result.value = fallback;
    const std::string raw = trimmed(text(name));
    if (raw.empty())
        return result;
    std::string lower = raw;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "unlimited") {
        result.value.reset();
        return result;
    }
    const bool digits =
        std::all_of(raw.begin(), raw.end(), [](unsigned char c) { return std::isdigit(c); });
    errno = 0;
    const unsigned long long parsed = digits ? std::strtoull(raw.c_str(), nullptr, 10) : 0;
    if (!digits || errno == ERANGE) {
        result.note = std::string(name) + "=" + quoted(raw) +
                      " is neither a count nor \"unlimited\"; using the default";
        return result;
    }
    result.value = parsed;
    return result;
}

} // namespace NQORVA20::providers
