// The association between a diagnostic service ("ServiceProvided") and a managed element
// it can test ("UserOfService"), both as object-path texts.
#ifndef DIAGCORE_DIAG_AVAILABLEDIAGNOSTICSERVICE_H
#define DIAGCORE_DIAG_AVAILABLEDIAGNOSTICSERVICE_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT AvailableDiagnosticService : public InstanceImpl {
public:
    explicit AvailableDiagnosticService(std::string className);
    ~AvailableDiagnosticService() override;
    // Adds the defaults that are missing; never overwrites.
    void init() override;
};

} // namespace NQORVA20

#endif
