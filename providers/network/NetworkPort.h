// One network interface as a ZORQ_NetworkPort instance object: its keys (the hosting system
// and the interface name as DeviceID) and what sysfs reports about it at start-up.
#ifndef ZORQ_PROVIDERS_NETWORK_NETWORKPORT_H
#define ZORQ_PROVIDERS_NETWORK_NETWORKPORT_H

#include "instance/InstanceImpl.h"
#include "providers/network/NetInterfaceTable.h"

#include <string>

namespace NQORVA20::providers {

class NetworkPort : public InstanceImpl {
public:
    NetworkPort(NetInterfaceTable::Interface interface, std::string systemName);
    ~NetworkPort() override;
    // Sets the keys and names (overwriting) and each sysfs fact that can be read.
    void init() override;

    // "02:fc:00:00:00:01" as CIM writes MAC addresses: "02FC00000001". Other texts unchanged
    // but upper-cased and without colons.
    static std::string permanentAddress(const std::string& sysfsAddress);

private:
    NetInterfaceTable::Interface interface_;
    std::string systemName_;
};

} // namespace NQORVA20::providers

#endif
