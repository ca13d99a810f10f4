// The diagnostic model's instance objects: their fixed defaults, which of them overwrite and
// which only fill gaps, and how the defaults come out once published.
#include "CoreTestSupport.h"

#include "diag/AvailableDiagnosticService.h"
#include "diag/DiagService.h"
#include "diag/DiagServiceCapabilitiesData.h"
#include "diag/DiagServiceSettingData.h"
#include "diag/DiagUser.h"
#include "diag/DiagnosticRecord.h"
#include "diag/UseOfLog.h"
#include "instance/InstanceRegistry.h"

#include <map>

using namespace coretest;
using namespace NQORVA20;

namespace {

using Props = std::map<std::string, std::string>;

Props props(InstanceImpl& i) {
    return Props(i.begin(), i.end());
}

class Service : public DiagService {
public:
    Service(std::string install, std::string system)
        : DiagService("Core_DiagService", "Core_DiagRecord", "aux", std::move(install),
                      std::move(system)) {}
    unsigned int runTest(InstanceImpl*, DiagnosticRecord*) override { return 0; }
};

TEST(InstanceObject, GetInsertsFindDoesNotAndNamesAreCaseSensitive) {
    DiagUser u;
    EXPECT_EQ(u.find("X"), u.end());
    EXPECT_EQ(u.get("X"), "");
    EXPECT_NE(u.find("X"), u.end());
    u["b"] = "lower";
    u["B"] = "upper";
    std::vector<std::string> order;
    for (auto& [name, value] : u)
        order.push_back(name);
    EXPECT_EQ(order, (std::vector<std::string>{"B", "X", "b"}));
}

TEST(InstanceObject, CopiesCarryPropertiesOnly) {
    DiagServiceSettingData original("CIM_DiagnosticSettingData");
    original.setObjectPath("somewhere");
    DiagServiceSettingData copy(original);
    EXPECT_EQ(copy.getClassName(), "");
    EXPECT_EQ(copy.getObjectPath(), "");
    EXPECT_EQ(props(copy), props(original));
    UseOfLog target("Keep");
    target.setObjectPath("kept");
    static_cast<InstanceImpl&>(target) = original;
    EXPECT_EQ(target.getClassName(), "Keep");
    EXPECT_EQ(target.getObjectPath(), "kept");
    EXPECT_EQ(props(target), props(original));
    InstanceImpl& same = target;
    static_cast<InstanceImpl&>(target) = same;
    EXPECT_EQ(props(target), props(original));
}

TEST(InstanceObject, PrintWritesNameTwoTabsValueAndAnEmptyLine) {
    DiagUser u;
    u["A"] = "1";
    u["B"] = "2";
    testing::internal::CaptureStdout();
    u.print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "A\t\t1\nB\t\t2\n\n");
    DiagUser none;
    testing::internal::CaptureStdout();
    none.print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n");
}

TEST(DiagModel, ServiceHoldsExactlyItsSixteenDefaultsAndInitOverwrites) {
    Service s("20260101000000.000000+000", "sys.example");
    EXPECT_EQ(props(s), (Props{{"InstallDate", "20260101000000.000000+000"},
                               {"OperationalStatus", "2"},
                               {"StatusDescriptions", "Status OK"},
                               {"Status", "OK"},
                               {"EnabledState", "2"},
                               {"OtherEnabledState", "Enabled"},
                               {"RequestedState", "5"},
                               {"EnabledDefault", "2"},
                               {"TimeOfLastStateChange", "0"},
                               {"SystemCreationClassName", "ZORQ_ComputerSystem"},
                               {"SystemName", "sys.example"},
                               {"CreationClassName", "Core_DiagService"},
                               {"PrimaryOwnerName", "Tarvek"},
                               {"PrimaryOwnerContact", "Tarvek"},
                               {"StartMode", "Automatic"},
                               {"Started", "1"}}));
    s["Started"] = "0";
    s["Name"] = "Mine";
    s.init();
    EXPECT_EQ(s["Started"], "1");
    EXPECT_EQ(s["Name"], "Mine");
    Service empty("", "");
    EXPECT_EQ(empty["InstallDate"], "");
    EXPECT_EQ(empty["SystemName"], "");
    EXPECT_EQ(props(empty).size(), 16u);
}

