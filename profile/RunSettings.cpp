#include "profile/RunSettings.h"

#include "profile/EmbeddedInstance.h"
#include "profile/EmbeddedInstanceWriter.h"

#include <algorithm>
#include <string_view>

namespace NQORVA20::profile {

namespace {

using Property = EmbeddedInstance::Property;

constexpr std::uint32_t uint32Max = 0xFFFFFFFFu;

[[noreturn]] void refuse(const std::string& property, const std::string& why) {
    throw SettingsError(property + " " + why);
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [](char x, char y) { return lower(x) == lower(y); });
}

// A number or boolean reads with the XML white space around it dropped.
std::string_view trimmed(std::string_view text) {
    const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && space(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && space(text.back()))
        text.remove_suffix(1);
    return text;
}

// A decimal unsigned number no greater than `max`.
std::uint64_t unsignedValue(const std::string& property, const std::string& text,
                            std::uint64_t max) {
    const std::string_view digits = trimmed(text);
    if (digits.empty() ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        refuse(property, "is not an unsigned number: " + EmbeddedInstance::quoted(text));
    std::uint64_t value = 0;
    for (char c : digits) {
        value = value * 10 + static_cast<std::uint64_t>(c - '0');
        if (value > max)
            refuse(property, "is out of range (0 to " + std::to_string(max) +
                                 "): " + EmbeddedInstance::quoted(text));
    }
    return value;
}

bool booleanValue(const std::string& property, const std::string& text) {
    const std::string_view word = trimmed(text);
    if (sameName(word, "true"))
        return true;
    if (sameName(word, "false"))
        return false;
    refuse(property, "is not TRUE or FALSE: " + EmbeddedInstance::quoted(text));
}

// The one value of a scalar property; null when the property is absent or null.
const std::string* scalar(const EmbeddedInstance& instance, const char* name) {
    const Property* p = instance.find(name);
    if (p == nullptr || p->null)
        return nullptr;
    if (p->array || p->values.size() != 1)
        refuse(name, "must be a single value");
    return &p->values[0];
}

const Property* arrayOf(const EmbeddedInstance& instance, const char* name) {
    const Property* p = instance.find(name);
    if (p == nullptr || p->null)
        return nullptr;
    if (!p->array)
        refuse(name, "must be an array");
    return p;
}

std::string classList(const std::vector<std::string>& classes) {
    std::string list;
    for (const std::string& c : classes)
        if (!c.empty())
            list += (list.empty() ? "" : ", ") + c;
    return list.empty() ? "no class" : list;
}

EmbeddedInstance instanceOf(const std::string& text, const char* argument,
                            const std::vector<std::string>& classes) {
    EmbeddedInstance instance = [&] {
        try {
            return EmbeddedInstance::parse(text);
        } catch (const EmbeddedInstanceError& e) {
            throw SettingsError(std::string(argument) + ": " + e.what());
        }
    }();
    for (const std::string& accepted : classes)
        if (!accepted.empty() && sameName(instance.className(), accepted))
            return instance;
    throw SettingsError(std::string(argument) + " is an instance of " +
                        EmbeddedInstance::quoted(instance.className()) + ", not of " +
                        classList(classes));
}

void readLoops(RunSettings& s, const EmbeddedInstance& in) {
    const Property* controls = arrayOf(in, "LoopControl");
    const Property* parameters = arrayOf(in, "LoopControlParameter");
    if (controls == nullptr)
        return; // parameters without controls say nothing
    for (std::size_t i = 0; i < controls->values.size(); ++i) {
        if (i < controls->nullEntries.size() && controls->nullEntries[i])
            refuse("LoopControl", "entry " + std::to_string(i) + " is null");
        const auto control =
            static_cast<std::uint16_t>(unsignedValue("LoopControl", controls->values[i], 65535));
        if (control < 2 || control > 5)
            refuse("LoopControl", "value " + std::to_string(control) +
                                      " is not served (2 Continuous, 3 Count, 4 Timer and 5 "
                                      "Error Count are)");
        if (std::find(s.loopControl.begin(), s.loopControl.end(), control) != s.loopControl.end())
            refuse("LoopControl", "value " + std::to_string(control) + " is given twice");
        s.loopControl.push_back(control);
    }
    const bool allContinuous =
        std::all_of(s.loopControl.begin(), s.loopControl.end(), [](auto c) { return c == 2; });
    const std::size_t given = parameters != nullptr ? parameters->values.size() : 0;
    if (given != s.loopControl.size() && !(given == 0 && allContinuous))
        refuse("LoopControlParameter", "has " + std::to_string(given) + " entries for " +
                                           std::to_string(s.loopControl.size()) +
                                           " LoopControl values; it must have one for each");
    s.loopControlParameter.assign(s.loopControl.size(), std::string());
    for (std::size_t i = 0; i < given; ++i)
        s.loopControlParameter[i] = parameters->values[i];

    for (std::size_t i = 0; i < s.loopControl.size(); ++i) {
        const std::string& parameter = s.loopControlParameter[i];
        const auto positive = [&](const char* what) {
            const std::uint64_t v = unsignedValue("LoopControlParameter", parameter, uint32Max);
            if (v == 0)
                refuse("LoopControlParameter", std::string("of ") + what + " must be positive");
            return static_cast<std::uint32_t>(v);
        };
        switch (s.loopControl[i]) {
        case 2:
            s.continuous = true; // its parameter is ignored
            break;
        case 3:
            s.count = positive("a count");
            break;
        case 4:
            s.timer = static_cast<ProfileClock::Micros>(positive("a timer")) * ProfileClock::second;
            break;
        case 5:
            // The loop ends when the errors exceed it: 0 is the first error.
            s.errorCount = static_cast<std::uint32_t>(
                unsignedValue("LoopControlParameter", parameter, uint32Max));
            break;
        }
    }
}

void readDiagnostic(RunSettings& s, const EmbeddedInstance& in) {
    readLoops(s, in);
    if (const std::string* v = scalar(in, "HaltOnError"))
        s.haltOnError = booleanValue("HaltOnError", *v);
    if (const std::string* v = scalar(in, "QuickMode"))
        s.quickMode = booleanValue("QuickMode", *v);
    if (const std::string* v = scalar(in, "NonDestructive"))
        s.nonDestructive = booleanValue("NonDestructive", *v);
    if (const std::string* v = scalar(in, "PercentOfTestCoverage"))
        s.percentOfTestCoverage =
            static_cast<unsigned>(unsignedValue("PercentOfTestCoverage", *v, 100));
    if (const std::string* v = scalar(in, "ResultPersistence"))
        s.resultPersistence =
            static_cast<std::uint32_t>(unsignedValue("ResultPersistence", *v, uint32Max));
}

void readJob(RunSettings& s, const EmbeddedInstance& in) {
    if (const std::string* v = scalar(in, "DeleteOnCompletion"))
        s.deleteOnCompletion = booleanValue("DeleteOnCompletion", *v);
    if (const std::string* v = scalar(in, "TimeBeforeRemoval")) {
        const std::optional<ProfileClock::Micros> interval =
            ProfileClock::parseInterval(std::string(trimmed(*v)));
        if (!interval)
            refuse("TimeBeforeRemoval", "is not a CIM interval (ddddddddhhmmss.mmmmmm:000): " +
                                            EmbeddedInstance::quoted(*v));
        s.timeBeforeRemoval = *interval;
    }
}

} // namespace

RunSettings RunSettings::read(const std::string* diagnosticSettings, const std::string* jobSettings,
                              const std::vector<std::string>& settingClasses,
                              std::uint32_t defaultResultPersistence,
                              const std::vector<std::string>& jobClasses) {
    RunSettings s;
    s.resultPersistence = defaultResultPersistence;
    if (diagnosticSettings != nullptr)
        readDiagnostic(s, instanceOf(*diagnosticSettings, "DiagnosticSettings", settingClasses));
    if (jobSettings != nullptr)
        readJob(s, instanceOf(*jobSettings, "JobSettings", jobClasses));
    return s;
}

RunSettings::Progress RunSettings::progressAfter(unsigned passes, unsigned failures,
                                                 ProfileClock::Micros elapsed) const {
    if (once())
        return {100, true};
    bool done = false;
    unsigned percent = 0;
    auto consider = [&](double fraction) {
        done = done || fraction >= 1.0;
        percent = std::max(percent, static_cast<unsigned>(std::clamp(fraction, 0.0, 1.0) * 100));
    };
    if (count)
        consider(static_cast<double>(passes) / *count);
    if (timer)
        consider(static_cast<double>(elapsed) / static_cast<double>(*timer));
    if (errorCount)
        consider(static_cast<double>(failures) / (static_cast<double>(*errorCount) + 1.0));
    return {done ? 100 : std::min(percent, 99u), done};
}

std::string RunSettings::embeddedText(const std::string& className) const {
    std::vector<std::string> loops;
    for (std::uint16_t v : loopControl)
        loops.push_back(std::to_string(v));
    EmbeddedInstanceWriter out(className.empty() ? "CIM_DiagnosticSettingData" : className);
    if (!loops.empty()) {
        out.array("LoopControl", "uint16", loops);
        out.array("LoopControlParameter", "string", loopControlParameter);
    }
    out.property("HaltOnError", "boolean", haltOnError ? "true" : "false")
        .property("QuickMode", "boolean", quickMode ? "true" : "false")
        .property("PercentOfTestCoverage", "uint8", std::to_string(percentOfTestCoverage))
        .property("NonDestructive", "boolean", nonDestructive ? "true" : "false")
        .property("ResultPersistence", "uint32", std::to_string(resultPersistence));
    return out.text();
}

} // namespace NQORVA20::profile
