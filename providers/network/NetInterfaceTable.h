// The network interfaces a sysfs class folder lists (/sys/class/net, or the folder that
// ZORQ_NET_SYSFS names), and the attribute files the tests read in each interface's folder.
#ifndef ZORQ_PROVIDERS_NETWORK_NETINTERFACETABLE_H
#define ZORQ_PROVIDERS_NETWORK_NETINTERFACETABLE_H

#include <optional>
#include <string>
#include <vector>

namespace NQORVA20::providers {

class NetInterfaceTable {
public:
    struct Interface {
        std::string name;
        std::string directory; // the interface's folder: <root>/<name>
    };

    static std::string sysfsRoot();
    // A name the kernel could have given: 1 to 15 printable characters, no blank, '/' or ':',
    // and not "." or "..".
    static bool isValidName(const std::string& name);
    // The folders under root with valid names, sorted by name; plain files (bonding_masters)
    // are left out. Throws std::runtime_error when root cannot be listed.
    static std::vector<Interface> list(const std::string& root);

    // Attribute texts of an interface folder; nothing when unreadable.
    static std::optional<std::string>
    attribute(const std::string& directory, const std::string& name, std::string* error = nullptr);
    static std::optional<unsigned long long>
    number(const std::string& directory, const std::string& name, std::string* error = nullptr);
    // A loopback device: link type 772, else the IFF_LOOPBACK flag, else the name "lo".
    static bool isLoopback(const Interface& interface);
};

} // namespace NQORVA20::providers

#endif
