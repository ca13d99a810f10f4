// The settings of a run read from the embedded instances a client passes: what each setting
// does, and what is refused before anything runs.
#include "profile/EmbeddedInstance.h"
#include "profile/RunSettings.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using NQORVA20::profile::EmbeddedInstance;
using NQORVA20::profile::EmbeddedInstanceError;
using NQORVA20::profile::ProfileClock;
using NQORVA20::profile::RunSettings;
using NQORVA20::profile::SettingsError;

const std::vector<std::string> accepted = {"CIM_DiagnosticSettingData", "ZORQ_NetDiagSettingData"};

std::string setting(const std::string& properties,
                    const std::string& className = "ZORQ_NetDiagSettingData") {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><INSTANCE CLASSNAME=\"" + className +
           "\"><QUALIFIER NAME=\"Description\" TYPE=\"string\"><VALUE>x</VALUE></QUALIFIER>" +
           properties + "</INSTANCE>";
}

std::string scalar(const std::string& name, const std::string& type, const std::string& value) {
    return "<PROPERTY NAME=\"" + name + "\" TYPE=\"" + type + "\"><VALUE>" + value +
           "</VALUE></PROPERTY>";
}

std::string loops(const std::string& controls, const std::string& parameters) {
    return "<PROPERTY.ARRAY NAME=\"LoopControl\" TYPE=\"uint16\"><VALUE.ARRAY>" + controls +
           "</VALUE.ARRAY></PROPERTY.ARRAY><PROPERTY.ARRAY NAME=\"LoopControlParameter\" "
           "TYPE=\"string\"><VALUE.ARRAY>" +
           parameters + "</VALUE.ARRAY></PROPERTY.ARRAY>";
}

RunSettings read(const std::string& diagnostic) {
    return RunSettings::read(&diagnostic, nullptr, accepted, 3600);
}

TEST(SettingsReadingTest, NoSettingsMeanOnePassAndTheServiceDefaults) {
    const RunSettings s = RunSettings::read(nullptr, nullptr, accepted, 3600);
    EXPECT_EQ(3600u, s.resultPersistence);
    EXPECT_TRUE(s.deleteOnCompletion);
    EXPECT_EQ(300 * ProfileClock::second, s.timeBeforeRemoval);
    EXPECT_TRUE(s.progressAfter(1, 0, 0).done);
    EXPECT_NE(std::string::npos, s.embeddedText("ZORQ_NetDiagSettingData")
                                     .find("<INSTANCE CLASSNAME=\"ZORQ_NetDiagSettingData\">"));
}

TEST(SettingsReadingTest, EverySettingIsReadAndLoopsEndAtTheirFirstCondition) {
    const RunSettings s = read(setting(loops("<VALUE>3</VALUE><VALUE>4</VALUE><VALUE>5</VALUE>",
                                             "<VALUE>10</VALUE><VALUE>60</VALUE><VALUE>2</VALUE>") +
                                       scalar("haltonerror", "boolean", "TRUE") +
                                       scalar("QuickMode", "boolean", "false") +
                                       scalar("PercentOfTestCoverage", "uint8", "40") +
                                       scalar("NonDestructive", "boolean", "true") +
                                       scalar("ResultPersistence", "uint32", "4294967295") +
                                       scalar("SomethingElse", "string", "ignored")));
    EXPECT_EQ(10u, *s.count);
    EXPECT_EQ(60 * ProfileClock::second, *s.timer);
    EXPECT_EQ(2u, *s.errorCount);
    EXPECT_TRUE(s.haltOnError);
    EXPECT_FALSE(s.quickMode);
    EXPECT_EQ(40u, s.percentOfTestCoverage);
    EXPECT_TRUE(s.nonDestructive);
    EXPECT_EQ(0xFFFFFFFFu, s.resultPersistence);
    EXPECT_FALSE(s.progressAfter(5, 1, 30 * ProfileClock::second).done);
    EXPECT_EQ(50u, s.progressAfter(5, 1, 30 * ProfileClock::second).percent);
    EXPECT_TRUE(s.progressAfter(10, 0, 0).done);                        // the count
    EXPECT_TRUE(s.progressAfter(2, 0, 60 * ProfileClock::second).done); // the timer
    EXPECT_TRUE(s.progressAfter(3, 2, 0).done);                         // the errors

    const RunSettings continuous = read(setting(loops("<VALUE>2</VALUE>", "<VALUE></VALUE>")));
    EXPECT_TRUE(continuous.continuous);
    EXPECT_FALSE(continuous.progressAfter(100000, 50000, 1000 * ProfileClock::second).done);

    const std::string job = "<INSTANCE CLASSNAME=\"CIM_JobSettingData\">" +
                            scalar("DeleteOnCompletion", "boolean", "FALSE") +
                            scalar("TimeBeforeRemoval", "datetime", "00000000000130.000000:000") +
                            "</INSTANCE>";
    const RunSettings jobSettings = RunSettings::read(nullptr, &job, accepted, 0);
    EXPECT_FALSE(jobSettings.deleteOnCompletion);
    EXPECT_EQ(90 * ProfileClock::second, jobSettings.timeBeforeRemoval);
}

