// The network ports the family published: each interface beside the catalog of their keys.
// Filled once by publish() at start-up and only read afterwards; it lives as long as the
// process, like the registry that serves its instances.
#ifndef ZORQ_PROVIDERS_NETWORK_NETWORKPORTS_H
#define ZORQ_PROVIDERS_NETWORK_NETWORKPORTS_H

#include "providers/common/ElementCatalog.h"
#include "providers/network/NetInterfaceTable.h"

#include <cmpidt.h>

#include <cstddef>
#include <string>
#include <vector>

namespace NQORVA20::providers {

class NetworkPorts {
public:
    NetworkPorts();

    // Registers one ZORQ_NetworkPort per interface; only those the registry accepted join the
    // catalog. An interface whose key values hold a double quote or a backslash is neither
    // registered nor catalogued: an object path cannot carry them, so its path and every
    // association to it would name another element. Each such interface is named in one
    // warning. Answers how many were published.
    std::size_t publish(const CMPIBroker* broker, const CMPIContext* ctx,
                        const std::vector<NetInterfaceTable::Interface>& interfaces,
                        const std::string& systemName);

    const ElementCatalog& catalog() const { return catalog_; }
    const NetInterfaceTable::Interface& interface(std::size_t index) const {
        return interfaces_.at(index);
    }

private:
    ElementCatalog catalog_;
    std::vector<NetInterfaceTable::Interface> interfaces_;
};

} // namespace NQORVA20::providers

#endif
