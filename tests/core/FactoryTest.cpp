// The service factory hands fresh texts from the object manager to the provider's makeServices;
// the available-service factory ties a service to every enumerated user, numbered by EnumOrder.
#include "CoreTestSupport.h"
#include "FakeDispatcher.h"

#include "diag/DiagService.h"
#include "factory/AvailServiceFactory.h"
#include "factory/ServiceFactory.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

using namespace coretest;
using namespace NQORVA20;

namespace {

class Service : public DiagService {
public:
    Service(std::string name, std::string install, std::string system)
        : DiagService("Core_DiagService", "Core_DiagRecord", "", std::move(install),
                      std::move(system)) {
        (*this)["Name"] = std::move(name);
    }
    unsigned int runTest(InstanceImpl*, DiagnosticRecord*) override { return 0; }
};

class RecordingFactory : public ServiceFactory {
public:
    DiagService** makeServices(std::string dateTime, std::string systemName,
                               unsigned int& count) override {
        dateTimes.push_back(dateTime);
        systemNames.push_back(systemName);
        dateTime.clear(); // the caller's texts are copies
        if (writeCount)
            count = 1;
        auto** table = new DiagService*[1];
        table[0] = new Service("made", dateTimes.back(), systemNames.back());
        return table;
    }
    bool writeCount = true;
    std::vector<std::string> dateTimes, systemNames;
};

class FactoryTest : public CoreTest {
protected:
    CMPIInstance* newInstance(const std::string& cls,
                              const std::vector<std::pair<std::string, std::string>>& props) {
        CMPIInstance* inst = broker()->eft->newInstance(broker(), path(cls), nullptr);
        for (const auto& [name, value] : props)
            inst->ft->setProperty(inst, name.c_str(),
                                  reinterpret_cast<const CMPIValue*>(value.c_str()), CMPI_chars);
        return inst;
    }
    Service* registeredService() {
        auto* s = new Service(unique("Avail"), "", "sys");
        InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), s);
        return s;
    }
    // EnumOrder texts and users of the associations naming this service, in registry order.
    std::vector<std::pair<std::string, std::string>> associationsOf(Service* s) {
        std::vector<CMPIInstance*> all;
        InstanceRegistry::Singleton()->GetCMPIInstances(broker(), "Core_AvailableDiagService", all);
        std::vector<std::pair<std::string, std::string>> out;
        for (CMPIInstance* i : all) {
            CMPIData sp = prop(i, "ServiceProvided");
            if (sp.type != CMPI_ref || sp.value.ref == nullptr ||
                CMPIUtil::GetObjectPathString(sp.value.ref) != s->getObjectPath())
                continue;
            CMPIData user = prop(i, "UserOfService");
            EXPECT_EQ(user.type, CMPI_ref);
            if (user.type != CMPI_ref || user.value.ref == nullptr)
                continue;
            CMPIData name = user.value.ref->ft->getKey(user.value.ref, "Name", nullptr);
            out.emplace_back(std::to_string(prop(i, "EnumOrder").value.uint32), text(name));
            EXPECT_EQ(prop(i, "EstimatedDurationOfService").value.uint16, 3);
            EXPECT_EQ(prop(i, "EstimatedDurationQualifier").value.uint16, 0);
        }
        return out;
    }
};

TEST_P(FactoryTest, CreateServicesPassesFreshTimeAndSystemNameAndLeavesCountToTheProvider) {
    FakeDispatcher dispatcher(host());
    dispatcher.serve(
        "ZORQ_ComputerSystem",
        newInstance("ZORQ_ComputerSystem",
                    {{"CreationClassName", "ZORQ_ComputerSystem"}, {"Name", "first.example"}}));
    dispatcher.serve(
        "ZORQ_ComputerSystem",
        newInstance("ZORQ_ComputerSystem",
                    {{"CreationClassName", "ZORQ_ComputerSystem"}, {"Name", "second.example"}}));
    RecordingFactory factory;
    unsigned int count = 77;
    DiagService** made = factory.CreateServices(broker(), ctx(), count);
    EXPECT_EQ(count, 1u);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ((*made[0])["SystemName"], "first.example");
    EXPECT_EQ(factory.systemNames, (std::vector<std::string>{"first.example"}));
    delete made[0];
    delete[] made;

    factory.writeCount = false;
    count = 77;
    made = factory.CreateServices(broker(), ctx(), count);
    EXPECT_EQ(count, 77u);
    ASSERT_EQ(factory.dateTimes.size(), 2u);
    EXPECT_EQ(factory.dateTimes[0].size(), 25u);
    EXPECT_LE(factory.dateTimes[0].substr(0, 21), factory.dateTimes[1].substr(0, 21));
    delete made[0];
    delete[] made;
}

