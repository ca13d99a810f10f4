#include "factory/ServiceFactory.h"

#include "instance/CMPIUtil.h"
#include "instance/SystemIdentity.h"

namespace NQORVA20 {

ServiceFactory::~ServiceFactory() = default;

DiagService** ServiceFactory::CreateServices(const CMPIBroker* broker, const CMPIContext* ctx,
                                             unsigned int& count) {
    std::string dateTime = CMPIUtil::GetDateTimeString(broker);
    std::string systemName = CMPIUtil::GetSystemName(broker, ctx);
    // The services carry the name the provider's elements and paths carry: where the object
    // manager names no system, the name the provider settled on instead.
    const std::string recorded = SystemIdentity::Name();
    if (systemName.empty())
        systemName = recorded;
    else if (recorded.empty())
        SystemIdentity::Record(systemName);
    return makeServices(dateTime, systemName, count);
}

} // namespace NQORVA20
