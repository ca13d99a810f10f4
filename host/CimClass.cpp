#include "host/CimClass.h"

#include "host/CimNames.h"

namespace NQORVA20::host {

const CimProperty* CimClass::findProperty(const std::string& name) const {
    for (const CimProperty& p : properties) {
        if (sameName(p.name, name)) {
            return &p;
        }
    }
    return nullptr;
}

const CimMethod* CimClass::findMethod(const std::string& name) const {
    for (const CimMethod& m : methods) {
        if (sameName(m.name, name)) {
            return &m;
        }
    }
    return nullptr;
}

} // namespace NQORVA20::host
