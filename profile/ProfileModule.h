// The profile layer's state in one provider module, each module having its own: the classes it
// serves, its services, the jobs of their runs and the worker threads running them. Answers the
// layer's calls (its classes' instances and associations, the jobs' methods, ClearLog of a
// service's log) and starts RunDiagnosticService runs. Thread-safe; shutdown() stops every run
// and waits for its worker before the module may go.
#ifndef DIAGPROFILE_PROFILEMODULE_H
#define DIAGPROFILE_PROFILEMODULE_H

#include "profile/CimObject.h"
#include "profile/JobTable.h"
#include "profile/ProfileClasses.h"
#include "profile/ProfileClock.h"

#include <cmpidt.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace NQORVA20::profile {

class ProfileDiagService;

class ProfileModule {
public:
    static ProfileModule& current();

    // Sets the classes once; later calls change nothing. False when that could not be done.
    bool configure(const ProfileClasses& classes) noexcept;
    const ProfileClasses& classes() const { return classes_; }
    ProfileClock& clock() { return clock_; }
    JobTable& jobs() { return jobs_; }

    void addService(ProfileDiagService* service);
    void removeService(ProfileDiagService* service);

    // Whether the path names one of the layer's classes.
    bool serves(const CMPIObjectPath* op) const;
    // Whether the method call is the layer's: a job's RequestStateChange or GetError, or
    // ClearLog of a service's log.
    bool handlesMethod(const CMPIObjectPath* op, const char* method) const;

    // Whether the path names the family's log class, whose instances the core serves and the
    // layer completes with the figures of the service's record log.
    bool completesLog(const CMPIObjectPath* op) const;
    // Sets MaxNumberOfRecords, OverwritePolicy and CurrentNumberOfRecords on the log instance of
    // one of the module's services as its record log is now; leaves any other instance alone.
    void completeLog(CMPIInstance* log) noexcept;

    // The instances (or their paths) of the path's class, as they are now; ends the result.
    CMPIStatus enumerate(const CMPIBroker* broker, const CMPIResult* result,
                         const CMPIObjectPath* op, bool names) noexcept;
    // One instance; CMPI_RC_ERR_NOT_FOUND when it is not (or no longer) there.
    CMPIStatus get(const CMPIBroker* broker, const CMPIResult* result,
                   const CMPIObjectPath* op) noexcept;

    // An association call as the object manager passes it; `references` for References and
    // ReferenceNames, whose class filter is in assocClass.
    struct Walk {
        const CMPIObjectPath* source;
        const char* assocClass;
        const char* resultClass;
        const char* role;
        const char* resultRole;
        bool names;
        bool references;
    };
    // The layer's associations of the source, as the call asks; does not end the result.
    CMPIStatus associations(const CMPIBroker* broker, const CMPIResult* result,
                            const Walk& walk) noexcept;

    CMPIStatus invoke(const CMPIBroker* broker, const CMPIResult* result, const CMPIObjectPath* op,
                      const char* method, const CMPIArgs* in, CMPIArgs* out) noexcept;

    // RunDiagnosticService of the service.
    CMPIStatus runService(ProfileDiagService& service, const CMPIBroker* broker,
                          const CMPIContext* context, const CMPIResult* result,
                          const CMPIObjectPath* servicePath, const CMPIArgs* in, CMPIArgs* out);

    // Runs going at once in one module, each on a thread of its own; a run asked for beyond
    // them is answered Busy, so that no client can make the process grow without bound.
    static constexpr std::size_t maxRunning = 32;

    // Asks every run to stop (Kill) and waits for their workers.
    void shutdown() noexcept;

    // The layer's instances of a class as they are now (the class in any letter case).
    std::vector<CimObject> objects(const std::string& className);

private:
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };

    ProfileModule();
    std::vector<ProfileDiagService*> services();
    ProfileDiagService* serviceByLog(const ObjectName& log);
    ObjectName serviceName(ProfileDiagService& service) const;
    ObjectName logName(ProfileDiagService& service) const;
    ObjectName profileName() const;
    // One end of an association: its path, or the instance (the layer's own as it is now, or
    // a copy of the core's).
    void deliverEnd(const CMPIBroker* broker, const CMPIResult* result, const ObjectName& end,
                    const std::string& ns, bool names);
    void joinFinished();
    std::size_t running() const;
    // Whether the core's availability associations of the family offer the service to the
    // element.
    bool availableTo(const CMPIBroker* broker, ProfileDiagService& service,
                     const ObjectName& element);
    // Reserves the element for a run; false when an exclusive run holds it or this exclusive
    // run cannot have it.
    bool reserve(const ObjectName& element, bool exclusive);
    void release(const ObjectName& element, bool exclusive);

    ProfileClasses classes_;
    std::atomic<bool> configured_{false};
    mutable std::mutex mutex_;
    ProfileClock clock_;
    JobTable jobs_;
    std::vector<ProfileDiagService*> services_;
    std::list<Worker> workers_;
    struct Running {
        ObjectName element;
        bool exclusive;
    };
    std::vector<Running> running_;
    bool stopping_ = false;
};

} // namespace NQORVA20::profile

#endif
