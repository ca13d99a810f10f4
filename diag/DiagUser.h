// The managed element a test runs against, as parsed from the "ManagedElement" reference: its
// class name and key properties. Made for one RunDiagnostic call and never registered.
#ifndef DIAGCORE_DIAG_DIAGUSER_H
#define DIAGCORE_DIAG_DIAGUSER_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

namespace NQORVA20 {

class DIAGCORE_EXPORT DiagUser : public InstanceImpl {
public:
    DiagUser();
    ~DiagUser() override;
    void init() override;
};

} // namespace NQORVA20

#endif
