// The name of a CIM instance as the profile layer keeps it between calls: its class and its key
// bindings as texts, with nothing of the broker. Made from a broker path and turned back into one
// when an answer needs it; two names match when class and key names agree in any letter case and
// the values agree exactly.
#ifndef DIAGPROFILE_OBJECTNAME_H
#define DIAGPROFILE_OBJECTNAME_H

#include <cmpidt.h>

#include <string>
#include <utility>
#include <vector>

namespace NQORVA20::profile {

struct ObjectNameReference;

struct ObjectName {
    std::string className;
    // Key bindings in the order given; their values are strings to the broker.
    std::vector<std::pair<std::string, std::string>> keys;
    // Reference key bindings (an association's), in the order given.
    std::vector<ObjectNameReference> references;

    // Class and keys of a broker path; string, numeric and boolean keys are kept as text,
    // reference keys as the names they hold.
    static ObjectName fromPath(const CMPIObjectPath* path);
    // A broker path in the namespace with the keys as string bindings; null when the broker
    // makes none.
    CMPIObjectPath* toPath(const CMPIBroker* broker, const char* nameSpace) const;

    bool matches(const ObjectName& other) const;
    // "Class.Key1=\"v1\",Key2=\"v2\"" with the keys in their order, for logs and descriptions.
    std::string text() const;
};

struct ObjectNameReference {
    std::string key;
    ObjectName target;
};

} // namespace NQORVA20::profile

#endif
