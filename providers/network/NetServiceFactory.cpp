#include "providers/network/NetServiceFactory.h"

#include "providers/network/NetErrorsService.h"
#include "providers/network/NetLinkService.h"

namespace NQORVA20::providers {

NetServiceFactory::NetServiceFactory(const NetworkPorts& ports) : ports_(ports) {}

DiagService** NetServiceFactory::makeServices(std::string dateTime, std::string systemName,
                                              unsigned int& count) {
    auto** table = new DiagService*[2];
    table[0] = new NetLinkService(dateTime, systemName, ports_);
    table[1] = new NetErrorsService(dateTime, systemName, ports_);
    count = 2;
    return table;
}

} // namespace NQORVA20::providers
