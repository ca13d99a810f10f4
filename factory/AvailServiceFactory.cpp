#include "factory/AvailServiceFactory.h"

#include "common/Constants.h"
#include "common/ProviderScope.h"
#include "diag/AvailableDiagnosticService.h"
#include "diag/DecimalText.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

#include <cmpift.h>
#include <cmpimacs.h>

#include <memory>

namespace NQORVA20 {

CMPIEnumeration* AvailServiceFactory::EnumerateUsers(const CMPIBroker* broker,
                                                     const CMPIContext* ctx,
                                                     std::string className) {
    if (broker == nullptr || broker->eft == nullptr || broker->bft == nullptr)
        return nullptr;
    CMPIObjectPath* path =
        broker->eft->newObjectPath(broker, cimNameSpace, className.c_str(), nullptr);
    if (path == nullptr)
        return nullptr;
    ProviderScope::StartupUpcall upcall(className);
    return CBEnumInstances(broker, ctx, path, nullptr, nullptr);
}

void AvailServiceFactory::CreateAvailableServices(const CMPIBroker* broker, const CMPIContext* ctx,
                                                  InstanceImpl* service, std::string userClassName,
                                                  std::string associationClassName,
                                                  unsigned int firstEnumOrder,
                                                  unsigned int enumOrderStep) {
    InstanceRegistry* registry = InstanceRegistry::Singleton();
    CMPIEnumeration* users = EnumerateUsers(broker, ctx, userClassName);
    if (users == nullptr || users->ft == nullptr || service == nullptr)
        return;
    unsigned int order = firstEnumOrder;
    while (users->ft->hasNext(users, nullptr)) {
        CMPIData next = users->ft->getNext(users, nullptr);
        CMPIInstance* user = next.value.inst;
        if (next.type != CMPI_instance || user == nullptr || user->ft == nullptr)
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
