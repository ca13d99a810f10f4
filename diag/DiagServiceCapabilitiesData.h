// What a diagnostic service supports, published as an instance of the provider's
// capabilities class: service modes, loop control, log options and execution controls.
#ifndef DIAGCORE_DIAG_DIAGSERVICECAPABILITIESDATA_H
#define DIAGCORE_DIAG_DIAGSERVICECAPABILITIESDATA_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT DiagServiceCapabilitiesData : public InstanceImpl {
public:
    explicit DiagServiceCapabilitiesData(std::string className);
    ~DiagServiceCapabilitiesData() override;
    // Adds the defaults that are missing; never overwrites.
    void init() override;
};

} // namespace NQORVA20

#endif
