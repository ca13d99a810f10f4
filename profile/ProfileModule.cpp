#include "profile/ProfileModule.h"

#include "builder/InstanceBuilder.h"
#include "common/CmpiBoundary.h"
#include "common/Constants.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"
#include "profile/EmbeddedInstance.h"
#include "profile/EmbeddedInstanceWriter.h"
#include "profile/ProfileDiagService.h"
#include "profile/RecordFields.h"
#include "profile/RunSettings.h"
#include "profile/ServiceRun.h"

#include <cmpift.h>

#include <strings.h>

#include <algorithm>
#include <exception>

namespace NQORVA20::profile {

namespace {

bool sameName(const std::string& a, const char* b) {
    return b != nullptr && strcasecmp(a.c_str(), b) == 0;
}

bool sameName(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::string nameSpaceOf(const CMPIObjectPath* op) {
    std::string ns = CmpiBoundary::nameSpace(op);
    return ns.empty() ? std::string(cimNameSpace) : ns;
}

// Whether className is ancestor or derives from it, as the broker knows the classes.
bool isA(const CMPIBroker* broker, const std::string& ns, const std::string& className,
         const char* ancestor) {
    if (ancestor == nullptr || sameName(className, ancestor))
        return true;
    if (!CmpiBoundary::brokerUsable(broker))
        return false;
    CMPIObjectPath* path = CmpiBoundary::newPath(broker, className.c_str(), ns.c_str());
    return path != nullptr && broker->eft->classPathIsA(broker, path, ancestor, nullptr) != 0;
}

// The object a kept path text names: class and key bindings.
ObjectName nameFromText(std::string text) {
    ParseInstanceImpl parsed;
    CMPIUtil::ParseObjectPath(text, parsed);
    ObjectName name{parsed.getClassName(), {}, {}};
    for (const auto& [key, value] : parsed)
        name.keys.emplace_back(key, value);
    return name;
}

// Hands an instance or its path to the result.
void deliver(const CMPIBroker* broker, const CMPIResult* result, const CimObject& object,
             const std::string& ns, bool names) {
    if (!CmpiBoundary::usable(result))
        return;
    if (names) {
        CmpiBoundary::returnPath(result, object.name().toPath(broker, ns.c_str()));
        return;
    }
    if (CMPIInstance* inst = object.toInstance(broker, ns.c_str()))
        result->ft->returnInstance(result, inst);
}

// Runs an answer of the layer, turning whatever it throws into CMPI_RC_ERR_FAILED: no exception
// reaches the object manager.
template <class Body>
CMPIStatus answered(const CMPIBroker* broker, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        return CmpiBoundary::status(broker, CMPI_RC_ERR_FAILED, e.what());
    } catch (...) {
        return CmpiBoundary::status(CMPI_RC_ERR_FAILED);
    }
}

// Tells the administrator why a run was refused: the method's return value cannot say.
void logRefusal(const CMPIBroker* broker, ProfileDiagService& service, const std::string& why) {
    if (!CmpiBoundary::brokerUsable(broker) || broker->eft->logMessage == nullptr)
        return;
    const std::string text =
        "RunDiagnosticService of " + service.serviceName() + " refused: " + why;
    broker->eft->logMessage(broker, CMPI_SEV_INFO, "diagprofile", text.c_str(), nullptr);
}

} // namespace

ProfileModule& ProfileModule::current() {
    // Never destroyed: services registered in the core's registry outlive every static.
    static ProfileModule* module = new ProfileModule;
    return *module;
}

ProfileModule::ProfileModule() : jobs_(clock_) {}

bool ProfileModule::configure(const ProfileClasses& classes) noexcept {
    try {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!configured_.load()) {
            classes_ = classes;
            configured_.store(true);
        }
        return true;
    } catch (...) {
        return false;
    }
}

void ProfileModule::addService(ProfileDiagService* service) {
    std::lock_guard<std::mutex> lock(mutex_);
    services_.push_back(service);
}