TEST(DiagModel, RecordDefaultsAndPassFailWriteOnlyTheirKeys) {
    DiagnosticRecord fresh("R");
    EXPECT_EQ(props(fresh), (Props{{"RecordFormat", ""},
                                   {"Locale", "en"},
                                   {"RecordType", "2"},
                                   {"LoopsFailed", "0"},
                                   {"LoopsPassed", "0"}}));
    DiagnosticRecord passed("R");
    passed.pass(0);
    EXPECT_EQ(passed["LoopsPassed"], "0");
    EXPECT_EQ(passed["ErrorCount"], "0");
    EXPECT_EQ(passed["RecordData"], "Test Passed");
    EXPECT_EQ(passed.find("ErrorCode"), passed.end());
    DiagnosticRecord failed("R");
    failed.fail(4294967295u, "", 0, "");
    EXPECT_EQ(failed["LoopsFailed"], "4294967295");
    ASSERT_NE(failed.find("ErrorCode"), failed.end());
    EXPECT_EQ(failed["ErrorCode"], "");
    EXPECT_EQ(failed["RecordData"], "");
    EXPECT_EQ(failed["LoopsPassed"], "0");
    DiagnosticRecord both("R");
    both.pass(3);
    both.fail(1, "E1", 2, "data, with comma");
    EXPECT_EQ(both["LoopsPassed"], "3");
    EXPECT_EQ(both["LoopsFailed"], "1");
    EXPECT_EQ(both["ErrorCode"], "E1");
    EXPECT_EQ(both["ErrorCount"], "2");
    EXPECT_EQ(both["RecordData"], "data, with comma");
}

TEST(DiagModel, SettingCapabilityAndAssociationDefaultsOnlyFillGaps) {
    DiagServiceSettingData settings("S");
    EXPECT_EQ(props(settings), (Props{{"SettingID", "DefaultSetting"},
                                      {"LogOptions", "2"},
                                      {"OtherLogOptionsDescriptions", ""},
                                      {"HaltOnError", "true"},
                                      {"QuickMode", "false"},
                                      {"PercentOfTestCoverage", "45"},
                                      {"LoopControlParameter", "0"},
                                      {"LoopControl", "2"},
                                      {"OtherLoopControlDescriptions", ""},
                                      {"ResultPersistence", "900"},
                                      {"VerbosityLevel", "3"}}));
    settings["VerbosityLevel"] = "1";
    settings.init();
    EXPECT_EQ(settings["VerbosityLevel"], "1");

    DiagServiceCapabilitiesData a("CapA"), b("CapB");
    EXPECT_EQ(props(a).size(), 10u);
    EXPECT_EQ(a["InstanceID"], "ACME:TestCapabilities");
    EXPECT_EQ(b["InstanceID"], "ACME:TestCapabilities");
    EXPECT_EQ(a["Caption"], "TestCapabilities");
    for (const char* d :
         {"OtherSupportedServiceModesDescriptions", "OtherSupportedLoopControlDescriptions",
          "OtherSupportedLogOptionsDescriptions", "OtherSupportedExecutionControlsDescriptions"})
        EXPECT_EQ(a[d], "0") << d;
    a["SupportedLogOptions"] = "2";
    a.init();
    EXPECT_EQ(a["SupportedLogOptions"], "2");

    AvailableDiagnosticService ads("A");
    EXPECT_EQ(props(ads), (Props{{"ServiceProvided", ""}, {"UserOfService", ""}}));
    UseOfLog use("U");
    EXPECT_EQ(props(use), (Props{{"Antecedent", "CIM_DiagnosicRecord"},
                                 {"Dependent", "CIM_DiagnosticService"}}));
    use["Antecedent"] = "mine";
    use.init();
    EXPECT_EQ(use["Antecedent"], "mine");
}

class PublishedDefaultsTest : public CoreTest {};

TEST_P(PublishedDefaultsTest, SettingDefaultsArePublishedThroughTheClassTypes) {
    auto* s = new DiagServiceSettingData("Core_SettingData");
    (*s)["InstanceID"] = unique("setting");
    InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), s);
    CMPIObjectPath* op = path("Core_SettingData", {{"InstanceID", (*s)["InstanceID"]}});
    CMPIInstance* inst = InstanceRegistry::Singleton()->GetCMPIInstance(broker(), op);
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(prop(inst, "PercentOfTestCoverage").value.uint8, 52); // first character of "45"
    EXPECT_EQ((*s)["PercentOfTestCoverage"], "45");
    EXPECT_EQ(prop(inst, "ResultPersistence").value.uint32, 900u);
    CMPIData logOptions = prop(inst, "LogOptions");
    ASSERT_EQ(logOptions.type, CMPI_uint16A);
    EXPECT_EQ(logOptions.value.array->ft->getSize(logOptions.value.array, nullptr), 1u);
    CMPIData other = prop(inst, "OtherLogOptionsDescriptions");
    EXPECT_EQ(other.value.array->ft->getSize(other.value.array, nullptr), 0u);
}

INSTANTIATE_TEST_SUITE_P(Dialects, PublishedDefaultsTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
