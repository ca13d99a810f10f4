// The key order of instance paths under the sfcb rendering, checked where sfcb itself gets its
// classes: the ZORQ classes staged over the DMTF schema. The orders expected are the ones sfcb
// was seen to give. Skipped when the shared schema is not there.
#include "MofAgreementFiles.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"
#include "host/mof/ClassRepository.h"

#include <cmpimacs.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>

using namespace diaghost;
using namespace mofagreement;

namespace {

const std::string kZorqMof = DIAGCORE_SOURCE_DIR "/mof/zorq/zorq.mof";

using Names = std::vector<std::string>;

// The key names of the path an sfcb-rendering broker gives an instance of the class whose
// keys the provider set in alphabetical order.
Names instancePathKeys(const ClassRepository& repo, const char* className) {
    LogSink log;
    Broker broker(repo, log, PathDialect::Sfcb);
    CallScope scope(broker);
    const CMPIBroker* mb = broker.cmpi();
    CMPIInstance* inst =
        CMNewInstance(mb, CMNewObjectPath(mb, kCimv2, className, nullptr), nullptr);
    if (inst == nullptr) {
        return {"<no instance>"};
    }
    const CimClass* cls = repo.findClass(kCimv2, className);
    Names names;
    for (const CimProperty& p : cls->properties) {
        if (p.key) {
            names.push_back(p.name);
        }
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        CMSetProperty(inst, name.c_str(), "x", CMPI_chars);
    }
    CMPIObjectPath* path = CMGetObjectPath(inst, nullptr);
    Names order;
    for (CMPICount i = 0; path && i < CMGetKeyCount(path, nullptr); ++i) {
        CMPIString* name = nullptr;
        CMGetKeyAt(path, i, &name, nullptr);
        order.push_back(CMGetCharPtr(name));
    }
    return order;
}

class SfcbKeyOrderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!std::filesystem::exists(kDmtfSchema)) {
            return;
        }
        staged = std::make_unique<ClassRepository>();
        try {
            staged->loadFile(kDmtfSchema, kCimv2);
            staged->loadFile(kZorqMof, kCimv2);
        } catch (const MofError& e) {
            loadError = e.what();
        }
    }
    static void TearDownTestSuite() { staged.reset(); }
    void SetUp() override {
        if (staged == nullptr) {
            GTEST_SKIP() << kDmtfSchema << " is not there";
        }
        ASSERT_EQ(loadError, "");
    }

    static std::unique_ptr<ClassRepository> staged;
    static std::string loadError;
};

std::unique_ptr<ClassRepository> SfcbKeyOrderTest::staged;
std::string SfcbKeyOrderTest::loadError;

TEST_F(SfcbKeyOrderTest, ServicesAndNetworkPortsListTheirKeysAsSfcbDoes) {
    const Names services{"SystemCreationClassName", "SystemName", "CreationClassName", "Name"};
    EXPECT_EQ(instancePathKeys(*staged, "ZORQ_NetDiagService"), services);
    EXPECT_EQ(instancePathKeys(*staged, "ZORQ_FSDiagService"), services);
    EXPECT_EQ(instancePathKeys(*staged, "ZORQ_NetworkPort"),
              (Names{"DeviceID", "CreationClassName", "SystemName", "SystemCreationClassName"}));
}

TEST(SfcbKeyOrderOwnMofTest, ItsNetworkPortsListTheirKeysAsSfcbDoes) {
    ClassRepository own;
    own.loadFile(kOwnMof, kCimv2);
    EXPECT_EQ(instancePathKeys(own, "ZORQ_NetworkPort"),
              (Names{"DeviceID", "CreationClassName", "SystemName", "SystemCreationClassName"}));
}

} // namespace
