#include "diag/AvailableDiagnosticService.h"

#include "diag/DefaultText.h"

namespace NQORVA20 {

AvailableDiagnosticService::AvailableDiagnosticService(std::string className)
    : InstanceImpl(std::move(className)) {
    AvailableDiagnosticService::init();
}

AvailableDiagnosticService::~AvailableDiagnosticService() = default;

void AvailableDiagnosticService::init() {
    insertDefaults(*this, {
                              {"ServiceProvided", ""},
                              {"UserOfService", ""},
                          });
}

} // namespace NQORVA20
