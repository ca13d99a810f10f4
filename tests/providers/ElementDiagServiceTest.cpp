// The frame every ZORQ test runs in: which elements reach the family's test, and that nothing a
// test throws leaves runTest.
#include "providers/common/ElementDiagService.h"
#include "providers/common/TestOutcome.h"

#include "diag/DiagUser.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace NQORVA20;
using namespace NQORVA20::providers;

class ScriptedService : public ElementDiagService {
public:
    explicit ScriptedService(const ElementCatalog& catalog)
        : ElementDiagService("ZORQ_XDiagService", "ZORQ_XDiagRecord", "", "vm", catalog,
                             {"X", "x", "x test", "X_NOT_PUBLISHED", "X_ABORTED"}) {}
    int throwWhat = 0; // 0: nothing, 1: std::runtime_error, 2: an int
    std::size_t testedIndex = 99;

protected:
    unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) override {
        testedIndex = index;
        if (throwWhat == 1)
            throw std::runtime_error("disk on fire");
        if (throwWhat == 2)
            throw 42;
        failWith(record, {"X_ONE", "X_TWO"}, "two checks failed");
        return TestFailed;
    }
    std::string elementName(std::size_t index) const override {
        return "element" + std::to_string(index);
    }
};

class ElementDiagServiceTest : public ::testing::Test {
protected:
    ElementDiagServiceTest() {
        catalog.add({{"SystemName", "vm.example"}, {"DeviceID", "a"}});
        catalog.add({{"SystemName", "vm.example"}, {"DeviceID", "b"}});
    }
    // Fills the element in place: a copy of an instance object would drop its class name.
    static void fill(DiagUser& user, const std::string& className, const std::string& system,
                     const std::string& id) {
        user.setClassName(className);
        if (!system.empty())
            user["SystemName"] = system;
        user["DeviceID"] = id;
    }

    ElementCatalog catalog{"ZORQ_X", {"SystemName", "DeviceID"}, {"SystemName"}};
    ScriptedService service{catalog};
    DiagnosticRecord record{"ZORQ_XDiagRecord"};
};

TEST_F(ElementDiagServiceTest, PublishedElementReachesTheTestWithFoldedCaseWhereAllowed) {
    DiagUser user;
    fill(user, "zorq_x", "VM.Example", "b");
    EXPECT_EQ(TestFailed, service.runTest(&user, &record));
    EXPECT_EQ(1u, service.testedIndex);
    EXPECT_EQ("element1", user["DeviceID"]) << "records name the element this way";
    EXPECT_EQ("X_ONE,X_TWO", record["ErrorCode"]);
    EXPECT_EQ("1,1", record["ErrorCount"]) << "one count per code";
}

TEST_F(ElementDiagServiceTest, AnythingElseIsRefusedBeforeTheTestRuns) {
    struct Case {
        const char* className;
        const char* system; // empty: no SystemName binding
        const char* id;
        bool extraKey;
        const char* why;
    } cases[] = {
        {"ZORQ_X", "vm.example", "A", false, "no ZORQ_X published"},
        {"ZORQ_Y", "vm.example", "a", false, "of class ZORQ_Y"},
        {"ZORQ_X", "other", "a", false, "no ZORQ_X published"},
        {"ZORQ_X", "vm.example", "../a", false, "DeviceID=\"../a\""},
        {"", "vm.example", "a", false, "names no class"},
        {"ZORQ_X", "vm.example", "a", true, "Other, which is not a key"},
        {"ZORQ_X", "", "a", false, "lacks the key SystemName"},
    };
    for (const Case& c : cases) {
        DiagUser user;
        fill(user, c.className, c.system, c.id);
        if (c.extraKey)
            user["Other"] = "1";
        DiagnosticRecord fresh("ZORQ_XDiagRecord");
        EXPECT_EQ(TestElementRefused, service.runTest(&user, &fresh)) << c.className << c.id;
        EXPECT_EQ("X_NOT_PUBLISHED", fresh["ErrorCode"]);
        EXPECT_EQ(0u, fresh["RecordData"].find("Refused: ")) << fresh["RecordData"];
        EXPECT_NE(std::string::npos, fresh["RecordData"].find(c.why)) << fresh["RecordData"];
    }
    EXPECT_EQ(TestElementRefused, service.runTest(nullptr, &record));
    EXPECT_EQ(99u, service.testedIndex) << "the test never ran";
}

TEST_F(ElementDiagServiceTest, WhateverTheTestThrowsBecomesATestThatCouldNotRun) {
    DiagUser user;
    fill(user, "ZORQ_X", "vm.example", "a");
    service.throwWhat = 1;
    EXPECT_EQ(TestNotRun, service.runTest(&user, &record));
    EXPECT_EQ("X_ABORTED", record["ErrorCode"]);
    EXPECT_EQ("The test stopped: disk on fire", record["RecordData"]);
    service.throwWhat = 2;
    fill(user, "ZORQ_X", "vm.example", "a"); // the run renamed DeviceID for its record
    EXPECT_EQ(TestNotRun, service.runTest(&user, &record));
    EXPECT_EQ("The test stopped on an unknown error", record["RecordData"]);
    EXPECT_EQ(TestNotRun, service.runTest(&user, nullptr));
}

} // namespace
