// Whether a MOF value can be given to a property, parameter or qualifier of a CIM type, and the
// value converted to that type's kind of literal when it can: booleans, single characters for
// char16, date-time text for datetime, integers in their type's range, numbers for reals,
// object path text for references.
#ifndef DIAGHOST_MOF_MOFVALUECHECK_H
#define DIAGHOST_MOF_MOFVALUECHECK_H

#include "host/mof/CimClass.h"

#include <string>

namespace diaghost {

class MofValueCheck {
public:
    // Converts value to type's kind and answers "" when it fits; else what is wrong, naming the
    // target as `what` ("property Name"), with value unchanged.
    static std::string fit(MofValue& value, CimTypeCode type, const std::string& what);
};

} // namespace diaghost

#endif