void ProfileModule::removeService(ProfileDiagService* service) {
    std::lock_guard<std::mutex> lock(mutex_);
    services_.erase(std::remove(services_.begin(), services_.end(), service), services_.end());
}

std::vector<ProfileDiagService*> ProfileModule::services() {
    std::lock_guard<std::mutex> lock(mutex_);
    return services_;
}

bool ProfileModule::serves(const CMPIObjectPath* op) const {
    if (!configured_.load())
        return false;
    const std::string className = CMPIUtil::GetClassName(op);
    for (const std::string& served : classes_.served())
        if (!served.empty() && sameName(className, served))
            return true;
    return false;
}

bool ProfileModule::completesLog(const CMPIObjectPath* op) const {
    return configured_.load() && !classes_.log.empty() &&
           sameName(CMPIUtil::GetClassName(op), classes_.log);
}

void ProfileModule::completeLog(CMPIInstance* log) noexcept {
    try {
        if (!CmpiBoundary::usable(log))
            return;
        const CMPIData id = log->ft->getProperty(log, "InstanceID", nullptr);
        if (id.type != CMPI_string || (id.state & CMPI_nullValue))
            return;
        const std::string instanceId = CmpiBoundary::text(id.value.string);
        for (ProfileDiagService* service : services()) {
            if (service->logInstanceId() != instanceId)
                continue;
            RecordLog& records = service->records();
            CMPIValue value;
            value.uint64 = records.maxEntries();
            log->ft->setProperty(log, "MaxNumberOfRecords", &value, CMPI_uint64);
            value.uint64 = records.size();
            log->ft->setProperty(log, "CurrentNumberOfRecords", &value, CMPI_uint64);
            // OverwritePolicy: 2 Wraps When Full, 7 Never Overwrites.
            value.uint16 = records.policy() == RecordLog::Overwrite::Wraps ? 2 : 7;
            log->ft->setProperty(log, "OverwritePolicy", &value, CMPI_uint16);
            return;
        }
    } catch (...) {
        // Out of memory reading the id: the log goes out as the core keeps it.
    }
}

bool ProfileModule::handlesMethod(const CMPIObjectPath* op, const char* method) const {
    if (!configured_.load() || method == nullptr)
        return false;
    const std::string className = CMPIUtil::GetClassName(op);
    if (sameName(className, classes_.job))
        return sameName("RequestStateChange", method) || sameName("GetError", method);
    return sameName(className, classes_.log) && sameName("ClearLog", method);
}

ObjectName ProfileModule::serviceName(ProfileDiagService& service) const {
    return nameFromText(service.getObjectPath());
}

ObjectName ProfileModule::logName(ProfileDiagService& service) const {
    return ObjectName{classes_.log, {{"InstanceID", service.logInstanceId()}}, {}};
}

ObjectName ProfileModule::profileName() const {
    return ObjectName{
        classes_.registeredProfile, {{"InstanceID", classes_.job + ":Diagnostics"}}, {}};
}

ProfileDiagService* ProfileModule::serviceByLog(const ObjectName& log) {
    for (ProfileDiagService* service : services())
        if (logName(*service).matches(log))
            return service;
    return nullptr;
}

