#include "providers/network/NetworkPorts.h"

#include "instance/InstanceRegistry.h"
#include "providers/common/ProviderLog.h"
#include "providers/network/NetDiag.h"
#include "providers/network/NetworkPort.h"

namespace NQORVA20::providers {

namespace {

// The first key whose value an object path cannot carry: a double quote ends a value, and a
// backslash is an escape in some object managers' renderings. Empty when every value is
// carried intact.
std::string uncarriableKey(const ElementCatalog::Keys& keys) {
    for (const auto& [name, value] : keys)
        if (value.find_first_of("\"\\") != std::string::npos)
            return name;
    return std::string();
}

} // namespace

NetworkPorts::NetworkPorts()
    : catalog_(netdiag::elementClass,
               {"SystemCreationClassName", "SystemName", "CreationClassName", "DeviceID"},
               {"SystemCreationClassName", "SystemName", "CreationClassName"}) {}

std::size_t NetworkPorts::publish(const CMPIBroker* broker, const CMPIContext* ctx,
                                  const std::vector<NetInterfaceTable::Interface>& interfaces,
                                  const std::string& systemName) {
    std::size_t published = 0;
    for (const NetInterfaceTable::Interface& interface : interfaces) {
        const ElementCatalog::Keys keys = {
            {"SystemCreationClassName", netdiag::systemClass},
            {"SystemName", systemName},
            {"CreationClassName", netdiag::elementClass},
            {"DeviceID", interface.name},
        };
        if (const std::string key = uncarriableKey(keys); !key.empty()) {
            ProviderLog::write(broker, ProviderLog::Warning,
                               std::string(netdiag::elementClass) + " " + interface.name +
                                   " is not published: its key " + key +
                                   " holds a double quote or a backslash, which an object "
                                   "path cannot carry");
            continue;
        }
        auto* port = new NetworkPort(interface, systemName);
        InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, port);
        if (port->getObjectPath().empty())
            continue;
        catalog_.add(keys);
        interfaces_.push_back(interface);
        ++published;
    }
    return published;
}

} // namespace NQORVA20::providers
