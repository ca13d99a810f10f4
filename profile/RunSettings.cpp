#include "profile/RunSettings.h"

#include "profile/EmbeddedInstance.h"
#include "profile/EmbeddedInstanceWriter.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace NQORVA20::profile {

namespace {

using Property = EmbeddedInstance::Property;

[[noreturn]] void refuse(const std::string& property, const std::string& why) {
    throw SettingsError(property + " " + why);
}

bool sameName(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::uint64_t unsignedValue(const std::string& property, const std::string& text,
                            std::uint64_t max) {
    if (text.empty() || text.size() > 20 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        refuse(property, "is not an unsigned number: \"" + text + "\"");
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
    if (errno == ERANGE || value > max)
        refuse(property, "is out of range: " + text);
    return value;
}

bool booleanValue(const std::string& property, const std::string& text) {
    if (sameName(text, "true"))
        return true;
    if (sameName(text, "false"))
        return false;
    refuse(property, "is not TRUE or FALSE: \"" + text + "\"");
}

const Property* scalar(const EmbeddedInstance& instance, const char* name) {
    const Property* p = instance.find(name);
    if (p == nullptr || p->null)
        return nullptr;
    if (p->array || p->values.size() != 1)
        refuse(name, "must be a single value");
    return p;
}

const Property* arrayOf(const EmbeddedInstance& instance, const char* name) {
    const Property* p = instance.find(name);
    if (p == nullptr || p->null)
        return nullptr;
    if (!p->array)
        refuse(name, "must be an array");
    return p;
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
    throw SettingsError(std::string(argument) + " is an instance of " + instance.className() +
                        ", not of " + classes.front());
}

void readDiagnostic(RunSettings& s, const EmbeddedInstance& in) {
    if (const Property* p = arrayOf(in, "LoopControl"))
        for (const std::string& v : p->values)
            s.loopControl.push_back(
                static_cast<std::uint16_t>(unsignedValue("LoopControl", v, 65535)));
    if (const Property* p = arrayOf(in, "LoopControlParameter"))
        s.loopControlParameter = p->values;
    if (!s.loopControl.empty() && s.loopControlParameter.size() != s.loopControl.size() &&
        !(s.loopControl.size() == 1 && s.loopControl[0] == 2 && s.loopControlParameter.empty()))
        refuse("LoopControlParameter", "must have one entry for each LoopControl value");
    for (std::size_t i = 0; i < s.loopControl.size(); ++i) {
        const std::string parameter =
            i < s.loopControlParameter.size() ? s.loopControlParameter[i] : std::string();
        switch (s.loopControl[i]) {
        case 2:
            s.continuous = true;
            break;
        case 3:
            s.count =
                static_cast<unsigned>(unsignedValue("LoopControlParameter", parameter, 1u << 30));
            if (*s.count == 0)
                refuse("LoopControlParameter", "of a count must be positive");
            break;
        case 4:
            s.timer = static_cast<ProfileClock::Micros>(
                          unsignedValue("LoopControlParameter", parameter, 365u * 86400u)) *
                      ProfileClock::second;
            if (*s.timer == 0)
                refuse("LoopControlParameter", "of a timer must be positive");
            break;
        case 5:
            s.errorCount =
                static_cast<unsigned>(unsignedValue("LoopControlParameter", parameter, 1u << 30));
            if (*s.errorCount == 0)
                refuse("LoopControlParameter", "of an error count must be positive");
            break;
        default:
            refuse("LoopControl", "value " + std::to_string(s.loopControl[i]) +
                                      " is not served (2, 3, 4 and 5 are)");
        }
    }
    if (const Property* p = scalar(in, "HaltOnError"))
        s.haltOnError = booleanValue("HaltOnError", p->values[0]);
    if (const Property* p = scalar(in, "QuickMode"))
        s.quickMode = booleanValue("QuickMode", p->values[0]);
    if (const Property* p = scalar(in, "NonDestructive"))
        s.nonDestructive = booleanValue("NonDestructive", p->values[0]);
    if (const Property* p = scalar(in, "PercentOfTestCoverage"))
        s.percentOfTestCoverage =
            static_cast<unsigned>(unsignedValue("PercentOfTestCoverage", p->values[0], 100));
    if (const Property* p = scalar(in, "ResultPersistence"))
        s.resultPersistence = static_cast<std::uint32_t>(
            unsignedValue("ResultPersistence", p->values[0], 0xFFFFFFFFu));
}

void readJob(RunSettings& s, const EmbeddedInstance& in) {
    if (const Property* p = scalar(in, "DeleteOnCompletion"))
        s.deleteOnCompletion = booleanValue("DeleteOnCompletion", p->values[0]);
    if (const Property* p = scalar(in, "TimeBeforeRemoval")) {
        const std::optional<ProfileClock::Micros> interval =
            ProfileClock::parseInterval(p->values[0]);
        if (!interval)
            refuse("TimeBeforeRemoval", "is not a CIM interval: \"" + p->values[0] + "\"");
        s.timeBeforeRemoval = *interval;
    }
}

} // namespace

RunSettings RunSettings::read(const std::string* diagnosticSettings, const std::string* jobSettings,
                              const std::vector<std::string>& settingClasses,
                              std::uint32_t defaultResultPersistence) {
    RunSettings s;
    s.resultPersistence = defaultResultPersistence;
    if (diagnosticSettings != nullptr)
        readDiagnostic(s, instanceOf(*diagnosticSettings, "DiagnosticSettings", settingClasses));
    if (jobSettings != nullptr)
        readJob(s, instanceOf(*jobSettings, "JobSettings", {"CIM_JobSettingData"}));
    return s;
}

RunSettings::Progress RunSettings::progressAfter(unsigned passes, unsigned failures,
                                                 ProfileClock::Micros elapsed) const {
    if (!continuous && !count && !timer && !errorCount)
        return {100, true};
    bool done = false;
    unsigned percent = 0;
    auto consider = [&](double fraction) {
        done = done || fraction >= 1.0;
        percent = std::max(percent, static_cast<unsigned>(std::min(fraction, 1.0) * 100));
    };
    if (count)
        consider(static_cast<double>(passes) / *count);
    if (timer)
        consider(static_cast<double>(elapsed) / static_cast<double>(*timer));
    if (errorCount)
        consider(static_cast<double>(failures) / *errorCount);
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
