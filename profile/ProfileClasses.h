// The CIM classes through which one provider module serves the Diagnostics profile: its own
// subclasses of the profile's classes, and the core classes of its family the layer refers to.
#ifndef DIAGPROFILE_PROFILECLASSES_H
#define DIAGPROFILE_PROFILECLASSES_H

#include <string>
#include <vector>

namespace NQORVA20::profile {

struct ProfileClasses {
    // Served by the layer.
    std::string job;                  // CIM_ConcreteJob
    std::string completionRecord;     // CIM_DiagnosticCompletionRecord
    std::string settingRecord;        // CIM_DiagnosticSettingDataRecord
    std::string owningJob;            // CIM_OwningJobElement: service -> job
    std::string affectedJob;          // CIM_AffectedJobElement: job -> element
    std::string correspondingSetting; // CIM_CorrespondingSettingDataRecord: completion -> setting
    std::string logManagesRecord;     // CIM_LogManagesRecord: log -> record
    std::string recordAppliesTo;      // CIM_RecordAppliesToElement: record -> element
    std::string registeredProfile;    // CIM_RegisteredProfile
    std::string conformsToProfile;    // CIM_ElementConformsToProfile: profile -> service
    // The family's own, served by the core.
    std::string log;       // CIM_DiagnosticLog of each service
    std::string available; // CIM_AvailableDiagnosticService: which elements a service tests
    std::string setting;   // CIM_DiagnosticSettingData: what an embedded setting may be

    // The classes the layer answers for.
    std::vector<std::string> served() const {
        return {job,
                completionRecord,
                settingRecord,
                owningJob,
                affectedJob,
                correspondingSetting,
                logManagesRecord,
                recordAppliesTo,
                registeredProfile,
                conformsToProfile};
    }
};

} // namespace NQORVA20::profile

#endif