std::vector<CimObject> ProfileModule::objects(const std::string& className) {
    std::vector<CimObject> out;
    const ProfileClasses& c = classes_;
    auto association = [&](const std::string& cls, const char* fromRole, ObjectName from,
                           const char* toRole, ObjectName to) {
        out.emplace_back(
            ObjectName{cls, {}, {{fromRole, std::move(from)}, {toRole, std::move(to)}}});
    };
    auto jobName = [&](const DiagJob& job) {
        return ObjectName{c.job, {{"InstanceID", job.identity().instanceId}}, {}};
    };
    if (sameName(className, c.job) || sameName(className, c.owningJob) ||
        sameName(className, c.affectedJob)) {
        for (const auto& job : jobs_.all()) {
            if (sameName(className, c.job))
                out.push_back(job->toObject(c.job));
            else if (sameName(className, c.owningJob))
                association(c.owningJob, "OwningElement", job->identity().service, "OwnedElement",
                            jobName(*job));
            else
                association(c.affectedJob, "AffectedElement", job->identity().element,
                            "AffectingElement", jobName(*job));
        }
        return out;
    }
    if (sameName(className, c.registeredProfile)) {
        CimObject profile(profileName());
        profile.uint16("RegisteredOrganization", 2)
            .text("RegisteredName", "Diagnostics")
            .text("RegisteredVersion", "2.0.0")
            .uint16s("AdvertiseTypes", {2})
            .text("ElementName", "Diagnostics 2.0.0");
        out.push_back(std::move(profile));
        return out;
    }
    const std::vector<ProfileDiagService*> all = services();
    if (sameName(className, c.conformsToProfile)) {
        for (ProfileDiagService* service : all)
            association(c.conformsToProfile, "ConformantStandard", profileName(), "ManagedElement",
                        serviceName(*service));
        return out;
    }
    for (ProfileDiagService* service : all) {
        for (const RecordLog::Entry& entry : service->records().entries()) {
            const ObjectName completion{c.completionRecord, {{"InstanceID", entry.id}}, {}};
            const ObjectName setting{
                c.settingRecord, {{"InstanceID", RecordFields::settingId(entry)}}, {}};
            const ObjectName element = nameFromText(entry.elementPath);
            if (sameName(className, c.completionRecord))
                out.push_back(RecordFields::object(completion, entry.completion));
            else if (sameName(className, c.settingRecord))
                out.push_back(RecordFields::object(setting, entry.setting));
            else if (sameName(className, c.correspondingSetting))
                association(c.correspondingSetting, "DataRecord", completion, "SettingsRecord",
                            setting);
            else if (sameName(className, c.recordAppliesTo)) {
                association(c.recordAppliesTo, "Antecedent", completion, "Dependent", element);
                association(c.recordAppliesTo, "Antecedent", setting, "Dependent", element);
            } else if (sameName(className, c.logManagesRecord) &&
                       !service->logInstanceId().empty()) {
                association(c.logManagesRecord, "Log", logName(*service), "Record", completion);
                association(c.logManagesRecord, "Log", logName(*service), "Record", setting);
            }
        }
    }
    return out;
}

CMPIStatus ProfileModule::enumerate(const CMPIBroker* broker, const CMPIResult* result,
                                    const CMPIObjectPath* op, bool names) noexcept {
    return answered(broker, [&] {
        const std::string ns = nameSpaceOf(op);
        for (const CimObject& object : objects(CMPIUtil::GetClassName(op)))
            deliver(broker, result, object, ns, names);
        CmpiBoundary::returnDone(result);
        return CmpiBoundary::status(CMPI_RC_OK);
    });
}

CMPIStatus ProfileModule::get(const CMPIBroker* broker, const CMPIResult* result,
                              const CMPIObjectPath* op) noexcept {
    return answered(broker, [&] {
        const ObjectName wanted = ObjectName::fromPath(op);
        std::vector<CimObject> candidates;
        if (sameName(wanted.className, classes_.job)) {
            // A client polling its job is the common read: found by key, not among every job.
            for (const auto& [key, value] : wanted.keys)
                if (sameName(key, "InstanceID"))
                    if (std::shared_ptr<DiagJob> job = jobs_.find(value))
                        candidates.push_back(job->toObject(classes_.job));
        } else {
            candidates = objects(wanted.className);
        }
        for (const CimObject& object : candidates)
            if (object.name().matches(wanted)) {
                deliver(broker, result, object, nameSpaceOf(op), false);
                CmpiBoundary::returnDone(result);
                return CmpiBoundary::status(CMPI_RC_OK);
            }
        return CmpiBoundary::status(broker, CMPI_RC_ERR_NOT_FOUND,
                                    ("no " + wanted.text() + " (any more)").c_str());
    });
}

