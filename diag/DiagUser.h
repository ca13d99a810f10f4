// The managed element a test runs against, as parsed from the "ManagedElement" reference: its
// class name and key properties, and the host and namespace the reference named (the
// object-path text leaves them out). Made for one RunDiagnostic call and never registered.
#ifndef DIAGCORE_DIAG_DIAGUSER_H
#define DIAGCORE_DIAG_DIAGUSER_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT DiagUser : public InstanceImpl {
public:
    DiagUser();
    ~DiagUser() override;
    void init() override;

    // Takes the host and namespace of the reference; empty where it names none.
    void setLocation(const CMPIObjectPath* reference);
    const std::string& host() const { return host_; }
    const std::string& nameSpace() const { return nameSpace_; }
    // The reference names this system (or no system) and the published namespace (or none).
    bool isLocal() const;

private:
    std::string host_;
    std::string nameSpace_;
};

} // namespace NQORVA20

#endif
