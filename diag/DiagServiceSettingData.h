// The default settings of a diagnostic service, published as an instance of the provider's
// setting class: log options, halt-on-error, quick mode, coverage, loop control, persistence and
// verbosity.
#ifndef DIAGCORE_DIAG_DIAGSERVICESETTINGDATA_H
#define DIAGCORE_DIAG_DIAGSERVICESETTINGDATA_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT DiagServiceSettingData : public InstanceImpl {
public:
    explicit DiagServiceSettingData(std::string className);
    ~DiagServiceSettingData() override;
    // Adds the defaults that are missing; never overwrites.
    void init() override;
};

} // namespace NQORVA20

#endif
