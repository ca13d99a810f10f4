// One CIM_DiagnosticService. A provider derives its service class from this, names and describes
// its test in its constructor, and implements runTest; the core supplies the shared defaults and
// the RunDiagnostic method, which runs the test and publishes one DiagnosticRecord per run.
// Concurrent RunDiagnostic calls on one service are safe; the test itself runs unlocked.
#ifndef DIAGCORE_DIAG_DIAGSERVICE_H
#define DIAGCORE_DIAG_DIAGSERVICE_H

#include "common/Export.h"
#include "diag/DiagnosticRecord.h"
#include "instance/InstanceImpl.h"

#include <mutex>
#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT DiagService : public InstanceImpl {
public:
    DiagService(std::string className, std::string recordClassName, std::string auxText,
                std::string installDate, std::string systemName);
    ~DiagService() override;

    // Serves "RunDiagnostic" (exact letter case): runs runTest against the element named by the
    // reference argument "ManagedElement", delivers its value as the uint32 return value, then
    // registers the record. Other names: CMPI_RC_ERR_METHOD_NOT_FOUND.
    CMPIStatus invokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                            const CMPIResult* result, const CMPIObjectPath* objectPath,
                            std::string methodName, const CMPIArgs* in, CMPIArgs* out) override;
    // Sets (overwriting) the sixteen properties every service shares.
    void init() override;
    // The test. managedElement holds the element's class name and key properties and lives only
    // for the call; record is fresh and passes to the registry afterwards: report through
    // record->pass() or record->fail() and keep neither pointer. The value returned reaches the
    // caller unchanged.
    virtual unsigned int runTest(InstanceImpl* managedElement, DiagnosticRecord* record) = 0;

protected:
    std::string recordClassName;
    std::string auxText; // the provider's own; the core never reads it
    std::string installDate;
    std::string systemName;

private:
    std::string uniqueCompletionTime(std::string completed);

    std::mutex propertyMutex_; // guards the property reads of concurrent runs
    std::mutex completionMutex_;
    std::string lastCompletion_; // the completion time of the last record of this service
};

} // namespace NQORVA20

#endif
