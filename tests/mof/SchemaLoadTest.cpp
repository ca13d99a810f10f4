// The full DMTF schema, as shipped in the shared test data, loads and keeps the facts the
// diagnostics model relies on.
#include "host/mof/ClassRepository.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <set>

using namespace diaghost;

namespace {

const char* const kSchema = DIAGCORE_SHARED_DIR "/schema/CIM241/CIM_Schema.mof";
const char* const kNs = "root/cimv2";

class SchemaLoadTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!std::filesystem::exists(kSchema)) {
            return;
        }
        repo = new ClassRepository;
        auto start = std::chrono::steady_clock::now();
        try {
            repo->loadFile(kSchema, kNs);
        } catch (const MofError& e) {
            loadError = e.what();
        }
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    static void TearDownTestSuite() {
        delete repo;
        repo = nullptr;
    }
    void SetUp() override {
        if (repo == nullptr) {
            GTEST_SKIP() << kSchema << " is not there";
        }
        ASSERT_EQ(loadError, "");
    }

    static const CimClass& cls(const std::string& name) {
        const CimClass* c = repo->findClass(kNs, name);
        if (c == nullptr) {
            throw std::runtime_error(name + " is not in the schema");
        }
        return *c;
    }

    static ClassRepository* repo;
    static std::string loadError;
    static double seconds;
};

ClassRepository* SchemaLoadTest::repo = nullptr;
std::string SchemaLoadTest::loadError;
double SchemaLoadTest::seconds = 0;

TEST_F(SchemaLoadTest, LoadsEveryClassWithoutErrorAndReportsTheTime) {
    std::cout << "schema load: " << repo->classCount(kNs) << " classes in " << seconds * 1000
              << " ms\n";
    RecordProperty("schema_load_ms", static_cast<int>(seconds * 1000));
    EXPECT_GT(repo->classCount(kNs), 1000u);
    EXPECT_NE(repo->findQualifier(kNs, "Key"), nullptr);
    EXPECT_EQ(repo->namespaces(), (std::vector<std::string>{kNs}));
}

TEST_F(SchemaLoadTest, DiagnosticServiceDescendsFromManagedElement) {
    std::vector<std::string> chain;
    for (const CimClass* c = &cls("CIM_DiagnosticService"); c != nullptr;
         c = c->superclass.empty() ? nullptr : &cls(c->superclass)) {
        chain.push_back(c->name);
    }
    EXPECT_EQ(chain, (std::vector<std::string>{"CIM_DiagnosticService", "CIM_Service",
                                               "CIM_EnabledLogicalElement", "CIM_LogicalElement",
                                               "CIM_ManagedSystemElement", "CIM_ManagedElement"}));
    EXPECT_TRUE(repo->isA(kNs, "CIM_DiagnosticService", "CIM_ManagedElement"));
    EXPECT_TRUE(cls("CIM_DiagnosticService").abstract);
    std::vector<std::string> below = repo->subclassNames(kNs, "CIM_ManagedElement");
    EXPECT_GT(below.size(), 500u);
    std::set<std::string> seen{"CIM_ManagedElement"};
    for (const std::string& name : below) {
        EXPECT_EQ(seen.count(cls(name).superclass), 1u) << name << " comes before its superclass";
        seen.insert(name);
    }
    EXPECT_EQ(seen.count("CIM_DiagnosticService"), 1u);
    EXPECT_EQ(seen.count("CIM_AvailableDiagnosticService"), 0u) << "an association";
}

TEST_F(SchemaLoadTest, DiagnosticServiceKeysAreTheServiceKeys) {
    std::vector<std::string> keys;
    for (const CimProperty& p : cls("CIM_DiagnosticService").properties) {
        if (p.key) {
            keys.push_back(p.name + "@" + p.originClass);
        }
    }
    // Inherited order: Name comes from the older class.
    EXPECT_EQ(keys, (std::vector<std::string>{
                        "Name@CIM_ManagedSystemElement", "SystemCreationClassName@CIM_Service",
                        "SystemName@CIM_Service", "CreationClassName@CIM_Service"}));
}

TEST_F(SchemaLoadTest, RunDiagnosticTakesThreeInputsAndReturnsTheJob) {
    const CimMethod* run = cls("CIM_DiagnosticService").findMethod("RunDiagnostic");
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(run->returnType, 160);
    std::vector<std::string> params;
    for (const CimParameter& p : run->parameters) {
        params.push_back(p.name + ":" + p.refClass + (p.in ? ":in" : "") + (p.out ? ":out" : ""));
        EXPECT_EQ(p.type, 0x1100) << p.name;
    }
    EXPECT_EQ(params, (std::vector<std::string>{"ManagedElement:CIM_ManagedElement:in",
                                                "DiagSetting:CIM_DiagnosticSetting:in",
                                                "JobSetting:CIM_JobSettingData:in",
                                                "Job:CIM_ConcreteJob:out"}));
    EXPECT_EQ(run->qualifiers.at("valuemap"), "0,1,2,3,4,5,..,0x1000,..,0x8000..");
}

TEST_F(SchemaLoadTest, AvailableDiagnosticServiceIsAnAssociationWithTwoReferenceKeys) {
    const CimClass& c = cls("CIM_AvailableDiagnosticService");
    EXPECT_TRUE(c.association);
    std::vector<std::string> keys;
    for (const CimProperty& p : c.properties) {
        if (p.key) {
            EXPECT_EQ(p.type, 0x1100) << p.name;
            keys.push_back(p.name + "->" + p.refClass);
        }
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"ServiceProvided->CIM_DiagnosticService",
                                              "UserOfService->CIM_ManagedElement"}));
}

TEST_F(SchemaLoadTest, DiagnosticSettingDataTypesFollowTheSchema) {
    const CimClass& c = cls("CIM_DiagnosticSettingData");
    EXPECT_EQ(c.findProperty("PercentOfTestCoverage")->type, 128);
    EXPECT_EQ(c.findProperty("PercentOfTestCoverage")->qualifiers.at("maxvalue"), "100");
    EXPECT_EQ(c.findProperty("LoopControl")->type, 0x2000 | 144);
    EXPECT_EQ(c.findProperty("LoopControlParameter")->type, 0x2000 | 0x1600);
    EXPECT_EQ(c.findProperty("NonDestructive")->defaultText, "false");
    EXPECT_TRUE(c.findProperty("InstanceID")->key) << "CIM_SettingData makes InstanceID a key";
    EXPECT_FALSE(cls("CIM_ManagedElement").findProperty("InstanceID")->key);
}

} // namespace
