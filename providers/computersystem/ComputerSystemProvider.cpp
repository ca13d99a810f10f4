// The entry symbols of libzorqcs.so and its start-up: publish this machine as the one
// ZORQ_ComputerSystem instance.
#include "entry/DiagProvider.h"
#include "providers/common/HostName.h"
#include "providers/common/PublishInstance.h"
#include "providers/computersystem/ComputerSystem.h"

namespace {

using namespace NQORVA20::providers;

void startComputerSystem(const CMPIBroker* broker, const CMPIContext* ctx) {
    publishInstance(broker, ctx, new ComputerSystem(HostName::fullyQualified()),
                    "the computer system");
}

} // namespace

DIAGCORE_PROVIDER(ZORQ_ComputerSystemProvider, startComputerSystem)
