// The settings of a run read from the two embedded instances a client may pass: the defaults
// when it passes none, each setting read, and each value that does not read refused with the
// setting named, before anything runs.
#include "profile/RunSettings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using NQORVA20::profile::ProfileClock;
using NQORVA20::profile::RunSettings;
using NQORVA20::profile::SettingsError;

class RunSettingsTest : public ::testing::Test {
protected:
    const std::vector<std::string> accepted = {"CIM_DiagnosticSettingData", "ZORQ_NetDiagSetting"};
    static constexpr std::uint32_t servicePersistence = 3600;

    static std::string instance(const std::string& className, const std::string& properties) {
        return "<?xml version=\"1.0\" encoding=\"utf-8\"?><INSTANCE CLASSNAME=\"" + className +
               "\"><QUALIFIER NAME=\"Description\" TYPE=\"string\"><VALUE>d</VALUE></QUALIFIER>" +
               properties + "</INSTANCE>";
    }
    static std::string scalar(const std::string& name, const std::string& value) {
        return "<PROPERTY NAME=\"" + name + "\" TYPE=\"string\"><VALUE>" + value +
               "</VALUE></PROPERTY>";
    }
    static std::string array(const std::string& name, const std::string& entries) {
        return "<PROPERTY.ARRAY NAME=\"" + name + "\" TYPE=\"string\"><VALUE.ARRAY>" + entries +
               "</VALUE.ARRAY></PROPERTY.ARRAY>";
    }
    static std::string loops(const std::string& controls, const std::string& parameters) {
        return array("LoopControl", controls) + array("LoopControlParameter", parameters);
    }

    RunSettings diagnostic(const std::string& properties,
                           const std::string& className = "ZORQ_NetDiagSetting") const {
        const std::string text = instance(className, properties);
        return RunSettings::read(&text, nullptr, accepted, servicePersistence);
    }
    RunSettings job(const std::string& properties,
                    const std::string& className = "CIM_JobSettingData") const {
        const std::string text = instance(className, properties);
        return RunSettings::read(nullptr, &text, accepted, servicePersistence);
    }
    static std::string shown(const RunSettings::Progress& p) {
        return std::to_string(p.percent) + (p.done ? "% done" : "%");
    }
    // The message a read is refused with; a failure when it is accepted.
    template <typename Read>
    static std::string refusal(Read read) {
        try {
            read();
        } catch (const SettingsError& e) {
            return e.what();
        }
        ADD_FAILURE() << "accepted";
        return std::string();
    }
};

TEST_F(RunSettingsTest, NullArgumentsGiveOnePassAndTheDefaults) {
    const RunSettings s = RunSettings::read(nullptr, nullptr, accepted, servicePersistence);
    EXPECT_TRUE(s.once());
    EXPECT_TRUE(s.loopControl.empty());
    EXPECT_FALSE(s.haltOnError);
    EXPECT_FALSE(s.quickMode);
    EXPECT_EQ(100u, s.percentOfTestCoverage);
    EXPECT_FALSE(s.nonDestructive);
    EXPECT_EQ(servicePersistence, s.resultPersistence);
    EXPECT_TRUE(s.deleteOnCompletion);
    EXPECT_EQ(5 * 60 * ProfileClock::second, s.timeBeforeRemoval);
    EXPECT_EQ("100% done", shown(s.progressAfter(1, 0, 0)));
}

TEST_F(RunSettingsTest, ReadsEveryDiagnosticSetting) {
    const RunSettings s =
        diagnostic(loops("<VALUE>3</VALUE><VALUE>4</VALUE><VALUE>5</VALUE>",
                         "<VALUE>4294967295</VALUE><VALUE> 60\n</VALUE><VALUE>2</VALUE>") +
                       scalar("haltonerror", "TRUE") + scalar("QuickMode", " false ") +
                       scalar("PercentOfTestCoverage", "0") + scalar("NonDestructive", "True") +
                       scalar("ResultPersistence", "4294967295") +
                       scalar("OtherLoopControlDescriptions", "ignored") +
                       "<PROPERTY NAME=\"VerbosityLevel\" TYPE=\"uint16\"/>",
                   "zorq_netdiagsetting");
    EXPECT_FALSE(s.once());
    EXPECT_FALSE(s.continuous);
    EXPECT_EQ(4294967295u, s.count.value_or(0));
    EXPECT_EQ(60 * ProfileClock::second, s.timer.value_or(0));
    EXPECT_EQ(2u, s.errorCount.value_or(0));
    EXPECT_TRUE(s.haltOnError);
    EXPECT_FALSE(s.quickMode);
    EXPECT_EQ(0u, s.percentOfTestCoverage);
    EXPECT_TRUE(s.nonDestructive);
    EXPECT_EQ(0xFFFFFFFFu, s.resultPersistence);

    EXPECT_EQ(0u, diagnostic(scalar("ResultPersistence", "0")).resultPersistence);
    // A null setting keeps its default.
    EXPECT_EQ(
        servicePersistence,
        diagnostic("<PROPERTY NAME=\"ResultPersistence\" TYPE=\"uint32\"/>").resultPersistence);
}