TEST_P(FactoryTest, UsersAreNumberedInEnumerationOrderFromFirstBySteps) {
    FakeDispatcher dispatcher(host());
    const std::string stem = unique("u");
    for (const char* n : {"x", "y", "z"})
        dispatcher.serve("Core_Element",
                         newInstance("Core_Element", {{"Name", stem + n}, {"DeviceID", "d"}}));
    Service* s = registeredService();
    AvailServiceFactory factory;
    factory.CreateAvailableServices(broker(), ctx(), s, "Core_Element", "Core_AvailableDiagService",
                                    10, 5);
    EXPECT_EQ(associationsOf(s), (std::vector<std::pair<std::string, std::string>>{
                                     {"10", stem + "x"}, {"15", stem + "y"}, {"20", stem + "z"}}));
}

TEST_P(FactoryTest, EnumOrderWrapsAtTwoToTheThirtyTwo) {
    FakeDispatcher dispatcher(host());
    const std::string stem = unique("w");
    for (const char* n : {"first", "second"})
        dispatcher.serve("Core_Element",
                         newInstance("Core_Element", {{"Name", stem + n}, {"DeviceID", "d"}}));
    Service* s = registeredService();
    AvailServiceFactory().CreateAvailableServices(broker(), ctx(), s, "Core_Element",
                                                  "Core_AvailableDiagService", 4294967295u, 1);
    // Wrapped to 0, the second user is listed before the first.
    EXPECT_EQ(associationsOf(s), (std::vector<std::pair<std::string, std::string>>{
                                     {"0", stem + "second"}, {"4294967295", stem + "first"}}));
}

TEST_P(FactoryTest, NoUsersRegisterNothingAndStepZeroRepeatsTheOrder) {
    FakeDispatcher dispatcher(host());
    Service* lonely = registeredService();
    AvailServiceFactory().CreateAvailableServices(broker(), ctx(), lonely, "Core_Other",
                                                  "Core_AvailableDiagService", 1, 1);
    EXPECT_TRUE(associationsOf(lonely).empty());
    EXPECT_EQ(dispatcher.enumerations, 1);

    const std::string stem = unique("z");
    for (const char* n : {"p", "q"})
        dispatcher.serve("Core_Element",
                         newInstance("Core_Element", {{"Name", stem + n}, {"DeviceID", "d"}}));
    Service* s = registeredService();
    AvailServiceFactory().CreateAvailableServices(broker(), ctx(), s, "Core_Element",
                                                  "Core_AvailableDiagService", 7, 0);
    auto got = associationsOf(s);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].first, "7");
    EXPECT_EQ(got[1].first, "7");
}

// A derived factory decides how users are found; the core calls it through the virtual slot.
TEST_P(FactoryTest, DerivedEnumerateUsersIsUsedAndMayReturnNothing) {
    struct NoUsers : AvailServiceFactory {
        CMPIEnumeration* EnumerateUsers(const CMPIBroker*, const CMPIContext*,
                                        std::string) override {
            ++calls;
            return nullptr;
        }
        int calls = 0;
    } factory;
    Service* s = registeredService();
    factory.CreateAvailableServices(broker(), ctx(), s, "Core_Element", "Core_AvailableDiagService",
                                    1, 1);
    EXPECT_EQ(factory.calls, 1);
    EXPECT_TRUE(associationsOf(s).empty());
}

INSTANTIATE_TEST_SUITE_P(Dialects, FactoryTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
