// The comparisons an object manager needs to match keys and paths: two values are equal when
// they are the same CIM value whatever integer width carries them, and two paths name the same
// object when their classes, namespaces and keys agree.
#ifndef DIAGHOST_BROKER_CIMVALUEMATCH_H
#define DIAGHOST_BROKER_CIMVALUEMATCH_H

#include <cmpidt.h>

namespace diaghost {

class CimValueMatch {
public:
    // True when both are the same CIM value: null equals null, integers compare by number
    // whatever their width, reals by value, strings exactly, datetimes by their text, references
    // by namespace and class (ignoring case) and equal keys.
    static bool equal(const CMPIData& a, const CMPIData& b);
    // Paths name the same object: class names equal ignoring case, namespaces too when both have
    // one, the same key names (ignoring case) with equal values.
    static bool samePath(const CMPIObjectPath* a, const CMPIObjectPath* b);
};

} // namespace diaghost

#endif
