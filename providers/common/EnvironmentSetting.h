// Operator settings read from environment variables at the moment a test runs, so a changed
// threshold applies to the next run without a restart. A variable that is unset or empty gives
// the default; one that cannot be read also gives the default, with a note saying so that the
// test puts into its record.
#ifndef ZORQ_PROVIDERS_COMMON_ENVIRONMENTSETTING_H
#define ZORQ_PROVIDERS_COMMON_ENVIRONMENTSETTING_H

#include <optional>
#include <string>

namespace NQORVA20::providers {

class EnvironmentSetting {
public:
    // A percentage from 0 to 100 (a decimal fraction is allowed).
    struct Percent {
        double value = 0;
        std::string note; // empty unless the variable held something unusable
    };
    // A count limit; no value means unlimited.
    struct Limit {
        std::optional<unsigned long long> value;
        std::string note;
    };

    static Percent percent(const char* name, double fallback);
    // A decimal number above `above` and up to `upTo`; meaning says what it is for the note
    // ("a number of seconds above 0 and up to 86400 s").
    static Percent number(const char* name, double fallback, double above, double upTo,
                          const std::string& meaning);
    // Accepts decimal digits, or "unlimited" (any letter case) for no limit.
    static Limit limit(const char* name, std::optional<unsigned long long> fallback);
    // The variable's text; empty when unset.
    static std::string text(const char* name);
};

} // namespace NQORVA20::providers

#endif
