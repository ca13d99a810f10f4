#include "providers/common/PublishInstance.h"

#include "instance/InstanceRegistry.h"
#include "providers/common/ProviderLog.h"

namespace NQORVA20::providers {

bool publishInstance(const CMPIBroker* broker, const CMPIContext* ctx, InstanceImpl* object) {
    InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, object);
    return !object->getObjectPath().empty();
}

bool publishInstance(const CMPIBroker* broker, const CMPIContext* ctx, InstanceImpl* object,
                     const std::string& what) {
    if (publishInstance(broker, ctx, object))
        return true;
    ProviderLog::write(broker, ProviderLog::Error, "could not publish " + what);
    return false;
}

} // namespace NQORVA20::providers
