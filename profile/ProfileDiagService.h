// A diagnostic service that serves RunDiagnosticService of the Diagnostics profile beside the
// core's RunDiagnostic: the same runTest, run as a job on a worker thread with the settings the
// client gives, leaving a completion record and the settings it used in the service's bounded
// log. Every other method name goes to DiagService unchanged. A provider derives from it instead
// of DiagService to offer both; the service joins its module's ProfileModule while it lives.
#ifndef DIAGPROFILE_PROFILEDIAGSERVICE_H
#define DIAGPROFILE_PROFILEDIAGSERVICE_H

#include "diag/DiagService.h"
#include "profile/RecordLog.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace NQORVA20::profile {

class ProfileDiagService : public DiagService {
public:
    struct Traits {
        // No other test may run on an element while this one does, nor this one while another.
        bool exclusive = false;
        // The test changes the element: runs asked to be non-destructive are refused.
        bool destructive = false;
        // The log of runs: how many it keeps and whether the oldest makes room for a new one
        // (else a run that finds it full is refused as busy).
        std::size_t logSize = 1000;
        bool logWraps = true;
        // How long a run's records are kept when the client's settings do not say (seconds).
        std::uint32_t resultPersistence = 7 * 24 * 3600;
        // How long RunDiagnosticService waits for a run to end before it answers: a run that
        // completes by then answers 0, any other 4096 (the job goes on).
        std::chrono::milliseconds completionWait{20};
    };

    ProfileDiagService(std::string className, std::string recordClassName, std::string auxText,
                       std::string installDate, std::string systemName, Traits traits);
    ~ProfileDiagService() override;

    // "RunDiagnosticService" is the layer's; everything else is DiagService's.
    CMPIStatus invokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                            const CMPIResult* result, const CMPIObjectPath* objectPath,
                            std::string methodName, const CMPIArgs* in, CMPIArgs* out) override;

    const Traits& traits() const { return traits_; }
    // The records of this service's runs.
    RecordLog& records() { return *records_; }
    // The service's "Name", read without inserting anything (safe beside running tests).
    std::string serviceName();
    // Sets what the layer supports for this service on its CIM_DiagnosticServiceCapabilities
    // instance before the provider publishes it: the service modes (NonDestructive only for a
    // test that is not destructive), the loop controls, Kill and Terminate, and the log storage.
    void describeCapabilities(InstanceImpl& capabilities) const;
    // The InstanceID of the service's CIM_DiagnosticLog, which the provider publishes; the
    // layer's records are that log's. Empty until set.
    void setLogInstanceId(std::string id);
    std::string logInstanceId() const;

private:
    Traits traits_;
    mutable std::mutex logIdMutex_;
    std::string logInstanceId_;
    std::unique_ptr<RecordLog> records_;
};

} // namespace NQORVA20::profile

#endif
