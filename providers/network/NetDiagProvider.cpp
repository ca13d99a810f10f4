// The entry symbols of libzorqnetdiag.so and its start-up: publish the network interfaces, then
// the two services with everything that belongs to them.
#include "entry/DiagProvider.h"
#include "providers/common/FamilyStartup.h"
#include "providers/common/ProviderLog.h"
#include "providers/network/NetDiag.h"
#include "providers/network/NetServiceFactory.h"
#include "providers/network/NetworkPorts.h"

#include <exception>

namespace {

using namespace NQORVA20::providers;

void startNetworkFamily(const CMPIBroker* broker, const CMPIContext* ctx) {
    // Read by every later test run; it lives as long as the registry that serves its ports.
    static NetworkPorts* ports = new NetworkPorts;
    const std::string system = FamilyStartup::systemName(broker, ctx);
    std::vector<NetInterfaceTable::Interface> interfaces;
    const std::string root = NetInterfaceTable::sysfsRoot();
    try {
        interfaces = NetInterfaceTable::list(root);
    } catch (const std::exception& e) {
        ProviderLog::write(broker, ProviderLog::Error, e.what());
    }
    const std::size_t published = ports->publish(broker, ctx, interfaces, system);
    ProviderLog::write(broker, ProviderLog::Info,
                       "published " + std::to_string(published) + " network ports of " + root);

    NetServiceFactory factory(*ports);
    FamilyStartup({netdiag::elementClass, netdiag::availableClass, netdiag::settingClass,
                   netdiag::capabilitiesClass, netdiag::logClass, netdiag::useOfLogClass})
        .run(broker, ctx, factory);
}

} // namespace

DIAGCORE_PROVIDER(ZORQ_NetDiagProvider, startNetworkFamily)
