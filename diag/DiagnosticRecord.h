// One diagnostic record: the outcome of one RunDiagnostic run. The provider's test reports
// through pass() or fail(); RunDiagnostic then adds the identifying properties and registers it.
#ifndef DIAGCORE_DIAG_DIAGNOSTICRECORD_H
#define DIAGCORE_DIAG_DIAGNOSTICRECORD_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT DiagnosticRecord : public InstanceImpl {
public:
    explicit DiagnosticRecord(std::string className);
    ~DiagnosticRecord() override;

    // Sets (overwriting) "RecordFormat" "", "Locale" "en", "RecordType" "2", "LoopsFailed" "0"
    // and "LoopsPassed" "0".
    void init() override;
    // "LoopsPassed" = loopsPassed, "ErrorCount" = "0", "RecordData" = "Test Passed".
    void pass(unsigned int loopsPassed);
    // "LoopsFailed" = loopsFailed, "ErrorCode" = errorCode, "ErrorCount" = errorCount,
    // "RecordData" = recordData; the texts are stored as given.
    void fail(unsigned int loopsFailed, std::string errorCode, unsigned int errorCount,
              std::string recordData);
};

} // namespace NQORVA20

#endif
