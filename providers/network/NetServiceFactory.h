// Makes the network family's two services, NetworkPortLink and NetworkPortErrors, both testing
// the family's published ports.
#ifndef ZORQ_PROVIDERS_NETWORK_NETSERVICEFACTORY_H
#define ZORQ_PROVIDERS_NETWORK_NETSERVICEFACTORY_H

#include "factory/ServiceFactory.h"
#include "providers/network/NetworkPorts.h"

namespace NQORVA20::providers {

class NetServiceFactory : public ServiceFactory {
public:
    explicit NetServiceFactory(const NetworkPorts& ports);
    DiagService** makeServices(std::string dateTime, std::string systemName,
                               unsigned int& count) override;

private:
    const NetworkPorts& ports_;
};

} // namespace NQORVA20::providers

#endif
