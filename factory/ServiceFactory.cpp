#include "factory/ServiceFactory.h"

#include "instance/CMPIUtil.h"

namespace NQORVA20 {

ServiceFactory::~ServiceFactory() = default;

DiagService** ServiceFactory::CreateServices(const CMPIBroker* broker, const CMPIContext* ctx,
                                             unsigned int& count) {
    std::string dateTime = CMPIUtil::GetDateTimeString(broker);
    std::string systemName = CMPIUtil::GetSystemName(broker, ctx);
    return makeServices(dateTime, systemName, count);
}

} // namespace NQORVA20
