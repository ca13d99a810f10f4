// A diagnostic service that tests only elements its family published, by RunDiagnostic and by
// the profile layer's RunDiagnosticService alike. runTest looks the
// "ManagedElement" up in the family's catalog first: an element the catalog does not hold is
// refused with a failed record and TestElementRefused, before anything is opened or read. For
// a published element the family's runOnElement does the work; whatever it throws is caught
// and reported as a test that could not run, so no exception leaves the service.
#ifndef ZORQ_PROVIDERS_COMMON_ELEMENTDIAGSERVICE_H
#define ZORQ_PROVIDERS_COMMON_ELEMENTDIAGSERVICE_H

#include "profile/ProfileDiagService.h"
#include "providers/common/ElementCatalog.h"

#include <cstddef>
#include <string>
#include <vector>

namespace NQORVA20::providers {

class ElementDiagService : public profile::ProfileDiagService {
public:
    // The texts that name and describe one service, and its family's two fixed error codes.
    struct Naming {
        std::string name;        // "Name", also the stem of its setting and log IDs
        std::string caption;     // "Caption"
        std::string description; // "Description"
        std::string refusedCode; // ErrorCode of a refused element, e.g. "FS_NOT_PUBLISHED"
        std::string abortedCode; // ErrorCode of a test that stopped on an exception
    };

    ElementDiagService(std::string className, std::string recordClassName, std::string installDate,
                       std::string systemName, const ElementCatalog& catalog, Naming naming,
                       Traits traits = {});

    unsigned int runTest(InstanceImpl* managedElement, DiagnosticRecord* record) final;

protected:
    // Tests the catalog's element at index; reports through the record and answers a
    // TestOutcome value.
    virtual unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) = 0;
    // How records name the element (their ManagedElementName).
    virtual std::string elementName(std::size_t index) const = 0;

    // A passed record whose RecordData tells what was checked.
    static void passWith(DiagnosticRecord& record, const std::string& details);
    // A failed record for one or more failed checks: ErrorCode lists their codes and ErrorCount
    // holds a 1 for each (the two arrays run in parallel).
    static void failWith(DiagnosticRecord& record, const std::vector<std::string>& codes,
                         const std::string& details);

    const ElementCatalog& catalog() const { return catalog_; }
    const Naming& naming() const { return naming_; }

private:
    const ElementCatalog& catalog_;
    Naming naming_;
};

} // namespace NQORVA20::providers

#endif
