// The providers as the real object managers run them: upcalls served on another thread, an
// enumeration that marks its instances null, a result sink that edits the instances it is
// handed. The start-up must not wait on itself, every service names the system its elements
// name, no request may change what a later one gets, and paths name this system as their host.
#include "ProviderTestSupport.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <set>
#include <thread>

namespace {

using namespace zorqtest;

class ObjectManagerFidelityTest : public ::testing::Test {
protected:
    FakeSystem& fake = FakeSystem::instance();
};

// Runs the first request of the process under a watchdog: a start-up that waits on its own
// upcall never returns, and the process is ended with a failure instead of hanging the suite.
template <class Request>
auto withinAMinute(Request request) {
    auto answer = std::async(std::launch::async, request);
    if (answer.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        std::cerr << "the request did not return within a minute: start-up waits on itself\n";
        std::_Exit(1);
    }
    return answer.get();
}

TEST_F(ObjectManagerFidelityTest, FirstRequestReturnsAndEveryElementIsAssociatedWithItsServices) {
    const auto associations =
        withinAMinute([] { return enumerate(sharedHost(), "ZORQ_FSAvailableDiagService"); });
    Host& host = sharedHost();
    const std::size_t mounts = enumerate(host, "ZORQ_LocalFileSystem").size();
    ASSERT_GT(mounts, 0u);
    EXPECT_EQ(associations.size(), 2 * mounts);
    const std::size_t ports = enumerate(host, "ZORQ_NetworkPort").size();
    ASSERT_GT(ports, 0u);
    EXPECT_EQ(enumerate(host, "ZORQ_NetAvailableDiagService").size(), 2 * ports);
}

TEST_F(ObjectManagerFidelityTest, ServicesNameTheSystemTheirElementsNameAndAreFoundUnderIt) {
    Host& host = sharedHost();
    std::set<std::string> elementSystems;
    for (const Properties& fs : enumerate(host, "ZORQ_LocalFileSystem"))
        elementSystems.insert(fs.at("CSName"));
    for (const Properties& port : enumerate(host, "ZORQ_NetworkPort"))
        elementSystems.insert(port.at("SystemName"));
    ASSERT_EQ(elementSystems.size(), 1u);
    const std::string system = *elementSystems.begin();
    EXPECT_FALSE(system.empty());
    for (const char* cls : {"ZORQ_FSDiagService", "ZORQ_NetDiagService"}) {
        for (const Properties& service : enumerate(host, cls)) {
            EXPECT_EQ(service.at("SystemName"), system) << cls;
            auto got =
                host.getInstance(pathText(cls, {{"CreationClassName", cls},
                                                {"Name", service.at("Name")},
                                                {"SystemCreationClassName", "ZORQ_ComputerSystem"},
                                                {"SystemName", system}}));
            EXPECT_TRUE(got.status.ok()) << got.status.message;
            EXPECT_EQ(got.instances().size(), 1u) << cls;
        }
    }
}

TEST_F(ObjectManagerFidelityTest, AnEarlierRequestsPropertyListDoesNotReachLaterAnswers) {
    Host& host = sharedHost();
    const std::string path = networkPortPath("eth0");
    auto narrow = host.getInstance(path, {"DeviceID"});
    ASSERT_TRUE(narrow.status.ok()) << narrow.status.message;
    ASSERT_EQ(narrow.instances().size(), 1u);
    EXPECT_FALSE(host.propertyText(narrow.instances()[0], "ElementName"));

    auto full = host.getInstance(path);
    ASSERT_EQ(full.instances().size(), 1u);
    EXPECT_TRUE(host.propertyText(full.instances()[0], "ElementName"));
    auto all = host.enumerateInstances("root/cimv2", "ZORQ_NetDiagService", {"Name"});
    ASSERT_FALSE(all.instances().empty());
    for (const Properties& service : enumerate(host, "ZORQ_NetDiagService"))
        EXPECT_TRUE(service.count("ElementName")) << service.at("Name");
}

TEST_F(ObjectManagerFidelityTest, RequestsAtOnceWithAndWithoutAPropertyListGetWhatTheyAsked) {
    Host& host = sharedHost();
    const std::string path = networkPortPath("eth1");
    std::atomic<int> wrong{0};
    std::vector<std::thread> clients;
    for (int t = 0; t < 4; ++t)
        clients.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) {
                const bool narrow = (i + t) % 2 == 0;
                auto got = narrow ? host.getInstance(path, {"DeviceID"}) : host.getInstance(path);
                if (got.instances().size() != 1 ||
                    host.propertyText(got.instances()[0], "ElementName").has_value() == narrow)
                    ++wrong;
            }
        });
    for (std::thread& c : clients)
        c.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(ObjectManagerFidelityTest, PathsNameThisSystemAsTheirHost) {
    Host& host = sharedHost();
    auto services = host.enumerateInstances("root/cimv2", "ZORQ_FSDiagService");
    ASSERT_FALSE(services.instances().empty());
    for (const CMPIInstance* service : services.instances()) {
        CMPIObjectPath* path = service->ft->getObjectPath(service, nullptr);
        CMPIString* hostName = path->ft->getHostname(path, nullptr);
        ASSERT_NE(hostName, nullptr);
        EXPECT_EQ(std::string(hostName->ft->getCharPtr(hostName, nullptr)),
                  *host.propertyText(service, "SystemName"));
    }
}

} // namespace
