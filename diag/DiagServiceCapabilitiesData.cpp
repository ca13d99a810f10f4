#include "diag/DiagServiceCapabilitiesData.h"

#include "diag/DefaultText.h"

namespace NQORVA20 {

DiagServiceCapabilitiesData::DiagServiceCapabilitiesData(std::string className)
    : InstanceImpl(std::move(className)) {
    DiagServiceCapabilitiesData::init();
}

DiagServiceCapabilitiesData::~DiagServiceCapabilitiesData() = default;

void DiagServiceCapabilitiesData::init() {
    insertDefaults(*this, {
                              {"InstanceID", "ACME:TestCapabilities"},
                              {"Caption", "TestCapabilities"},
                              {"SupportedServiceModes", "0"},
                              {"OtherSupportedServiceModesDescriptions", "0"},
                              {"SupportedLoopControl", "0"},
                              {"OtherSupportedLoopControlDescriptions", "0"},
                              {"SupportedLogOptions", "0"},
                              {"OtherSupportedLogOptionsDescriptions", "0"},
                              {"SupportedExecutionControls", "0"},
                              {"OtherSupportedExecutionControlsDescriptions", "0"},
                          });
}

} // namespace NQORVA20