TEST_F(RunSettingsTest, LoopsEndAtTheFirstConditionMet) {
    const RunSettings s = diagnostic(loops("<VALUE>3</VALUE><VALUE>4</VALUE><VALUE>5</VALUE>",
                                           "<VALUE>10</VALUE><VALUE>60</VALUE><VALUE>2</VALUE>"));
    const ProfileClock::Micros half = 30 * ProfileClock::second;
    EXPECT_EQ("50%", shown(s.progressAfter(5, 1, half)));
    EXPECT_TRUE(s.progressAfter(10, 0, 0).done);
    EXPECT_TRUE(s.progressAfter(1, 0, 2 * half).done);
    // Errors end the loop once they exceed the count.
    EXPECT_FALSE(s.progressAfter(2, 2, 0).done);
    EXPECT_TRUE(s.progressAfter(3, 3, 0).done);
    EXPECT_TRUE(
        diagnostic(loops("<VALUE>5</VALUE>", "<VALUE>0</VALUE>")).progressAfter(1, 1, 0).done);
    EXPECT_EQ("0%", shown(s.progressAfter(0, 0, -half))); // the clock set back

    // Continuous ignores its parameter, null or absent; an empty LoopControl is one pass.
    for (const std::string& continuous :
         {loops("<VALUE>2</VALUE>", "<VALUE>whatever</VALUE>"),
          loops("<VALUE>2</VALUE>", "<VALUE.NULL/>"), array("LoopControl", "<VALUE>2</VALUE>")}) {
        const RunSettings c = diagnostic(continuous);
        EXPECT_TRUE(c.continuous);
        EXPECT_EQ(1u, c.loopControlParameter.size());
        EXPECT_FALSE(c.progressAfter(100000, 50000, 1000 * ProfileClock::second).done);
    }
    EXPECT_TRUE(diagnostic(loops("", "")).once());
    EXPECT_TRUE(diagnostic(array("LoopControlParameter", "<VALUE>5</VALUE>")).once());
}

TEST_F(RunSettingsTest, SettingsWrittenForTheRecordReadBackTheSame) {
    const RunSettings s =
        diagnostic(loops("<VALUE>2</VALUE><VALUE>4</VALUE>", "<VALUE>x&#13;&#10;&#9;y</VALUE>"
                                                             "<VALUE>9</VALUE>") +
                   scalar("QuickMode", "true") + scalar("PercentOfTestCoverage", "40"));
    const std::string text = s.embeddedText("ZORQ_NetDiagSetting");
    const RunSettings again = RunSettings::read(&text, nullptr, accepted, 0);
    EXPECT_EQ(s.loopControl, again.loopControl);
    EXPECT_EQ(s.loopControlParameter, again.loopControlParameter);
    EXPECT_EQ(s.timer, again.timer);
    EXPECT_TRUE(again.continuous);
    EXPECT_TRUE(again.quickMode);
    EXPECT_EQ(40u, again.percentOfTestCoverage);
    EXPECT_EQ(servicePersistence, again.resultPersistence);
}

TEST_F(RunSettingsTest, ReadsTheJobSettings) {
    const RunSettings s = job(scalar("DeleteOnCompletion", "FALSE") +
                              scalar("TimeBeforeRemoval", "00000001000130.000000:000"));
    EXPECT_FALSE(s.deleteOnCompletion);
    EXPECT_EQ((86400 + 90) * ProfileClock::second, s.timeBeforeRemoval);
    EXPECT_TRUE(s.once()); // the diagnostic settings keep their defaults
    EXPECT_EQ(servicePersistence, s.resultPersistence);

    const std::string sub = instance("ZORQ_JobSetting", scalar("DeleteOnCompletion", "false"));
    EXPECT_FALSE(
        RunSettings::read(nullptr, &sub, accepted, 0, {"CIM_JobSettingData", "ZORQ_JobSetting"})
            .deleteOnCompletion);
    EXPECT_NE(std::string::npos,
              refusal([&] { job(scalar("DeleteOnCompletion", "false"), "ZORQ_JobSetting"); })
                  .find("JobSettings is an instance of \"ZORQ_JobSetting\", not of "
                        "CIM_JobSettingData"));
}

