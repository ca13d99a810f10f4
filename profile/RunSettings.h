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
    // LoopControl values as given (2 Continuous, 3 Count, 4 Timer, 5 Error Count), each kind at
    // most once, and a parameter for each (empty for Continuous when the client gave none).
    std::vector<std::uint16_t> loopControl;
    std::vector<std::string> loopControlParameter;
    // The same conditions read: the run ends when the first is met; with none it is one pass.
    bool continuous = false;
    std::optional<std::uint32_t> count;        // passes
    std::optional<ProfileClock::Micros> timer; // since the run began
    // The loop ends once more passes than this have failed.
    std::optional<std::uint32_t> errorCount;

    bool haltOnError = false;
    bool quickMode = false;
    unsigned percentOfTestCoverage = 100; // 0..100
    bool nonDestructive = false;
    std::uint32_t resultPersistence = 0; // seconds; 0 not kept, 0xFFFFFFFF until cleared

    bool deleteOnCompletion = true;
    ProfileClock::Micros timeBeforeRemoval = 300 * ProfileClock::second;

    // The settings from the texts of the two arguments (null: not given, so the defaults; the
    // diagnostic ones leave records for `defaultResultPersistence` seconds). The diagnostic
    // settings must be an instance of one of `settingClasses`, the job settings of one of
    // `jobClasses`, either in any letter case. Properties of other names are ignored; the TYPE
    // a property is given is not checked, its value must read as the setting's type.
    static RunSettings read(const std::string* diagnosticSettings, const std::string* jobSettings,
                            const std::vector<std::string>& settingClasses,
                            std::uint32_t defaultResultPersistence,
                            const std::vector<std::string>& jobClasses = {"CIM_JobSettingData"});

    // No loop condition: the run is one pass.
    bool once() const { return !continuous && !count && !timer && !errorCount; }

    struct Progress {
        unsigned percent;
        bool done;
    };
    // Where a run stands after `passes` passes with `failures` failed ones and `elapsed` time:
    // done when any condition is met, the percentage that of the condition nearest its end.
    Progress progressAfter(unsigned passes, unsigned failures, ProfileClock::Micros elapsed) const;

    // The settings as an embedded instance of the class, for the record of the run.
    std::string embeddedText(const std::string& className) const;
};

} // namespace NQORVA20::profile

#endif
