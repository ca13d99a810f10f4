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
