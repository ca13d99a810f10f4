// The entry symbols of libzorqnetdiag.so and its start-up: publish the network interfaces, then
// the two services with everything that belongs to them.
#include "profile/ProfileProvider.h"
#include "providers/common/ElementServiceFactory.h"
#include "providers/common/FamilyStartup.h"
#include "providers/network/NetDiag.h"
#include "providers/network/NetErrorsService.h"
#include "providers/network/NetInterfaceTable.h"
#include "providers/network/NetLinkService.h"
#include "providers/network/NetworkPorts.h"

namespace {

using namespace NQORVA20::providers;

struct NetworkFamily {
    using Services = ElementServiceFactory<NetworkPorts, NetLinkService, NetErrorsService>;
    static constexpr char elementsNoun[] = "network ports";
    static FamilyStartup::Classes classes() {
        return {netdiag::elementClass,      netdiag::availableClass, netdiag::settingClass,
                netdiag::capabilitiesClass, netdiag::logClass,       netdiag::useOfLogClass};
    }
    static std::string source() { return NetInterfaceTable::sysfsRoot(); }
    static std::vector<NetInterfaceTable::Interface> read(const std::string& root) {
        return NetInterfaceTable::list(root);
    }
};

NQORVA20::profile::ProfileClasses profileClasses() {
    return FamilyStartup::profileClasses("ZORQ_Net", NetworkFamily::classes());
}

} // namespace

DIAGCORE_PROFILE_PROVIDER(ZORQ_NetDiagProvider, startFamily<NetworkFamily>, profileClasses)
