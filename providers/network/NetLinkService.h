// NetworkPortLink: whether a published interface has its link. It reads the interface's
// operstate (and carrier) at every run: "up" with carrier passes, "unknown" passes on a loopback
// interface, anything else fails. Return values and error codes: NetDiag.h.
#ifndef ZORQ_PROVIDERS_NETWORK_NETLINKSERVICE_H
#define ZORQ_PROVIDERS_NETWORK_NETLINKSERVICE_H

#include "providers/common/ElementDiagService.h"
#include "providers/network/NetworkPorts.h"

namespace NQORVA20::providers {

class NetLinkService : public ElementDiagService {
public:
    NetLinkService(std::string installDate, std::string systemName, const NetworkPorts& ports);

protected:
    unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) override;
    std::string elementName(std::size_t index) const override;

private:
    const NetworkPorts& ports_;
};

} // namespace NQORVA20::providers

#endif
