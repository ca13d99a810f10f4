#include "providers/common/ElementDiagService.h"

#include "providers/common/TestOutcome.h"

#include <exception>

namespace NQORVA20::providers {

ElementDiagService::ElementDiagService(std::string className, std::string recordClassName,
                                       std::string installDate, std::string systemName,
                                       const ElementCatalog& catalog, Naming naming, Traits traits)
    : ProfileDiagService(std::move(className), std::move(recordClassName), catalog.className(),
                         std::move(installDate), std::move(systemName), traits),
      catalog_(catalog), naming_(std::move(naming)) {
    get("Name") = naming_.name;
    get("Caption") = naming_.caption;
    get("Description") = naming_.description;
    get("ElementName") = naming_.name;
}

void ElementDiagService::passWith(DiagnosticRecord& record, const std::string& details) {
    record.pass(1);
    record["RecordData"] = "Test Passed: " + details;
}

void ElementDiagService::failWith(DiagnosticRecord& record, const std::vector<std::string>& codes,
                                  const std::string& details) {
    std::string codeList, countList;
    for (const std::string& code : codes) {
        codeList += (codeList.empty() ? "" : ",") + code;
        countList += countList.empty() ? "1" : ",1";
    }
    record.fail(1, codeList, static_cast<unsigned int>(codes.size()), details);
    record["ErrorCount"] = countList;
}

unsigned int ElementDiagService::runTest(InstanceImpl* managedElement, DiagnosticRecord* record) {
    if (record == nullptr)
        return TestNotRun;
    try {
        if (managedElement == nullptr) {
            record->fail(1, naming_.refusedCode, 1, "Refused: no ManagedElement was given");
            return TestElementRefused;
        }
        const ElementCatalog::Lookup lookup = catalog_.find(*managedElement);
        if (!lookup.found) {
            record->fail(1, naming_.refusedCode, 1,
                         "Refused: " + lookup.reason + "; nothing was tested");
            return TestElementRefused;
        }
        // RunDiagnostic names the record's element by this property of the parsed path.
        (*managedElement)["DeviceID"] = elementName(lookup.index);
        return runOnElement(lookup.index, *record);
    } catch (const std::exception& e) {
        record->fail(1, naming_.abortedCode, 1, std::string("The test stopped: ") + e.what());
    } catch (...) {
        record->fail(1, naming_.abortedCode, 1, "The test stopped on an unknown error");
    }
    return TestNotRun;
}

} // namespace NQORVA20::providers