CMPIStatus ProfileModule::associations(const CMPIBroker* broker, const CMPIResult* result,
                                       const Walk& walk) noexcept {
    return answered(broker, [&] {
        if (!configured_.load())
            return CmpiBoundary::status(CMPI_RC_OK);
        const ObjectName source = ObjectName::fromPath(walk.source);
        const std::string ns = nameSpaceOf(walk.source);
        const ProfileClasses& c = classes_;
        for (const std::string& assocClass :
             {c.owningJob, c.affectedJob, c.correspondingSetting, c.logManagesRecord,
              c.recordAppliesTo, c.conformsToProfile}) {
            if (assocClass.empty() || !isA(broker, ns, assocClass, walk.assocClass))
                continue;
            for (const CimObject& association : objects(assocClass)) {
                const auto refs = association.references();
                for (const auto& [role, end] : refs) {
                    if ((walk.role != nullptr && !sameName(role, walk.role)) ||
                        !end->matches(source))
                        continue;
                    if (walk.references) {
                        deliver(broker, result, association, ns, walk.names);
                        continue;
                    }
                    for (const auto& [otherRole, other] : refs) {
                        if (other == end ||
                            (walk.resultRole != nullptr && !sameName(otherRole, walk.resultRole)) ||
                            !isA(broker, ns, other->className, walk.resultClass))
                            continue;
                        deliverEnd(broker, result, *other, ns, walk.names);
                    }
                }
            }
        }
        return CmpiBoundary::status(CMPI_RC_OK);
    });
}

void ProfileModule::deliverEnd(const CMPIBroker* broker, const CMPIResult* result,
                               const ObjectName& end, const std::string& ns, bool names) {
    if (names) {
        CmpiBoundary::returnPath(result, end.toPath(broker, ns.c_str()));
        return;
    }
    // One of the layer's objects, as it is now; or one the core keeps, copied for the answer.
    for (const CimObject& object : objects(end.className))
        if (object.name().matches(end)) {
            deliver(broker, result, object, ns, false);
            return;
        }
    CMPIObjectPath* path = end.toPath(broker, ns.c_str());
    CMPIInstance* kept =
        path ? InstanceRegistry::Singleton()->GetCMPIInstance(broker, path) : nullptr;
    if (!CmpiBoundary::usable(kept) || !CmpiBoundary::usable(result))
        return;
    CMPIInstance* copy = kept->ft->clone(kept, nullptr);
    if (!CmpiBoundary::usable(copy))
        return;
    result->ft->returnInstance(result, copy);
    CmpiBoundary::release(copy);
}

