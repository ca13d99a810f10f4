// The settings a RunDiagnosticService run follows, read from the two embedded instances the
// client may pass (a CIM_DiagnosticSettingData and a CIM_JobSettingData) or defaulted when it
// passes none: how long to loop (a count, a time, until a number of errors, continuously; the
// first condition met ends the run, none means one pass), whether to halt on the first error,
// quick mode, coverage, whether the test must not be destructive, how long records are kept, and
// what happens to the job when it ends. A value that does not read as its type, or an instance of
// another class, is refused with a SettingsError naming it.
#ifndef DIAGPROFILE_RUNSETTINGS_H
#define DIAGPROFILE_RUNSETTINGS_H

#include "profile/ProfileClock.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace NQORVA20::profile {

class SettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct RunSettings {
    // LoopControl values: 2 Continuous, 3 Count, 4 Timer, 5 Error Count.
    std::vector<std::uint16_t> loopControl;
    std::vector<std::string> loopControlParameter;
    bool continuous = false;
    std::optional<unsigned> count;
    std::optional<ProfileClock::Micros> timer;
    std::optional<unsigned> errorCount;

    bool haltOnError = false;
    bool quickMode = false;
    unsigned percentOfTestCoverage = 100;
    bool nonDestructive = false;
    std::uint32_t resultPersistence = 0;

    bool deleteOnCompletion = true;
    ProfileClock::Micros timeBeforeRemoval = 300 * ProfileClock::second;

    // The settings from the texts of the two arguments (null: not given). The diagnostic
    // settings must be an instance of one of `settingClasses`.
    static RunSettings read(const std::string* diagnosticSettings, const std::string* jobSettings,
                            const std::vector<std::string>& settingClasses,
                            std::uint32_t defaultResultPersistence);

    struct Progress {
        unsigned percent;
        bool done;
    };
    // Where a run stands after `passes` passes with `failures` failed ones and `elapsed` time.
    Progress progressAfter(unsigned passes, unsigned failures, ProfileClock::Micros elapsed) const;

    // The settings as an embedded instance of the class, for the record of the run.
    std::string embeddedText(const std::string& className) const;
};

} // namespace NQORVA20::profile

#endif
