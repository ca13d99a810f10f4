// The entry symbols of libzorqcs.so and its start-up: publish this machine as the one
// ZORQ_ComputerSystem instance.
#include "entry/DiagProvider.h"
#include "instance/InstanceRegistry.h"
#include "providers/common/HostName.h"
#include "providers/common/ProviderLog.h"
#include "providers/computersystem/ComputerSystem.h"

namespace {

using namespace NQORVA20;
using namespace NQORVA20::providers;

void startComputerSystem(const CMPIBroker* broker, const CMPIContext* ctx) {
    auto* system = new ComputerSystem(HostName::fullyQualified());
    InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, system);
    if (system->getObjectPath().empty())
        ProviderLog::write(broker, ProviderLog::Error, "could not publish the computer system");
}

} // namespace

DIAGCORE_PROVIDER(ZORQ_ComputerSystemProvider, startComputerSystem)
