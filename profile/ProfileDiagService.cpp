#include "profile/ProfileDiagService.h"

#include "profile/ProfileModule.h"

namespace NQORVA20::profile {

ProfileDiagService::ProfileDiagService(std::string className, std::string recordClassName,
                                       std::string auxText, std::string installDate,
                                       std::string systemName, Traits traits)
    : DiagService(std::move(className), std::move(recordClassName), std::move(auxText),
                  std::move(installDate), std::move(systemName)),
      traits_(traits),
      records_(std::make_unique<RecordLog>(traits.logSize,
                                           traits.logWraps ? RecordLog::Overwrite::Wraps
                                                           : RecordLog::Overwrite::Never,
                                           ProfileModule::current().clock())) {
    ProfileModule::current().addService(this);
}

ProfileDiagService::~ProfileDiagService() {
    ProfileModule::current().removeService(this);
}

std::string ProfileDiagService::serviceName() {
    auto it = find("Name");
    return it != end() ? it->second : std::string();
}

void ProfileDiagService::setLogInstanceId(std::string id) {
    std::lock_guard<std::mutex> lock(logIdMutex_);
    logInstanceId_ = std::move(id);
}

std::string ProfileDiagService::logInstanceId() const {
    std::lock_guard<std::mutex> lock(logIdMutex_);
    return logInstanceId_;
}

void ProfileDiagService::describeCapabilities(InstanceImpl& capabilities) const {
    // SupportedServiceModes: 2 PercentOfTestCoverage, 3 QuickMode, 4 HaltOnError,
    // 5 ResultPersistence, 7 NonDestructive.
    capabilities["SupportedServiceModes"] = traits_.destructive ? "2,3,4,5" : "2,3,4,5,7";
    // SupportedLoopControl: 2 Continuous, 3 Count, 4 Timer, 5 ErrorCount.
    capabilities["SupportedLoopControl"] = "2,3,4,5";
    // SupportedExecutionControls: 3 Kill Job, 5 Terminate Job.
    capabilities["SupportedExecutionControls"] = "3,5";
    // SupportedLogStorage: 2 DiagnosticLog.
    capabilities["SupportedLogStorage"] = "2";
    // None of these is "Other", so no entry has a description.
    for (const char* other :
         {"OtherSupportedServiceModesDescriptions", "OtherSupportedLoopControlDescriptions",
          "OtherSupportedExecutionControlsDescriptions", "OtherSupportedLogStorageDescriptions"})
        capabilities[other] = "";
}

CMPIStatus ProfileDiagService::invokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                                            const CMPIResult* result,
                                            const CMPIObjectPath* objectPath,
                                            std::string methodName, const CMPIArgs* in,
                                            CMPIArgs* out) {
    if (methodName == "RunDiagnosticService")
        return ProfileModule::current().runService(*this, broker, context, result, objectPath, in,
                                                   out);
    return DiagService::invokeMethod(broker, context, result, objectPath, std::move(methodName), in,
                                     out);
}

} // namespace NQORVA20::profile