CMPIStatus ProfileModule::invoke(const CMPIBroker* broker, const CMPIResult* result,
                                 const CMPIObjectPath* op, const char* method, const CMPIArgs* in,
                                 CMPIArgs* out) noexcept {
    return answered(broker, [&] {
        const ObjectName target = ObjectName::fromPath(op);
        std::uint32_t returned = 0;
        if (sameName(target.className, classes_.log)) {
            ProfileDiagService* service = serviceByLog(target);
            if (service == nullptr)
                returned = 1; // a log the layer does not keep
            else
                service->records().clear();
        } else {
            std::string id;
            for (const auto& [key, value] : target.keys)
                if (sameName(key, "InstanceID"))
                    id = value;
            std::shared_ptr<DiagJob> job = jobs_.find(id);
            if (!job)
                return CmpiBoundary::status(broker, CMPI_RC_ERR_NOT_FOUND,
                                            ("no job " + id + " (any more)").c_str());
            if (sameName("RequestStateChange", method)) {
                CMPIData requested = CmpiBoundary::usable(in)
                                         ? in->ft->getArg(in, "RequestedState", nullptr)
                                         : CMPIData{};
                if (requested.type != CMPI_uint16 || (requested.state & CMPI_nullValue))
                    returned = 5;
                else
                    returned = job->requestStateChange(requested.value.uint16);
            } else if (job->state() == DiagJob::State::Exception && CmpiBoundary::usable(out)) {
                const std::string error =
                    EmbeddedInstanceWriter("CIM_Error")
                        .property("ErrorType", "uint16", "4") // Software Error
                        .property("PerceivedSeverity", "uint16", "5")
                        .property("OwningEntity", "string", classes_.job)
                        .property("MessageID", "string", "DIAG1")
                        .property("Message", "string", job->errorDescription())
                        .property("CIMStatusCode", "uint32", "1")
                        .text();
                CMPIValue value;
                value.string = CmpiBoundary::newString(broker, error.c_str());
                if (value.string != nullptr)
                    out->ft->addArg(out, "Error", &value, CMPI_string);
            }
        }
        CmpiBoundary::returnUint32(result, returned);
        CmpiBoundary::returnDone(result);
        return CmpiBoundary::status(CMPI_RC_OK);
    });
}

bool ProfileModule::availableTo(const CMPIBroker* broker, ProfileDiagService& service,
                                const ObjectName& element) {
    std::vector<CMPIInstance*> associations;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker, classes_.available, associations);
    const ObjectName serviceObject = serviceName(service);
    for (CMPIInstance* association : associations) {
        if (!CmpiBoundary::usable(association))
            continue;
        CMPIData provided = association->ft->getProperty(association, "ServiceProvided", nullptr);
        CMPIData user = association->ft->getProperty(association, "UserOfService", nullptr);
        if (provided.type == CMPI_ref && user.type == CMPI_ref &&
            ObjectName::fromPath(provided.value.ref).matches(serviceObject) &&
            ObjectName::fromPath(user.value.ref).matches(element))
            return true;
    }
    return false;
}

bool ProfileModule::reserve(const ObjectName& element, bool exclusive) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_)
        return false;
    for (const Running& running : running_)
        if (running.element.matches(element) && (running.exclusive || exclusive))
            return false;
    running_.push_back(Running{element, exclusive});
    return true;
}

void ProfileModule::release(const ObjectName& element, bool exclusive) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = running_.begin(); it != running_.end(); ++it)
        if (it->exclusive == exclusive && it->element.matches(element)) {
            running_.erase(it);
            return;
        }
}

std::size_t ProfileModule::running() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return workers_.size();
}

void ProfileModule::joinFinished() {
    std::list<Worker> finished;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto it = workers_.begin(); it != workers_.end();)
            if (it->done->load())
                finished.splice(finished.end(), workers_, it++);
            else
                ++it;
    }
    for (Worker& worker : finished)
        worker.thread.join();
}

