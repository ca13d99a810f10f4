#include "providers/network/NetworkPorts.h"

#include "instance/InstanceRegistry.h"
#include "providers/network/NetDiag.h"
#include "providers/network/NetworkPort.h"

namespace NQORVA20::providers {

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
        if (!catalog_.carriable(broker, interface.name, keys))
            continue;
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
