#include "providers/common/PublishedUsersFactory.h"

#include "instance/InstanceRegistry.h"

namespace NQORVA20::providers {

CMPIEnumeration* PublishedUsersFactory::EnumerateUsers(const CMPIBroker* broker, const CMPIContext*,
                                                       std::string className) {
    std::vector<CMPIInstance*> published;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker, className, published);
    users_ = std::make_unique<InstanceListEnumeration>(std::move(published));
    return users_->cmpi();
}

} // namespace NQORVA20::providers
