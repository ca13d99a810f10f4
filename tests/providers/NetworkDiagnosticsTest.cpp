// RunDiagnostic on the network family through the object manager: link states, counters
// against limits, interfaces without what the tests read, and refused elements.
#include "ProviderTestSupport.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace zorqtest;

class NetworkDiagnosticsTest : public ::testing::Test {
protected:
    RunOutcome run(const std::string& service, const std::string& elementPath) {
        return runDiagnostic(host, "ZORQ_NetDiagService", service, elementPath,
                             "ZORQ_NetDiagRecord");
    }
    RunOutcome link(const std::string& port) {
        return run("NetworkPortLink", networkPortPath(port));
    }
    RunOutcome errors(const std::string& port) {
        return run("NetworkPortErrors", networkPortPath(port));
    }

    Host& host = sharedHost();
    FakeSystem& fake = FakeSystem::instance();
};

TEST_F(NetworkDiagnosticsTest, LinkPassesWhenUpWithCarrierAndOnAnUnknownLoopback) {
    auto eth0 = link("eth0");
    EXPECT_RECORD(eth0, 0u, "");
    EXPECT_EQ("Test Passed: eth0: operstate up; carrier 1", (*eth0.record)["RecordData"]);
    EXPECT_EQ("eth0", (*eth0.record)["ManagedElementName"]);

    auto lo = link("lo");
    EXPECT_RECORD(lo, 0u, "");
    EXPECT_NE(std::string::npos,
              (*lo.record)["RecordData"].find("lo (loopback): operstate unknown"));
}

TEST_F(NetworkDiagnosticsTest, LinkFailsWhenDownWithoutCarrierOrGone) {
    auto eth1 = link("eth1");
    EXPECT_RECORD(eth1, 1u, "{NET_LINK_DOWN}");
    EXPECT_NE(std::string::npos, (*eth1.record)["RecordData"].find("operstate down"));
    EXPECT_EQ("1", (*eth1.record)["LoopsFailed"]);

    EXPECT_RECORD(link("eth2"), 1u, "{NET_NO_CARRIER}");

    enumerate(host, "ZORQ_NetworkPort"); // the provider has started with gone0 present
    std::filesystem::remove_all(fake.interfaceDir("gone0"));
    EXPECT_RECORD(link("gone0"), 1u, "{NET_PORT_MISSING}");
    EXPECT_RECORD(errors("gone0"), 1u, "{NET_PORT_MISSING}");
}

TEST_F(NetworkDiagnosticsTest, ErrorsCompareCountersWithTheLimitsReadAtEachRun) {
    auto eth0 = errors("eth0");
    EXPECT_RECORD(eth0, 0u, "");
    EXPECT_NE(std::string::npos,
              (*eth0.record)["RecordData"].find("rx_dropped 7, tx_dropped 0 (total 7, no maximum)"))
        << (*eth0.record)["RecordData"];

    auto eth1 = errors("eth1");
    EXPECT_RECORD(eth1, 1u, "{NET_ERRORS}");
    EXPECT_NE(std::string::npos, (*eth1.record)["RecordData"].find("(total 4, maximum 0)"));
    {
        ScopedEnvironment allowErrors("ZORQ_NET_MAX_ERRORS", "4");
        EXPECT_RECORD(errors("eth1"), 0u, "");
    }
    {
        ScopedEnvironment fewDrops("ZORQ_NET_MAX_DROPS", "6");
        EXPECT_RECORD(errors("eth0"), 1u, "{NET_DROPS}");
        ScopedEnvironment strictErrors("ZORQ_NET_MAX_ERRORS", "3");
        auto both = errors("eth1");
        EXPECT_RECORD(both, 1u, "{NET_ERRORS}");
    }
    {
        ScopedEnvironment garbage("ZORQ_NET_MAX_DROPS", "few");
        auto outcome = errors("eth0");
        EXPECT_RECORD(outcome, 0u, "");
        EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("using the default"));
    }
}

TEST_F(NetworkDiagnosticsTest, ErrorsCannotRunWithoutStatistics) {
    auto outcome = errors("nostats0");
    EXPECT_RECORD(outcome, 3u, "{NET_STATS_UNAVAILABLE}");
    EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("statistics/rx_errors"));
}

TEST_F(NetworkDiagnosticsTest, PortsTheProviderDidNotPublishAreRefused) {
    const std::string foreign[] = {
        networkPortPath("eth9"),
        networkPortPath("../../../etc"),
        networkPortPath("bonding_masters"),
        networkPortPath("ETH0"),
        fileSystemPath(fake.mountPoint("rw")),
        pathText("ZORQ_NetworkPort", {{"DeviceID", "eth0"}}),
        pathText("CIM_NetworkPort", {{"SystemCreationClassName", "ZORQ_ComputerSystem"},
                                     {"SystemName", expectedSystemName()},
                                     {"CreationClassName", "ZORQ_NetworkPort"},
                                     {"DeviceID", "eth0"}}),
    };
    for (const std::string& element : foreign) {
        for (const char* service : {"NetworkPortLink", "NetworkPortErrors"}) {
            auto outcome = run(service, element);
            EXPECT_RECORD(outcome, 2u, "{NET_NOT_PUBLISHED}");
            if (outcome.record) {
                EXPECT_EQ(0u, (*outcome.record)["RecordData"].find("Refused: ")) << element;
            }
        }
    }
}

TEST_F(NetworkDiagnosticsTest, RunDiagnosticWithoutAnElementIsAnInvalidParameter) {
    auto services = host.enumerateInstances("root/cimv2", "ZORQ_NetDiagService");
    ASSERT_FALSE(services.instances().empty());
    const CMPIInstance* service = services.instances()[0];
    auto result = host.invokeMethod(service->ft->getObjectPath(service, nullptr), "RunDiagnostic",
                                    Host::Arguments{});
    EXPECT_EQ(CMPI_RC_ERR_INVALID_PARAMETER, result.status.rc);
    auto unknown = host.invokeMethod(service->ft->getObjectPath(service, nullptr), "Reboot",
                                     Host::Arguments{});
    EXPECT_EQ(CMPI_RC_ERR_METHOD_NOT_FOUND, unknown.status.rc);
}

} // namespace
