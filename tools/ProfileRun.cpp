#include "tools/ProfileRun.h"

#include "host/Host.h"
#include "host/broker/Broker.h"

#include <cmpift.h>

#include <chrono>
#include <thread>

namespace NQORVA20::tools {

namespace {

const char* stateName(const std::string& state) {
    static const std::pair<const char*, const char*> names[] = {
        {"2", "New"},        {"4", "Running"}, {"6", "Shutting Down"}, {"7", "Completed"},
        {"8", "Terminated"}, {"9", "Killed"},  {"10", "Exception"}};
    for (const auto& [value, name] : names)
        if (state == value)
            return name;
    return "Unknown";
}

} // namespace

ProfileRun::ProfileRun(diaghost::Host& host, const CMPIObjectPath* servicePath,
                       const CMPIObjectPath* elementPath, unsigned loops, std::ostream& progress) {
    const CMPIBroker* broker = host.broker().cmpi();
    diaghost::Host::Arguments args;
    CMPIData element{};
    element.type = CMPI_ref;
    element.value.ref = const_cast<CMPIObjectPath*>(elementPath);
    args.emplace_back("ManagedElement", element);
    if (loops != 0) {
        // Count loops (LoopControl 3) of the given number, in the class every setting derives
        // from.
        const std::string settings =
            "<INSTANCE CLASSNAME=\"CIM_DiagnosticSettingData\"><PROPERTY.ARRAY "
            "NAME=\"LoopControl\" "
            "TYPE=\"uint16\"><VALUE.ARRAY><VALUE>3</VALUE></VALUE.ARRAY></PROPERTY.ARRAY>"
            "<PROPERTY.ARRAY NAME=\"LoopControlParameter\" TYPE=\"string\"><VALUE.ARRAY><VALUE>" +
            std::to_string(loops) + "</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
        CMPIData text{};
        text.type = CMPI_string;
        text.value.string = broker->eft->newString(broker, settings.c_str(), nullptr);
        args.emplace_back("DiagnosticSettings", text);
    }
    call_ = std::make_unique<diaghost::OperationResult>(
        host.invokeMethod(servicePath, "RunDiagnosticService", args));
    const CMPIData job = call_->outArg("Job");
    if (!call_->ok() || job.type != CMPI_ref || (job.state & CMPI_nullValue))
        return;
    const std::string jobPath = host.pathText(job.value.ref);
    std::string last;
    for (;;) {
        job_ = std::make_unique<diaghost::OperationResult>(host.getInstance(jobPath));
        if (!job_->ok() || job_->instance() == nullptr)
            return;
        const std::string state = host.propertyText(job_->instance(), "JobState").value_or("");
        const std::string percent =
            host.propertyText(job_->instance(), "PercentComplete").value_or("0");
        const std::string line = std::string(stateName(state)) + " " + percent + "%";
        if (line != last)
            progress << host.propertyText(job_->instance(), "InstanceID").value_or("job") << ": "
                     << line << "\n"
                     << std::flush;
        last = line;
        if (state != "2" && state != "4" && state != "6")
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    // The completion record the run left: the job's InstanceID followed by ":Completion".
    const std::string recordId =
        host.propertyText(job_->instance(), "InstanceID").value_or("") + ":Completion";
    // The family's record class is named as its job class is: ZORQ_NetDiagJob, ZORQ_NetDiag
    // CompletionRecord.
    const CMPIString* className = job.value.ref->ft->getClassName(job.value.ref, nullptr);
    std::string recordClass = className ? className->ft->getCharPtr(className, nullptr) : "";
    if (recordClass.size() < 3 || recordClass.compare(recordClass.size() - 3, 3, "Job") != 0)
        return;
    recordClass.replace(recordClass.size() - 3, 3, "CompletionRecord");
    records_ = std::make_unique<diaghost::OperationResult>(
        host.enumerateInstances(host.defaultNamespace(), recordClass));
    for (const CMPIInstance* record : records_->instances())
        if (host.propertyText(record, "InstanceID").value_or("") == recordId)
            record_ = record;
}

} // namespace NQORVA20::tools
