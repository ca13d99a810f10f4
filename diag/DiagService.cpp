#include "diag/DiagService.h"

#include "common/CoreLog.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

#include "diag/DiagUser.h"

#include <cmpift.h>

#include <memory>

namespace NQORVA20 {

namespace {

CMPIStatus invalidElement(const CMPIBroker* broker) {
    CMPIStatus status = {CMPI_RC_ERR_INVALID_PARAMETER, nullptr};
    if (broker != nullptr && broker->eft != nullptr)
        status.msg = broker->eft->newString(
            broker, "RunDiagnostic needs the reference argument \"ManagedElement\"", nullptr);
    return status;
}

} // namespace

DiagService::DiagService(std::string className, std::string recordClassName, std::string auxText,
                         std::string installDate, std::string systemName)
    : InstanceImpl(std::move(className)), recordClassName(std::move(recordClassName)),
      auxText(std::move(auxText)), installDate(std::move(installDate)),
      systemName(std::move(systemName)) {
    DiagService::init();
}

DiagService::~DiagService() = default;

void DiagService::init() {
    get("InstallDate") = installDate;
    get("OperationalStatus") = "2";
    get("StatusDescriptions") = "Status OK";
    get("Status") = "OK";
    get("EnabledState") = "2";
    get("OtherEnabledState") = "Enabled";
    get("RequestedState") = "5";
    get("EnabledDefault") = "2";
    get("TimeOfLastStateChange") = "0";
    get("SystemCreationClassName") = "ZORQ_ComputerSystem";
    get("SystemName") = systemName;
    get("CreationClassName") = getClassName();
    get("PrimaryOwnerName") = "Tarvek";
    get("PrimaryOwnerContact") = "Tarvek";
    get("StartMode") = "Automatic";
    get("Started") = "1";
}

CMPIStatus DiagService::invokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                                     const CMPIResult* result, const CMPIObjectPath*,
                                     std::string methodName, const CMPIArgs* in, CMPIArgs*) {
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    if (methodName != "RunDiagnostic") {
        status.rc = CMPI_RC_ERR_METHOD_NOT_FOUND;
        return status;
    }
    InstanceRegistry* registry = InstanceRegistry::Singleton();

    // The element must be a non-null reference; anything else is refused before the run.
    if (in == nullptr || in->ft == nullptr)
        return invalidElement(broker);
    CMPIData element = in->ft->getArg(in, "ManagedElement", nullptr);
    if (element.type != CMPI_ref || (element.state & CMPI_nullValue) ||
        element.value.ref == nullptr)
        return invalidElement(broker);

    std::string elementPath = CMPIUtil::GetObjectPathString(element.value.ref);
    coreLog(broker, LogDebug, "^^^^ opString = " + elementPath);

    DiagUser managedElement;
    CMPIUtil::ParseObjectPath(elementPath, managedElement);
    auto record = std::make_unique<DiagnosticRecord>(recordClassName);

    const unsigned int returnValue = runTest(&managedElement, record.get());

    if (result != nullptr && result->ft != nullptr) {
        CMPIValue value;
        value.uint32 = returnValue;
        result->ft->returnData(result, &value, CMPI_uint32);
        result->ft->returnDone(result);
    }

    const std::string completed = CMPIUtil::GetDateTimeString(broker);
    std::string caption, description, elementName, serviceName, instanceId;
    {
        // Reading the service's properties inserts the missing ones: one run at a time.
        std::lock_guard<std::mutex> lock(propertyMutex_);
        caption = "Result for " + get("Caption");
        description = "Result for " + get("Description");
        elementName = "Result for " + get("ElementName");
        serviceName = get("Name");
        instanceId = getClassName() + ":" + get("Name") + ":" + completed;
    }
    (*record)["Caption"] = caption;
    (*record)["Description"] = description;
    (*record)["ElementName"] = elementName;
    (*record)["ServiceName"] = serviceName;
    (*record)["ManagedElementName"] = managedElement["DeviceID"];
    (*record)["InstanceID"] = instanceId;
    (*record)["CreationTimeStamp"] = completed;

    // The registry keeps the record from here on, served or not; should registering throw, the
    // record is still ours to free.
    // Only a filed record is given its object-path text, and a new record has none before.
    registry->RegisterInstance(broker, context, record.get());
    const bool published = !record.release()->getObjectPath().empty();
    if (!published) {
        // The test ran and its value went out, but no record describes the run.
        status.rc = CMPI_RC_ERR_FAILED;
        if (broker != nullptr && broker->eft != nullptr)
            status.msg = broker->eft->newString(
                broker, "RunDiagnostic could not publish the record of its run", nullptr);
    }
    return status;
}

} // namespace NQORVA20
