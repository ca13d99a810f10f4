// Listing interfaces from a sysfs class folder and reading their attributes, on scratch trees.
#include "providers/network/NetInterfaceTable.h"

#include "ProviderTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

using NQORVA20::providers::NetInterfaceTable;

class NetInterfaceTableTest : public ::testing::Test {
protected:
    std::string makeInterface(const std::string& name, const zorqtest::Properties& attributes) {
        const std::string dir = scratch.path() + "/" + name;
        std::filesystem::create_directories(dir);
        for (const auto& [file, text] : attributes)
            std::ofstream(dir + "/" + file) << text << "\n";
        return dir;
    }

    zorqtest::ScratchFolder scratch{"zorq-netif"};
};

TEST_F(NetInterfaceTableTest, ListsInterfaceFoldersSortedAndSkipsFilesAndOddNames) {
    makeInterface("eth1", {});
    makeInterface("eth0", {});
    makeInterface("lo", {});
    makeInterface("name-longer-than-15", {});
    makeInterface("has space", {});
    makeInterface("alias:0", {});
    std::ofstream(scratch.path() + "/bonding_masters") << "\n";
    std::filesystem::create_directory_symlink(scratch.path() + "/eth0", scratch.path() + "/veth");
    auto interfaces = NetInterfaceTable::list(scratch.path());
    std::vector<std::string> names;
    for (const auto& i : interfaces)
        names.push_back(i.name);
    EXPECT_EQ((std::vector<std::string>{"eth0", "eth1", "lo", "veth"}), names);
    EXPECT_EQ(scratch.path() + "/eth0", interfaces[0].directory);
    EXPECT_THROW(NetInterfaceTable::list(scratch.path() + "/nothing"), std::runtime_error);
}

TEST_F(NetInterfaceTableTest, NamesFollowTheKernelsRules) {
    for (const char* good : {"lo", "eth0", "enp0s31f6", "br-1a2b3c4d5e6f", "wlan0.100"})
        EXPECT_TRUE(NetInterfaceTable::isValidName(good)) << good;
    for (const char* bad : {"", ".", "..", "a/b", "a:b", "a b", "1234567890123456", "tab\t"})
        EXPECT_FALSE(NetInterfaceTable::isValidName(bad)) << bad;
}

TEST_F(NetInterfaceTableTest, LoopbackIsKnownByLinkTypeThenFlagsThenName) {
    using Interface = NetInterfaceTable::Interface;
    EXPECT_TRUE(NetInterfaceTable::isLoopback(
        Interface{"x", makeInterface("x", {{"type", "772"}, {"flags", "0x1"}})}));
    EXPECT_FALSE(NetInterfaceTable::isLoopback(
        Interface{"lo", makeInterface("lo", {{"type", "1"}, {"flags", "0x9"}})}));
    EXPECT_TRUE(
        NetInterfaceTable::isLoopback(Interface{"y", makeInterface("y", {{"flags", "0x9"}})}));
    EXPECT_FALSE(
        NetInterfaceTable::isLoopback(Interface{"z", makeInterface("z", {{"flags", "0x1003"}})}));
    EXPECT_TRUE(NetInterfaceTable::isLoopback(Interface{"lo", scratch.path() + "/absent"}));
}

} // namespace
