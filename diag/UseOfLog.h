// The association between a diagnostic record ("Antecedent") and a diagnostic service
// ("Dependent"). The provider fills both; the defaults are bare class names.
#ifndef DIAGCORE_DIAG_USEOFLOG_H
#define DIAGCORE_DIAG_USEOFLOG_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT UseOfLog : public InstanceImpl {
public:
    explicit UseOfLog(std::string className);
    ~UseOfLog() override;
    // Adds the defaults that are missing; never overwrites.
    void init() override;
};

} // namespace NQORVA20

#endif