TEST(SettingsReadingTest, ValuesThatDoNotReadAreRefusedNamingTheSetting) {
    struct Case {
        std::string text;
        const char* named;
    };
    for (const Case& c : {
             Case{setting(scalar("HaltOnError", "boolean", "yes")), "HaltOnError"},
             Case{setting(scalar("PercentOfTestCoverage", "uint8", "300")),
                  "PercentOfTestCoverage"},
             Case{setting(scalar("ResultPersistence", "uint32", "-1")), "ResultPersistence"},
             Case{setting(loops("<VALUE>3</VALUE>", "<VALUE>0</VALUE>")), "LoopControlParameter"},
             Case{setting(loops("<VALUE>3</VALUE><VALUE>4</VALUE>", "<VALUE>1</VALUE>")),
                  "LoopControlParameter"},
             Case{setting(loops("<VALUE>1</VALUE>", "<VALUE>x</VALUE>")), "LoopControl"},
             Case{setting(""), "CIM_JobSettingData"}, // checked as job settings below
             Case{setting("", "CIM_JobSettingData"), "CIM_DiagnosticSettingData"},
         }) {
        SCOPED_TRACE(c.text);
        try {
            if (std::string(c.named) == "CIM_JobSettingData")
                RunSettings::read(nullptr, &c.text, accepted, 0);
            else
                read(c.text);
            ADD_FAILURE() << "accepted";
        } catch (const SettingsError& e) {
            EXPECT_NE(std::string::npos, std::string(e.what()).find(c.named)) << e.what();
        }
    }
}

TEST(SettingsReadingTest, HostileOrMalformedInstancesAreRefusedWithoutExpansionOrFetch) {
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "<VALUE>";
    const std::string bomb = "<!DOCTYPE INSTANCE [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b "
                             "\"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">]><INSTANCE CLASSNAME=\"X\">"
                             "<PROPERTY NAME=\"P\"><VALUE>&b;</VALUE></PROPERTY></INSTANCE>";
    const std::string external = "<!DOCTYPE INSTANCE [<!ENTITY e SYSTEM \"/etc/passwd\">]>"
                                 "<INSTANCE CLASSNAME=\"X\"><PROPERTY NAME=\"P\"><VALUE>&e;"
                                 "</VALUE></PROPERTY></INSTANCE>";
    for (const std::string& text :
         {bomb, external, "<INSTANCE CLASSNAME=\"X\">" + deep, std::string("<CLASS NAME=\"X\"/>"),
          std::string("<INSTANCE CLASSNAME=\"X\"><PROPERTY NAME=\"P\"><VALUE>\xC3\x28</VALUE>"
                      "</PROPERTY></INSTANCE>"),
          std::string("<INSTANCE CLASSNAME=\"X\">") + scalar("P", "string", "1") +
              scalar("p", "string", "2") + "</INSTANCE>",
          std::string("<INSTANCE CLASSNAME=\"X\"><PROPERTY TYPE=\"string\"/></INSTANCE>"),
          std::string(), std::string(2 << 20, ' ')}) {
        try {
            EmbeddedInstance::parse(text);
            ADD_FAILURE() << "accepted: " << text.substr(0, 80);
        } catch (const EmbeddedInstanceError& e) {
            EXPECT_EQ(std::string::npos, std::string(e.what()).find("root:")) << e.what();
        }
    }
    // Character references, the predefined entities, non-ASCII text, nulls and arrays read.
    const EmbeddedInstance good = EmbeddedInstance::parse(
        "<INSTANCE CLASSNAME=\"X\">" + scalar("A", "string", "&lt;&#x41;&amp;\xC3\xA9&gt;") +
        "<PROPERTY NAME=\"B\" TYPE=\"string\"/><PROPERTY.ARRAY NAME=\"C\" TYPE=\"uint16\">"
        "<VALUE.ARRAY><VALUE>1</VALUE><VALUE>2</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>");
    EXPECT_EQ("X", good.className());
    EXPECT_EQ("<A&\xC3\xA9>", good.find("a")->values.at(0));
    EXPECT_TRUE(good.find("B")->null);
    EXPECT_EQ((std::vector<std::string>{"1", "2"}), good.find("C")->values);
    EXPECT_EQ(nullptr, good.find("D"));
}

} // namespace
