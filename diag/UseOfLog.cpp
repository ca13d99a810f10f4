#include "diag/UseOfLog.h"

#include "diag/DefaultText.h"

namespace NQORVA20 {

UseOfLog::UseOfLog(std::string className) : InstanceImpl(std::move(className)) {
    UseOfLog::init();
}

UseOfLog::~UseOfLog() = default;

void UseOfLog::init() {
    insertDefaults(*this, {
                              {"Antecedent", "CIM_DiagnosicRecord"},
                              {"Dependent", "CIM_DiagnosticService"},
                          });
}

} // namespace NQORVA20
