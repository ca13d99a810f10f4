#include "diag/DiagnosticRecord.h"

#include "diag/DecimalText.h"

namespace NQORVA20 {

DiagnosticRecord::DiagnosticRecord(std::string className) : InstanceImpl(std::move(className)) {
    DiagnosticRecord::init();
}

DiagnosticRecord::~DiagnosticRecord() = default;

void DiagnosticRecord::init() {
    get("RecordFormat") = "";
    get("Locale") = "en";
    get("RecordType") = "2";
    get("LoopsFailed") = "0";
    get("LoopsPassed") = "0";
}

void DiagnosticRecord::pass(unsigned int loopsPassed) {
    get("LoopsPassed") = decimalText(loopsPassed);
    get("ErrorCount") = "0";
    get("RecordData") = "Test Passed";
}

void DiagnosticRecord::fail(unsigned int loopsFailed, std::string errorCode,
                            unsigned int errorCount, std::string recordData) {
    get("LoopsFailed") = decimalText(loopsFailed);
    get("ErrorCode") = std::move(errorCode);
    get("ErrorCount") = decimalText(errorCount);
    get("RecordData") = std::move(recordData);
}

} // namespace NQORVA20
