#include "diag/DiagServiceSettingData.h"

#include "diag/DefaultText.h"

namespace NQORVA20 {

DiagServiceSettingData::DiagServiceSettingData(std::string className)
    : InstanceImpl(std::move(className)) {
    DiagServiceSettingData::init();
}

DiagServiceSettingData::~DiagServiceSettingData() = default;

void DiagServiceSettingData::init() {
    insertDefaults(*this, {
                              {"SettingID", "DefaultSetting"},
                              {"LogOptions", "2"},
                              {"OtherLogOptionsDescriptions", ""},
                              {"HaltOnError", "true"},
                              {"QuickMode", "false"},
                              {"PercentOfTestCoverage", "45"},
                              {"LoopControlParameter", "0"},
                              {"LoopControl", "2"},
                              {"OtherLoopControlDescriptions", ""},
                              {"ResultPersistence", "900"},
                              {"VerbosityLevel", "3"},
                          });
}

} // namespace NQORVA20
