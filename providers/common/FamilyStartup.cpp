#include "providers/common/FamilyStartup.h"

#include "diag/DiagServiceCapabilitiesData.h"
#include "diag/DiagServiceSettingData.h"
#include "diag/UseOfLog.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"
#include "instance/SystemIdentity.h"
#include "profile/ProfileDiagService.h"
#include "providers/common/DiagnosticLog.h"
#include "providers/common/HostName.h"
#include "providers/common/ProviderLog.h"
#include "providers/common/PublishInstance.h"
#include "providers/common/PublishedUsersFactory.h"

#include <memory>
#include <vector>

namespace NQORVA20::providers {

namespace {

// Publishes one of a service's companions; true when it was filed.
bool publishCompanion(const CMPIBroker* broker, const CMPIContext* ctx,
                      std::unique_ptr<InstanceImpl> object) {
    const std::string what = "an instance of " + object->getClassName();
    return publishInstance(broker, ctx, object.release(), what);
}

} // namespace

FamilyStartup::FamilyStartup(Classes classes) : classes_(std::move(classes)) {}

std::string FamilyStartup::systemName(const CMPIBroker* broker, const CMPIContext* ctx) {
    std::string name = CMPIUtil::GetSystemName(broker, ctx);
    if (name.empty()) {
        name = HostName::fullyQualified();
        ProviderLog::write(broker, ProviderLog::Warning,
                           "no ZORQ_ComputerSystem answered; using the host name " + name);
    }
    // Services, elements and the host of every path agree on it.
    SystemIdentity::Record(name);
    return name;
}

void FamilyStartup::publishCompanions(const CMPIBroker* broker, const CMPIContext* ctx,
                                      DiagService& service) {
    const std::string serviceName = service.get("Name");
    const std::string servicePath = service.getObjectPath();

    auto setting = std::make_unique<DiagServiceSettingData>(classes_.setting);
    (*setting)["InstanceID"] = "ZORQ:" + serviceName + ":DefaultSetting";
    (*setting)["ElementName"] = serviceName + " default setting";
    (*setting)["Caption"] = "Default setting of " + serviceName;
    publishCompanion(broker, ctx, std::move(setting));

    auto capabilities = std::make_unique<DiagServiceCapabilitiesData>(classes_.capabilities);
    (*capabilities)["InstanceID"] = "ZORQ:" + serviceName + ":Capabilities";
    (*capabilities)["ElementName"] = serviceName + " capabilities";
    (*capabilities)["Caption"] = "Capabilities of " + serviceName;
    auto* profiled = dynamic_cast<profile::ProfileDiagService*>(&service);
    if (profiled != nullptr)
        profiled->describeCapabilities(*capabilities);
    publishCompanion(broker, ctx, std::move(capabilities));

    auto log = std::make_unique<DiagnosticLog>(classes_.log, serviceName);
    InstanceImpl& logObject = *log;
    // The profile layer files the records of its runs under this log.
    if (profiled != nullptr)
        profiled->setLogInstanceId(logObject.get("InstanceID"));
    if (!publishCompanion(broker, ctx, std::move(log)) || servicePath.empty())
        return; // an association with a dangling end would mislead more than help
    auto useOfLog = std::make_unique<UseOfLog>(classes_.useOfLog);
    (*useOfLog)["Antecedent"] = logObject.getObjectPath();
    (*useOfLog)["Dependent"] = servicePath;
    publishCompanion(broker, ctx, std::move(useOfLog));
}

profile::ProfileClasses FamilyStartup::profileClasses(const std::string& stem,
                                                      const Classes& classes) {
    profile::ProfileClasses c;
    c.job = stem + "DiagJob";
    c.completionRecord = stem + "DiagCompletionRecord";
    c.settingRecord = stem + "DiagSettingDataRecord";
    c.owningJob = stem + "OwningJobElement";
    c.affectedJob = stem + "AffectedJobElement";
    c.correspondingSetting = stem + "CorrespondingSettingDataRecord";
    c.logManagesRecord = stem + "LogManagesRecord";
    c.recordAppliesTo = stem + "RecordAppliesToElement";
    c.registeredProfile = stem + "RegisteredProfile";
    c.conformsToProfile = stem + "ElementConformsToProfile";
    c.log = classes.log;
    c.available = classes.available;
    c.setting = classes.setting;
    return c;
}

unsigned int FamilyStartup::run(const CMPIBroker* broker, const CMPIContext* ctx,
                                ServiceFactory& factory) {
    unsigned int count = 0;
    DiagService** table = factory.CreateServices(broker, ctx, count);
    if (table == nullptr)
        return 0;
    std::vector<DiagService*> services(table, table + count);
    delete[] table;

    unsigned int registered = 0;
    InstanceRegistry* registry = InstanceRegistry::Singleton();
    for (DiagService* service : services) {
        if (service == nullptr)
            continue;
        if (!publishInstance(broker, ctx, service)) {
            ProviderLog::write(broker, ProviderLog::Error,
                               "could not publish the service " + service->get("Name"));
            continue;
        }
        ++registered;
        publishCompanions(broker, ctx, *service);

        std::vector<CMPIInstance*> existing;
        registry->GetCMPIInstances(broker, classes_.available, existing);
        PublishedUsersFactory associations;
        associations.CreateAvailableServices(broker, ctx, service, classes_.element,
                                             classes_.available,
                                             static_cast<unsigned int>(existing.size()) + 1, 1);
    }
    ProviderLog::write(broker, ProviderLog::Info,
                       "published " + std::to_string(registered) + " services testing " +
                           classes_.element);
    return registered;
}

} // namespace NQORVA20::providers
