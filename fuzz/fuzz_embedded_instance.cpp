// The profile layer's reader of embedded instances and the run settings read from them. The input
// is two texts split at its first NUL byte: the DiagnosticSettings argument and, when there is a
// NUL, the JobSettings one. Each text either reads as an instance or raises EmbeddedInstanceError,
// and the pair either reads as settings or raises SettingsError; nothing else may escape. What
// reads must hold what the headers promise, and the settings written for the record of a run
// must read back as the same settings.
#include "profile/EmbeddedInstance.h"
#include "profile/RunSettings.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using NQORVA20::profile::EmbeddedInstance;
using NQORVA20::profile::EmbeddedInstanceError;
using NQORVA20::profile::ProfileClock;
using NQORVA20::profile::RunSettings;
using NQORVA20::profile::SettingsError;

namespace {

const std::vector<std::string> settingClasses = {"CIM_DiagnosticSettingData",
                                                 "ZORQ_NetDiagSetting"};
const std::vector<std::string> jobClasses = {"CIM_JobSettingData", "ZORQ_JobSetting"};
constexpr std::uint32_t servicePersistence = 3600;

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

void readInstance(std::string_view text) {
    try {
        const EmbeddedInstance in = EmbeddedInstance::parse(text);
        check(text.size() <= EmbeddedInstance::maxText, "a text over the size bound was read");
        check(!in.className().empty(), "an instance read without a class name");
        for (const EmbeddedInstance::Property& p : in.properties()) {
            check(!p.name.empty(), "a property read without a name");
            check(in.find(p.name) == &p, "a property name read twice");
            if (p.array) {
                check(p.nullEntries.size() == p.values.size(), "array entries and nulls differ");
                check(!p.null || p.values.empty(), "a null array with entries");
            } else {
                check(p.nullEntries.empty(), "a scalar with null entries");
                check(p.values.size() <= 1, "a scalar with more than one value");
                check(!p.null || p.values.empty(), "a null scalar with a value");
            }
        }
    } catch (const EmbeddedInstanceError&) {
    }
}

std::optional<RunSettings> readSettings(const std::string* diagnostic, const std::string* job) {
    try {
        return RunSettings::read(diagnostic, job, settingClasses, servicePersistence, jobClasses);
    } catch (const SettingsError&) {
        return std::nullopt;
    }
}

void checkSettings(const RunSettings& s) {
    check(s.percentOfTestCoverage <= 100, "a coverage over 100 percent");
    check(s.loopControl.size() == s.loopControlParameter.size(),
          "not one loop parameter for each loop control");
    for (std::size_t i = 0; i < s.loopControl.size(); ++i) {
        const std::uint16_t c = s.loopControl[i];
        check(c >= 2 && c <= 5, "a loop control that is not served");
        check(std::count(s.loopControl.begin(), s.loopControl.end(), c) == 1,
              "a loop control given twice");
    }
    const auto has = [&](std::uint16_t c) {
        return std::find(s.loopControl.begin(), s.loopControl.end(), c) != s.loopControl.end();
    };
    check(s.continuous == has(2) && s.count.has_value() == has(3) &&
              s.timer.has_value() == has(4) && s.errorCount.has_value() == has(5),
          "loop conditions that are not the loop controls read");
    // An error count of 0 ends the loop at the first failure, not before the first pass.
    check((!s.count || *s.count > 0) && (!s.timer || *s.timer > 0) &&
              (s.once() || !s.progressAfter(0, 0, 0).done),
          "a loop condition that is met before the run begins");
    for (const RunSettings::Progress p :
         {s.progressAfter(0, 0, 0), s.progressAfter(7, 3, 90 * ProfileClock::second)}) {
        check(p.percent <= 100, "progress over 100 percent");
        check(!p.done || p.percent == 100, "a run done short of 100 percent");
    }
}

// The diagnostic settings as written for the record, read back.
void checkRecord(const RunSettings& s) {
    const std::string text = s.embeddedText(settingClasses[0]);
    // Escaping may grow a value past the reader's size bound; only what fits is read back.
    if (text.size() > EmbeddedInstance::maxText)
        return;
    const std::optional<RunSettings> again = readSettings(&text, nullptr);
    check(again.has_value(), "the settings written for the record do not read back");
    check(again->loopControl == s.loopControl &&
              again->loopControlParameter == s.loopControlParameter &&
              again->continuous == s.continuous && again->count == s.count &&
              again->timer == s.timer && again->errorCount == s.errorCount &&
              again->haltOnError == s.haltOnError && again->quickMode == s.quickMode &&
              again->percentOfTestCoverage == s.percentOfTestCoverage &&
              again->nonDestructive == s.nonDestructive &&
              again->resultPersistence == s.resultPersistence,
          "the settings written for the record read back differently");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(bytes), size);
    const std::size_t nul = input.find('\0');
    const std::string diagnostic(input.substr(0, nul));
    const std::optional<std::string> job = nul == std::string_view::npos
                                               ? std::nullopt
                                               : std::optional<std::string>(input.substr(nul + 1));

    readInstance(diagnostic);
    if (job)
        readInstance(*job);

    const std::string* jobText = job ? &*job : nullptr;
    if (const std::optional<RunSettings> s = readSettings(&diagnostic, jobText)) {
        checkSettings(*s);
        checkRecord(*s);
    }
    // A refused diagnostic text stops the reading before the job settings; read them alone too.
    if (jobText != nullptr) {
        if (const std::optional<RunSettings> s = readSettings(nullptr, jobText))
            checkSettings(*s);
    }
    return 0;
}
