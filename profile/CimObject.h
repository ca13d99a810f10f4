// An instance of one of the profile layer's classes as it stands right now: its name and typed
// property values, made fresh from the layer's state for every answer and turned into a broker
// instance only then. Keys are properties too: the instance carries them as strings.
#ifndef DIAGPROFILE_CIMOBJECT_H
#define DIAGPROFILE_CIMOBJECT_H

#include "profile/ObjectName.h"

#include <cmpidt.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NQORVA20::profile {

class CimObject {
public:
    explicit CimObject(ObjectName name);

    const ObjectName& name() const { return name_; }

    // Setting a property again replaces its value.
    CimObject& text(const std::string& property, std::string value);
    CimObject& uint16(const std::string& property, std::uint16_t value);
    CimObject& uint32(const std::string& property, std::uint32_t value);
    CimObject& boolean(const std::string& property, bool value);
    // A CIM datetime text, a timestamp or an interval.
    CimObject& dateTime(const std::string& property, std::string value);
    CimObject& reference(const std::string& property, ObjectName target);
    CimObject& texts(const std::string& property, std::vector<std::string> values);
    CimObject& uint16s(const std::string& property, const std::vector<std::uint16_t>& values);
    // An array of the element type (CMPI_string, CMPI_uint16, CMPI_uint32, ...) from texts.
    CimObject& array(const std::string& property, CMPIType elementType,
                     std::vector<std::string> values);

    // The object a reference property names; null when there is no such reference.
    const ObjectName* referenceOf(std::string_view property) const;
    // Every reference property's name and target, in the order set.
    std::vector<std::pair<std::string, const ObjectName*>> references() const;

    // A broker instance in the namespace with every property set; null when the broker makes
    // none. Values the broker refuses (a property the class lacks) are left out.
    CMPIInstance* toInstance(const CMPIBroker* broker, const char* nameSpace) const;

private:
    struct Value {
        std::string property;
        CMPIType type = CMPI_string;
        std::string text;
        std::vector<std::string> texts;
        ObjectName target;
    };
    Value& slot(const std::string& property);

    ObjectName name_;
    std::vector<Value> values_;
};

} // namespace NQORVA20::profile

#endif