TEST_F(RunSettingsTest, ValuesThatDoNotReadAreRefusedNamingTheSetting) {
    struct Case {
        std::string properties;
        const char* named;
    };
    for (const Case& c : {
             Case{scalar("HaltOnError", "yes"), "HaltOnError is not TRUE or FALSE: \"yes\""},
             Case{scalar("QuickMode", "1"), "QuickMode"},
             Case{scalar("NonDestructive", ""), "NonDestructive"},
             Case{array("HaltOnError", "<VALUE>true</VALUE>"), "HaltOnError must be a single"},
             Case{scalar("PercentOfTestCoverage", "300"), "PercentOfTestCoverage is out of range"},
             Case{scalar("PercentOfTestCoverage", "101"), "PercentOfTestCoverage"},
             Case{scalar("PercentOfTestCoverage", "-1"), "PercentOfTestCoverage"},
             Case{scalar("ResultPersistence", "4294967296"), "ResultPersistence is out of range"},
             Case{scalar("ResultPersistence", "0x10"), "ResultPersistence"},
             Case{scalar("LoopControl", "3"), "LoopControl must be an array"},
             Case{loops("<VALUE>0</VALUE>", "<VALUE>1</VALUE>"), "LoopControl value 0"},
             Case{loops("<VALUE>1</VALUE>", "<VALUE>1</VALUE>"), "LoopControl value 1"},
             Case{loops("<VALUE>6</VALUE>", "<VALUE>1</VALUE>"), "LoopControl value 6"},
             Case{loops("<VALUE>x</VALUE>", "<VALUE>1</VALUE>"), "LoopControl is not"},
             Case{loops("<VALUE.NULL/>", "<VALUE>1</VALUE>"), "LoopControl entry 0 is null"},
             Case{loops("<VALUE>3</VALUE><VALUE>3</VALUE>", "<VALUE>1</VALUE><VALUE>2</VALUE>"),
                  "LoopControl value 3 is given twice"},
             Case{loops("<VALUE>3</VALUE><VALUE>4</VALUE>", "<VALUE>1</VALUE>"),
                  "LoopControlParameter has 1 entries for 2"},
             Case{loops("<VALUE>2</VALUE>", "<VALUE>1</VALUE><VALUE>1</VALUE>"),
                  "LoopControlParameter has 2"},
             Case{array("LoopControl", "<VALUE>3</VALUE>"), "LoopControlParameter has 0"},
             Case{loops("<VALUE>3</VALUE>", "<VALUE>0</VALUE>"),
                  "LoopControlParameter of a count must be positive"},
             Case{loops("<VALUE>3</VALUE>", "<VALUE.NULL/>"), "LoopControlParameter"},
             Case{loops("<VALUE>4</VALUE>", "<VALUE>1 minute</VALUE>"), "LoopControlParameter"},
             Case{loops("<VALUE>4</VALUE>", "<VALUE>0</VALUE>"), "of a timer must be positive"},
             Case{loops("<VALUE>5</VALUE>", "<VALUE>4294967296</VALUE>"),
                  "LoopControlParameter is out of range"},
         }) {
        SCOPED_TRACE(c.properties);
        const std::string message = refusal([&] { diagnostic(c.properties); });
        EXPECT_NE(std::string::npos, message.find(c.named)) << message;
    }
    for (const Case& c : {
             Case{scalar("DeleteOnCompletion", "maybe"), "DeleteOnCompletion"},
             Case{scalar("TimeBeforeRemoval", "5 minutes"), "TimeBeforeRemoval"},
             Case{scalar("TimeBeforeRemoval", "00000000240000.000000:000"), "TimeBeforeRemoval"},
             Case{scalar("TimeBeforeRemoval", "20240101000000.000000+000"), "TimeBeforeRemoval"},
         }) {
        SCOPED_TRACE(c.properties);
        const std::string message = refusal([&] { job(c.properties); });
        EXPECT_NE(std::string::npos, message.find(c.named)) << message;
    }
}

TEST_F(RunSettingsTest, AValueIsQuotedShortInItsRefusal) {
    const std::string message =
        refusal([&] { diagnostic(scalar("QuickMode", std::string(100000, 'y'))); });
    EXPECT_LT(message.size(), 200u) << message;
    EXPECT_NE(std::string::npos, message.find("yyy...\"")) << message;
}

TEST_F(RunSettingsTest, InstancesOfOtherClassesOrUnreadableTextAreRefused) {
    EXPECT_NE(std::string::npos,
              refusal([&] { diagnostic("", "CIM_JobSettingData"); })
                  .find("DiagnosticSettings is an instance of \"CIM_JobSettingData\", not of "
                        "CIM_DiagnosticSettingData, ZORQ_NetDiagSetting"));
    EXPECT_NE(std::string::npos, refusal([&] {
                                     job("", "CIM_DiagnosticSettingData");
                                 }).find("JobSettings is an instance of"));
    const std::string text = instance("CIM_DiagnosticSettingData", "");
    EXPECT_NE(std::string::npos,
              refusal([&] { RunSettings::read(&text, nullptr, {}, 0); }).find("not of no class"));
    const std::string broken = "<INSTANCE CLASSNAME=\"CIM_DiagnosticSettingData\">";
    EXPECT_NE(std::string::npos, refusal([&] {
                                     RunSettings::read(&broken, nullptr, accepted, 0);
                                 }).find("DiagnosticSettings: the embedded instance is not"));
    EXPECT_NE(std::string::npos, refusal([&] {
                                     RunSettings::read(nullptr, &broken, accepted, 0);
                                 }).find("JobSettings: the embedded instance is not"));
}

} // namespace
