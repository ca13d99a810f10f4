#include "providers/network/NetworkPort.h"

#include "providers/network/NetDiag.h"

#include <cctype>
#include <cstdlib>

namespace NQORVA20::providers {

namespace {

constexpr unsigned long long ethernetLinkType = 1; // ARPHRD_ETHER
constexpr unsigned long upFlag = 0x1;              // IFF_UP

} // namespace

NetworkPort::NetworkPort(NetInterfaceTable::Interface interface, std::string systemName)
    : InstanceImpl(netdiag::elementClass), interface_(std::move(interface)),
      systemName_(std::move(systemName)) {
    NetworkPort::init();
}

NetworkPort::~NetworkPort() = default;

std::string NetworkPort::permanentAddress(const std::string& sysfsAddress) {
    std::string out;
    for (char c : sysfsAddress)
        if (c != ':')
            out.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    return out;
}

void NetworkPort::init() {
    const std::string& name = interface_.name;
    const std::string& dir = interface_.directory;
    const bool loopback = NetInterfaceTable::isLoopback(interface_);
    get("SystemCreationClassName") = netdiag::systemClass;
    get("SystemName") = systemName_;
    get("CreationClassName") = netdiag::elementClass;
    get("DeviceID") = name;
    get("Name") = name;
    get("ElementName") = name;
    get("Caption") = "Network port " + name;
    get("Description") = std::string(loopback ? "Loopback" : "Network") + " interface " + name;

    if (const auto address = NetInterfaceTable::attribute(dir, "address");
        address && !address->empty())
        get("PermanentAddress") = permanentAddress(*address);
    // sysfs gives Mb/s, and -1 (not a number here) while the speed is unknown.
    if (const auto speed = NetInterfaceTable::number(dir, "speed");
        speed && *speed < 1000000000000ull)
        get("Speed") = std::to_string(*speed * 1000000ull);
    if (const auto mtu = NetInterfaceTable::number(dir, "mtu"))
        get("ActiveMaximumTransmissionUnit") = std::to_string(*mtu);
    if (const auto index = NetInterfaceTable::number(dir, "ifindex"))
        get("InterfaceIndex") = std::to_string(*index);
    if (const auto state = NetInterfaceTable::attribute(dir, "operstate"))
        get("OperState") = *state;
    if (const auto carrier = NetInterfaceTable::number(dir, "carrier"))
        get("Carrier") = *carrier != 0 ? "1" : "0";
    if (const auto type = NetInterfaceTable::number(dir, "type"); type && *type == ethernetLinkType)
        get("LinkTechnology") = "2"; // Ethernet
    if (const auto flags = NetInterfaceTable::attribute(dir, "flags")) {
        char* end = nullptr;
        const unsigned long value = std::strtoul(flags->c_str(), &end, 16);
        if (end != flags->c_str() && *end == '\0')
            get("EnabledState") = (value & upFlag) ? "2" : "3"; // enabled or disabled
    }
}

} // namespace NQORVA20::providers
