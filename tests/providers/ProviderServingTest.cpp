// What the three provider libraries publish once the object manager starts them: the computer
// system, each family's elements, services, settings, capabilities, logs and associations, and
// how they answer the object manager's cleanup offers.
#include "ProviderTestSupport.h"

#include "host/broker/Broker.h"
#include "host/mof/ClassRepository.h"
#include "host/providers/ProviderManager.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <set>

namespace {

using namespace zorqtest;

std::vector<std::string> column(const std::vector<Properties>& rows, const std::string& name) {
    std::vector<std::string> values;
    for (const Properties& row : rows)
        values.push_back(row.count(name) ? row.at(name) : "<absent>");
    return values;
}

std::vector<std::string> sorted(std::vector<std::string> values) {
    std::sort(values.begin(), values.end());
    return values;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

struct Family {
    const char* service;
    const char* element;
    const char* available;
    const char* setting;
    const char* capabilities;
    const char* log;
    const char* useOfLog;
    std::vector<std::string> serviceNames; // sorted
    const char* firstService;              // the one the factory makes first
};

const Family families[] = {
    {"ZORQ_FSDiagService",
     "ZORQ_LocalFileSystem",
     "ZORQ_FSAvailableDiagService",
     "ZORQ_FSDiagSettingData",
     "ZORQ_FSDiagCapabilities",
     "ZORQ_FSDiagLog",
     "ZORQ_FSUseOfLog",
     {"FileSystemHealth", "FileSystemWriteProbe"},
     "FileSystemHealth"},
    {"ZORQ_NetDiagService",
     "ZORQ_NetworkPort",
     "ZORQ_NetAvailableDiagService",
     "ZORQ_NetDiagSettingData",
     "ZORQ_NetDiagCapabilities",
     "ZORQ_NetDiagLog",
     "ZORQ_NetUseOfLog",
     {"NetworkPortErrors", "NetworkPortLink"},
     "NetworkPortLink"},
};

class ProviderServingTest : public ::testing::Test {
protected:
    Host& host = sharedHost();
    FakeSystem& fake = FakeSystem::instance();
};

TEST_F(ProviderServingTest, ComputerSystemIsThisMachineByItsFullyQualifiedName) {
    auto systems = enumerate(host, "ZORQ_ComputerSystem");
    ASSERT_EQ(1u, systems.size());
    EXPECT_EQ(expectedSystemName(), systems[0]["Name"]);
    EXPECT_EQ("ZORQ_ComputerSystem", systems[0]["CreationClassName"]);
    EXPECT_EQ("IP", systems[0]["NameFormat"]);
    EXPECT_EQ(expectedSystemName(), systems[0]["ElementName"]);

    auto byPath = host.getInstance(
        pathText("ZORQ_ComputerSystem",
                 {{"CreationClassName", "ZORQ_ComputerSystem"}, {"Name", expectedSystemName()}}));
    ASSERT_TRUE(byPath.ok()) << byPath.status.message;
    EXPECT_EQ(expectedSystemName(), host.propertyText(byPath.instance(), "Name"));
}

TEST_F(ProviderServingTest, EachFamilyServesTwoServicesHostedOnTheComputerSystem) {
    for (const Family& family : families) {
        auto result = host.enumerateInstances("root/cimv2", family.service);
        ASSERT_TRUE(result.ok()) << family.service << ": " << result.status.message;
        ASSERT_EQ(2u, result.instances().size()) << family.service;
        std::vector<std::string> names;
        for (const CMPIInstance* service : result.instances()) {
            Properties p = propertiesOf(host, service);
            names.push_back(p["Name"]);
            EXPECT_EQ(expectedSystemName(), p["SystemName"]);
            EXPECT_EQ("ZORQ_ComputerSystem", p["SystemCreationClassName"]);
            EXPECT_EQ(family.service, p["CreationClassName"]);
            EXPECT_FALSE(p["Caption"].empty());
            EXPECT_FALSE(p["Description"].empty());
            EXPECT_EQ(p["Name"], p["ElementName"]);

            // The same service by its own path.
            auto again = host.getInstance(service->ft->getObjectPath(service, nullptr));
            ASSERT_TRUE(again.ok()) << again.status.message;
            EXPECT_EQ(p["Name"], host.propertyText(again.instance(), "Name"));
        }
        EXPECT_EQ(family.serviceNames, sorted(names));
    }
}

TEST_F(ProviderServingTest, ElementsAreTheLocalMountsAndTheInterfacesOfTheTables) {
    auto fileSystems = enumerate(host, "ZORQ_LocalFileSystem");
    EXPECT_EQ(sorted({fake.mountPoint("ro"), fake.mountPoint("rw"), fake.mountPoint("vanishing"),
                      fake.mountPoint("with space")}),
              sorted(column(fileSystems, "Name")));
    for (Properties& fs : fileSystems) {
        EXPECT_EQ(expectedSystemName(), fs["CSName"]);
        EXPECT_EQ(fs["Name"], fs["MountPoint"]);
        EXPECT_EQ(fs["Name"] == fake.mountPoint("ro") ? "true" : "false", fs["ReadOnly"])
            << fs["Name"];
        if (fs["Name"] == fake.mountPoint("with space")) {
            EXPECT_EQ("tmpfs", fs["FileSystemType"]);
            EXPECT_EQ("tmpfs", fs["DeviceName"]);
            EXPECT_EQ("rw,nosuid,nodev", fs["MountOptions"]);
            EXPECT_EQ("3", fs["PersistenceType"]);
        }
    }

    auto ports = enumerate(host, "ZORQ_NetworkPort");
    EXPECT_EQ((std::vector<std::string>{"eth0", "eth1", "eth2", "gone0", "lo", "nostats0"}),
              sorted(column(ports, "DeviceID")));
    for (Properties& port : ports) {
        EXPECT_EQ(expectedSystemName(), port["SystemName"]);
        if (port["DeviceID"] == "eth0") {
            EXPECT_EQ("02FC00000001", port["PermanentAddress"]);
            EXPECT_EQ("1000000000", port["Speed"]);
            EXPECT_EQ("1500", port["ActiveMaximumTransmissionUnit"]);
            EXPECT_EQ("up", port["OperState"]);
            EXPECT_EQ("true", port["Carrier"]);
        }
        if (port["DeviceID"] == "eth1") {
            EXPECT_EQ(0u, port.count("Speed")) << "speed -1 means unknown";
        }
    }
}

TEST_F(ProviderServingTest, EveryServiceHasItsSettingCapabilitiesLogAndUseOfLog) {
    for (const Family& family : families) {
        std::vector<std::string> settingIds, capabilityIds;
        for (const std::string& name : family.serviceNames) {
            settingIds.push_back("ZORQ:" + name + ":DefaultSetting");
            capabilityIds.push_back("ZORQ:" + name + ":Capabilities");
        }
        EXPECT_EQ(settingIds, sorted(column(enumerate(host, family.setting), "InstanceID")));
        EXPECT_EQ(capabilityIds,
                  sorted(column(enumerate(host, family.capabilities), "InstanceID")));

        if (host.classes().findClass("root/cimv2", family.log) == nullptr) {
            ADD_FAILURE() << "the MOF has no class " << family.log
                          << ": no log and no UseOfLog can be published";
            continue;
        }
        auto logs = enumerate(host, family.log);
        auto uses = enumerate(host, family.useOfLog);
        ASSERT_EQ(2u, logs.size()) << family.log;
        ASSERT_EQ(2u, uses.size()) << family.useOfLog;
        for (const std::string& name : family.serviceNames) {
            auto use = std::find_if(uses.begin(), uses.end(), [&](Properties& u) {
                return contains(u["Dependent"], "Name=\"" + name + "\"");
            });
            ASSERT_NE(uses.end(), use) << name;
            EXPECT_TRUE(contains((*use)["Dependent"], family.service)) << (*use)["Dependent"];
            EXPECT_TRUE(contains((*use)["Antecedent"], "ZORQ:" + name + ":Log"))
                << (*use)["Antecedent"];
        }
    }
}

TEST_F(ProviderServingTest, PublishedInstancesCarryTheMofDefaultsTheProvidersLeaveUnset) {
    // What both real object managers show for these classes: the initializers of the MOF.
    const std::pair<const char * Family::*, Properties> expected[] = {
        {&Family::service, {{"EnabledDefault", "2"}, {"TransitioningToState", "12"}}},
        // (The profile layer sets the log's OverwritePolicy from its record log.)
        {&Family::log, {{"RequestedState", "12"}, {"LogState", "4"}}},
        {&Family::setting, {{"QueryTimeout", "0"}, {"NonDestructive", "false"}}},
        {&Family::capabilities, {{"SupportedTestWarnings", "3"}}},
    };
    for (const Family& family : families) {
        for (const auto& [member, defaults] : expected) {
            const char* className = family.*member;
            auto instances = enumerate(host, className);
            ASSERT_FALSE(instances.empty()) << className;
            for (const Properties& instance : instances) {
                for (const auto& [name, value] : defaults) {
                    EXPECT_EQ(instance.count(name) ? instance.at(name) : "<null>", value)
                        << className << "." << name;
                }
            }
        }
    }
}

TEST_F(ProviderServingTest, AnElementIsAssociatedWithBothServicesOfItsFamily) {
    struct Probe {
        std::string element;
        const Family& family;
    } probes[] = {
        {fileSystemPath(fake.mountPoint("rw")), families[0]},
        {networkPortPath("eth0"), families[1]},
    };
    for (const Probe& probe : probes) {
        auto associations = host.associators(probe.element, probe.family.available);
        ASSERT_TRUE(associations.ok()) << associations.status.message;
        ASSERT_EQ(2u, associations.instances().size()) << probe.element;
        std::vector<std::string> provided;
        for (const CMPIInstance* a : associations.instances()) {
            Properties p = propertiesOf(host, a);
            for (const std::string& name : probe.family.serviceNames)
                if (contains(p["ServiceProvided"], "Name=\"" + name + "\""))
                    provided.push_back(name);
            EXPECT_TRUE(contains(p["UserOfService"], probe.family.element)) << p["UserOfService"];
        }
        EXPECT_EQ(probe.family.serviceNames, sorted(provided));
    }
}

TEST_F(ProviderServingTest, EnumOrderNumbersAssociationsServiceByServiceFromOne) {
    for (const Family& family : families) {
        const std::size_t elements = enumerate(host, family.element).size();
        auto associations = enumerate(host, family.available);
        ASSERT_EQ(2 * elements, associations.size()) << family.available;
        for (std::size_t i = 0; i < associations.size(); ++i) {
            EXPECT_EQ(std::to_string(i + 1), associations[i]["EnumOrder"]);
            const std::string second = family.serviceNames[0] == family.firstService
                                           ? family.serviceNames[1]
                                           : family.serviceNames[0];
            const std::string expected = i < elements ? family.firstService : second;
            EXPECT_TRUE(contains(associations[i]["ServiceProvided"], "Name=\"" + expected + "\""))
                << i << ": " << associations[i]["ServiceProvided"];
        }
    }
}

TEST_F(ProviderServingTest, IdleUnloadIsRefusedWithNeverUnload) {
    enumerate(host, "ZORQ_ComputerSystem");
    enumerate(host, "ZORQ_FSDiagService");
    enumerate(host, "ZORQ_NetDiagService");
    EXPECT_EQ(0u, host.unloadIdleProviders());
    for (const char* location : {"zorqcs", "zorqfsdiag", "zorqnetdiag"})
        EXPECT_TRUE(host.providers().isLoaded(location)) << location;

    // Asked directly, each MI of each library answers an idle-unload offer with NEVER_UNLOAD.
    const std::pair<const char*, const char*> libraries[] = {
        {"libzorqcs.so", "ZORQ_ComputerSystemProvider"},
        {"libzorqfsdiag.so", "ZORQ_FSDiagProvider"},
        {"libzorqnetdiag.so", "ZORQ_NetDiagProvider"},
    };
    const CMPIBroker* broker = host.broker().cmpi();
    CMPIContext* ctx = host.broker().newContext("root/cimv2");
    for (const auto& [file, provider] : libraries) {
        void* handle =
            ::dlopen((std::string(ZORQ_PROVIDER_DIR) + "/" + file).c_str(), RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(nullptr, handle) << file << " is not loaded";
        using InstanceFactory =
            CMPIInstanceMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
        using MethodFactory = CMPIMethodMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
        using AssociationFactory =
            CMPIAssociationMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
        const std::string stem = provider;
        auto instanceMi = reinterpret_cast<InstanceFactory>(
            ::dlsym(handle, (stem + "_Create_InstanceMI").c_str()))(broker, ctx, nullptr);
        auto methodMi = reinterpret_cast<MethodFactory>(
            ::dlsym(handle, (stem + "_Create_MethodMI").c_str()))(broker, ctx, nullptr);
        auto associationMi = reinterpret_cast<AssociationFactory>(
            ::dlsym(handle, (stem + "_Create_AssociationMI").c_str()))(broker, ctx, nullptr);
        EXPECT_EQ(CMPI_RC_NEVER_UNLOAD, instanceMi->ft->cleanup(instanceMi, ctx, 0).rc) << file;
        EXPECT_EQ(CMPI_RC_NEVER_UNLOAD, methodMi->ft->cleanup(methodMi, ctx, 0).rc) << file;
        EXPECT_EQ(CMPI_RC_NEVER_UNLOAD, associationMi->ft->cleanup(associationMi, ctx, 0).rc)
            << file;
        ::dlclose(handle);
    }
}

// The real tables of this machine, in a process of its own so that no fake table was read at
// start-up. Checks are printed and end the process with status 1.
void realTablesScenario() {
    ::unsetenv("ZORQ_FS_MOUNTS");
    ::unsetenv("ZORQ_NET_SYSFS");
    auto host = makeHost();
    auto check = [](bool ok, const std::string& what) {
        if (!ok) {
            std::cerr << "FAILED: " << what << std::endl;
            std::exit(1);
        }
    };
    auto fileSystems = column(enumerate(*host, "ZORQ_LocalFileSystem"), "Name");
    check(std::count(fileSystems.begin(), fileSystems.end(), "/") == 1, "/ is published once");
    for (const char* pseudo : {"/proc", "/sys", "/dev/pts"})
        check(std::count(fileSystems.begin(), fileSystems.end(), pseudo) == 0,
              std::string(pseudo) + " is not published");
    auto root = runDiagnostic(*host, "ZORQ_FSDiagService", "FileSystemHealth", fileSystemPath("/"),
                              "ZORQ_FSDiagRecord");
    check(root.ok && (root.returnValue == 0 || root.returnValue == 1),
          "FileSystemHealth ran on / (returned " + std::to_string(root.returnValue) + ")");
    check(root.record && contains((*root.record)["RecordData"], "listed"),
          "its record tells what was checked");

    auto ports = column(enumerate(*host, "ZORQ_NetworkPort"), "DeviceID");
    if (std::count(ports.begin(), ports.end(), "lo") == 1) {
        auto lo = runDiagnostic(*host, "ZORQ_NetDiagService", "NetworkPortLink",
                                networkPortPath("lo"), "ZORQ_NetDiagRecord");
        check(lo.ok && lo.returnValue == 0, "the loopback link passes");
    }
    checkLeaksNow();
    std::exit(0);
}

// The scratch machine again, with paths rendered as sfcb renders them: the registry's keys
// and the element lookup must not depend on the dialect.
void sfcbDialectScenario() {
    FakeSystem& fake = FakeSystem::instance();
    auto host = makeHost(diaghost::PathDialect::Sfcb);
    auto check = [](bool ok, const std::string& what) {
        if (!ok) {
            std::cerr << "FAILED: " << what << std::endl;
            std::exit(1);
        }
    };
    check(enumerate(*host, "ZORQ_FSDiagService").size() == 2, "two file-system services");
    // sfcb keeps keys in the order they were set, and the association lookup compares path
    // texts: a client asks with the path the object manager gave it.
    std::string rw;
    auto elements = host->enumerateInstances("root/cimv2", "ZORQ_LocalFileSystem");
    for (const CMPIInstance* element : elements.instances())
        if (host->propertyText(element, "Name") == fake.mountPoint("rw"))
            rw = host->pathText(element->ft->getObjectPath(element, nullptr));
    check(host->associators(rw, "ZORQ_FSAvailableDiagService").instances().size() == 2,
          "the rw mount is associated with both services");
    // sfcb passes no association class when the client names none.
    check(host->associators(rw).instances().size() == 2,
          "without a class, the rw mount's two associations and nothing else");
    auto health =
        runDiagnostic(*host, "ZORQ_FSDiagService", "FileSystemHealth", rw, "ZORQ_FSDiagRecord");
    check(health.ok && health.returnValue == 0 && health.record, "health passes on rw");
    auto refused = runDiagnostic(*host, "ZORQ_FSDiagService", "FileSystemWriteProbe",
                                 fileSystemPath("/etc/passwd"), "ZORQ_FSDiagRecord");
    check(refused.ok && refused.returnValue == 2, "a foreign file is refused");
    auto down = runDiagnostic(*host, "ZORQ_NetDiagService", "NetworkPortLink",
                              networkPortPath("eth1"), "ZORQ_NetDiagRecord");
    check(down.ok && down.returnValue == 1, "the link of eth1 is down");
    checkLeaksNow();
    std::exit(0);
}

TEST(SeparateProcessTest, RealMountsAndInterfacesArePublishedAndTestable) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(realTablesScenario(), ::testing::ExitedWithCode(0), "");
}

TEST(SeparateProcessTest, ProvidersServeTheSameUnderSfcbPathRendering) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(sfcbDialectScenario(), ::testing::ExitedWithCode(0), "");
}

} // namespace
