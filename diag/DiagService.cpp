#include "diag/DiagService.h"

#include "common/CmpiBoundary.h"
#include "common/CoreLog.h"
#include "instance/CMPIUtil.h"
#include "instance/ClientLimits.h"
#include "instance/InstanceRegistry.h"

#include "diag/DiagUser.h"

#include <cmpift.h>

#include <cctype>
#include <cstdio>
#include <ctime>
#include <memory>

namespace NQORVA20 {

namespace {

CMPIStatus invalidElement(const CMPIBroker* broker) {
    return CmpiBoundary::status(broker, CMPI_RC_ERR_INVALID_PARAMETER,
                                "RunDiagnostic needs the reference argument \"ManagedElement\"");
}

// The date-time text one microsecond later, the UTC offset kept; empty for a text that is not a
// 25-character CIM timestamp.
std::string oneMicrosecondLater(const std::string& text) {
    if (text.size() != 25 || text[14] != '.' || (text[21] != '+' && text[21] != '-'))
        return {};
    for (std::size_t i : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 17, 18, 19, 20})
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return {};
    auto number = [&](std::size_t at, std::size_t digits) {
        return std::stol(text.substr(at, digits));
    };
    long micros = number(15, 6) + 1;
    std::tm fields{};
    fields.tm_year = static_cast<int>(number(0, 4)) - 1900;
    fields.tm_mon = static_cast<int>(number(4, 2)) - 1;
    fields.tm_mday = static_cast<int>(number(6, 2));
    fields.tm_hour = static_cast<int>(number(8, 2));
    fields.tm_min = static_cast<int>(number(10, 2));
    fields.tm_sec = static_cast<int>(number(12, 2));
    std::time_t seconds = timegm(&fields);
    if (micros == 1000000) {
        micros = 0;
        ++seconds;
    }
    std::tm later{};
    if (gmtime_r(&seconds, &later) == nullptr)
        return {};
    char out[96];
    std::snprintf(out, sizeof out, "%04d%02d%02d%02d%02d%02d.%06ld", later.tm_year + 1900,
                  later.tm_mon + 1, later.tm_mday, later.tm_hour, later.tm_min, later.tm_sec,
                  micros);
    return std::string(out) + text.substr(21);
}

} // namespace

std::string DiagService::uniqueCompletionTime(std::string completed) {
    // A record's path ends with its completion time: two runs that finish within one tick of
    // the clock would otherwise file their records under one path, and the later would replace
    // the earlier. A time not after the last one used moves to one microsecond after it.
    std::lock_guard<std::mutex> lock(completionMutex_);
    if (completed.size() == 25 && lastCompletion_.size() == 25 &&
        completed.compare(21, 4, lastCompletion_, 21, 4) == 0 && completed <= lastCompletion_) {
        std::string later = oneMicrosecondLater(lastCompletion_);
        if (!later.empty())
            completed = std::move(later);
    }
    lastCompletion_ = completed;
    return completed;
}

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
    if (methodName != "RunDiagnostic")
        return CmpiBoundary::status(CMPI_RC_ERR_METHOD_NOT_FOUND);
    InstanceRegistry* registry = InstanceRegistry::Singleton();

    // The element must be a non-null reference; anything else is refused before the run.
    if (!CmpiBoundary::usable(in))
        return invalidElement(broker);
    CMPIData element = in->ft->getArg(in, "ManagedElement", nullptr);
    if (element.type != CMPI_ref || (element.state & CMPI_nullValue) ||
        element.value.ref == nullptr)
        return invalidElement(broker);

    const std::string tooLarge = ClientLimits::Exceeded(element.value.ref);
    if (!tooLarge.empty())
        return ClientLimits::Refusal(broker, "the ManagedElement", tooLarge);

    std::string elementPath = CMPIUtil::GetObjectPathString(element.value.ref);
    coreLog(broker, LogDebug, "^^^^ opString = " + elementPath);

    DiagUser managedElement;
    CMPIUtil::ParseObjectPath(elementPath, managedElement);
    managedElement.setLocation(element.value.ref);
    auto record = std::make_unique<DiagnosticRecord>(recordClassName);

    const unsigned int returnValue = runTest(&managedElement, record.get());

    CmpiBoundary::returnUint32(result, returnValue);
    CmpiBoundary::returnDone(result);

    const std::string completed = uniqueCompletionTime(CMPIUtil::GetDateTimeString(broker));
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
    // The test ran and its value went out, but without a record nothing describes the run.
    if (!published)
        return CmpiBoundary::status(broker, CMPI_RC_ERR_FAILED,
                                    "RunDiagnostic could not publish the record of its run");
    return CmpiBoundary::status(CMPI_RC_OK);
}

} // namespace NQORVA20
