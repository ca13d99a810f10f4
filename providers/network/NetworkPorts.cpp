#include "providers/network/NetworkPorts.h"

#include "providers/common/PublishInstance.h"
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
        if (!publishInstance(broker, ctx, new NetworkPort(interface, systemName)))
            continue;
        catalog_.add(keys);
        interfaces_.push_back(interface);
        ++published;
    }
    return published;
}

} // namespace NQORVA20::providers