CMPIStatus ProfileModule::runService(ProfileDiagService& service, const CMPIBroker* broker,
                                     const CMPIContext* context, const CMPIResult* result,
                                     const CMPIObjectPath* servicePath, const CMPIArgs* in,
                                     CMPIArgs* out) {
    auto answer = [&](std::uint32_t value) {
        CmpiBoundary::returnUint32(result, value);
        CmpiBoundary::returnDone(result);
        return CmpiBoundary::status(CMPI_RC_OK);
    };
    // Return values: 0 completed within the call, 5 Invalid Parameter, 6 Busy, 4096 the job
    // started.
    joinFinished();
    const CMPIData element =
        CmpiBoundary::usable(in) ? in->ft->getArg(in, "ManagedElement", nullptr) : CMPIData{};
    if (element.type != CMPI_ref || (element.state & CMPI_nullValue) ||
        element.value.ref == nullptr) {
        logRefusal(broker, service, "ManagedElement is not a reference");
        return answer(5);
    }
    ServiceRun::Plan plan;
    plan.element = ObjectName::fromPath(element.value.ref);
    if (!availableTo(broker, service, plan.element)) {
        logRefusal(broker, service,
                   "it is not available to " + EmbeddedInstance::quoted(plan.element.text()));
        return answer(5);
    }
    auto text = [&](const char* name) -> std::optional<std::string> {
        const CMPIData arg = in->ft->getArg(in, name, nullptr);
        if (arg.type != CMPI_string || (arg.state & CMPI_nullValue))
            return std::nullopt;
        return CmpiBoundary::text(arg.value.string);
    };
    try {
        const std::optional<std::string> diagnostic = text("DiagnosticSettings");
        const std::optional<std::string> jobSettings = text("JobSettings");
        plan.settings = RunSettings::read(
            diagnostic ? &*diagnostic : nullptr, jobSettings ? &*jobSettings : nullptr,
            {"CIM_DiagnosticSettingData", classes_.setting}, service.traits().resultPersistence);
    } catch (const SettingsError& e) {
        logRefusal(broker, service, e.what());
        return answer(5);
    }
    if (plan.settings.nonDestructive && service.traits().destructive) {
        logRefusal(broker, service, "its test is destructive and NonDestructive was asked for");
        return answer(5);
    }
    if (!service.records().hasRoom() || running() >= maxRunning)
        return answer(6);
    const bool exclusive = service.traits().exclusive;
    if (!reserve(plan.element, exclusive))
        return answer(6);

    DiagJob::Identity identity;
    identity.service = nameFromText(service.getObjectPath());
    identity.element = plan.element;
    identity.deleteOnCompletion = plan.settings.deleteOnCompletion;
    identity.timeBeforeRemoval = plan.settings.timeBeforeRemoval;
    identity.name = "RunDiagnosticService " + service.serviceName();
    plan.job = jobs_.add(classes_.job + ":", std::move(identity));
    plan.settingsText = plan.settings.embeddedText(classes_.setting);
    plan.service = &service;
    plan.broker = broker;
    plan.context = CmpiBoundary::brokerUsable(broker) && broker->bft != nullptr
                       ? broker->bft->prepareAttachThread(broker, context)
                       : nullptr;
    auto done = std::make_shared<std::atomic<bool>>(false);
    const ObjectName reserved = plan.element;
    plan.done = [this, reserved, exclusive, done] {
        release(reserved, exclusive);
        done->store(true);
    };
    const std::shared_ptr<DiagJob> job = plan.job;
    try {
        std::lock_guard<std::mutex> lock(mutex_);
        workers_.push_back(Worker{std::thread(ServiceRun(std::move(plan))), done});
    } catch (...) {
        release(reserved, exclusive);
        job->finished("the run could not be started");
        throw;
    }
    if (CmpiBoundary::usable(out)) {
        CMPIValue value;
        value.ref =
            ObjectName{classes_.job, {{"InstanceID", job->identity().instanceId}}, {}}.toPath(
                broker, nameSpaceOf(servicePath).c_str());
        if (value.ref != nullptr)
            out->ft->addArg(out, "Job", &value, CMPI_ref);
    }
    // A quick test answers as done; its job stays for the client to read like any other.
    const auto wait = service.traits().completionWait;
    const bool completed =
        wait.count() > 0 && job->waitForEnd(wait) && job->state() == DiagJob::State::Completed;
    return answer(completed ? 0 : 4096);
}

void ProfileModule::shutdown() noexcept {
    std::list<Worker> all;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        all.swap(workers_);
    }
    try {
        for (const auto& job : jobs_.all())
            job->requestStateChange(5);
    } catch (...) {
        // Out of memory listing the jobs: the workers still end when their tests do.
    }
    for (Worker& worker : all)
        if (worker.thread.joinable())
            worker.thread.join();
}

} // namespace NQORVA20::profile
