// NetworkPortErrors: whether a published interface's error and drop counters stay within the
// operator's limits, ZORQ_NET_MAX_ERRORS (rx_errors + tx_errors, default 0) and
// ZORQ_NET_MAX_DROPS (rx_dropped + tx_dropped, default unlimited), read at every run. Return
// values and error codes: NetDiag.h.
#ifndef ZORQ_PROVIDERS_NETWORK_NETERRORSSERVICE_H
#define ZORQ_PROVIDERS_NETWORK_NETERRORSSERVICE_H

#include "providers/common/ElementDiagService.h"
#include "providers/network/NetworkPorts.h"

namespace NQORVA20::providers {

class NetErrorsService : public ElementDiagService {
public:
    NetErrorsService(std::string installDate, std::string systemName, const NetworkPorts& ports);

protected:
    unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) override;
    std::string elementName(std::size_t index) const override;

private:
    const NetworkPorts& ports_;
};

} // namespace NQORVA20::providers

#endif
