#include "factory/AvailServiceFactory.h"

#include "common/CmpiBoundary.h"
#include "diag/AvailableDiagnosticService.h"
#include "diag/DecimalText.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

#include <cmpift.h>

#include <memory>

namespace NQORVA20 {

CMPIEnumeration* AvailServiceFactory::EnumerateUsers(const CMPIBroker* broker,
                                                     const CMPIContext* ctx,
                                                     std::string className) {
    return CmpiBoundary::enumInstances(broker, ctx, className);
}

void AvailServiceFactory::CreateAvailableServices(const CMPIBroker* broker, const CMPIContext* ctx,
                                                  InstanceImpl* service, std::string userClassName,
                                                  std::string associationClassName,
                                                  unsigned int firstEnumOrder,
                                                  unsigned int enumOrderStep) {
    InstanceRegistry* registry = InstanceRegistry::Singleton();
    CMPIEnumeration* users = EnumerateUsers(broker, ctx, userClassName);
    if (service == nullptr)
        return;
    unsigned int order = firstEnumOrder;
    CMPIInstance* user = nullptr;
    while (CmpiBoundary::next(users, &user)) {
        if (user == nullptr)
            continue;
        CMPIObjectPath* userPath = user->ft->getObjectPath(user, nullptr);

        auto association = std::make_unique<AvailableDiagnosticService>(associationClassName);
        (*association)["EstimatedDurationOfService"] = "3";
        (*association)["EstimatedDurationQualifier"] = "0";
        (*association)["ServiceProvided"] = service->getObjectPath();
        (*association)["UserOfService"] = CMPIUtil::GetObjectPathString(userPath);
        (*association)["EnumOrder"] = decimalText(order);
        order += enumOrderStep;
        registry->RegisterInstance(broker, ctx, association.get());
        association.release(); // the registry's now
    }
}

} // namespace NQORVA20
