#include "profile/CimObject.h"

#include <cmpift.h>

#include <strings.h>

#include <cstdlib>

namespace NQORVA20::profile {

namespace {

bool sameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// One scalar value of a type the layer writes, from its text.
bool scalar(const CMPIBroker* broker, CMPIType type, const std::string& text, CMPIValue& out) {
    switch (type) {
    case CMPI_boolean:
        out.boolean = text == "true";
        return true;
    case CMPI_uint16:
        out.uint16 = static_cast<CMPIUint16>(std::strtoul(text.c_str(), nullptr, 10));
        return true;
    case CMPI_uint32:
        out.uint32 = static_cast<CMPIUint32>(std::strtoul(text.c_str(), nullptr, 10));
        return true;
    case CMPI_string:
        out.string = broker->eft->newString(broker, text.c_str(), nullptr);
        return out.string != nullptr;
    case CMPI_dateTime:
        out.dateTime = broker->eft->newDateTimeFromChars(broker, text.c_str(), nullptr);
        return out.dateTime != nullptr;
    default:
        return false;
    }
}

} // namespace

CimObject::CimObject(ObjectName name) : name_(std::move(name)) {
    for (const auto& [key, value] : name_.keys)
        text(key, value);
    for (const ObjectNameReference& ref : name_.references)
        reference(ref.key, ref.target);
}

CimObject::Value& CimObject::slot(const std::string& property) {
    for (Value& v : values_)
        if (sameName(v.property, property))
            return v;
    values_.push_back(Value{});
    values_.back().property = property;
    return values_.back();
}

CimObject& CimObject::text(const std::string& property, std::string value) {
    Value& v = slot(property);
    v.type = CMPI_string;
    v.text = std::move(value);
    return *this;
}

CimObject& CimObject::uint16(const std::string& property, std::uint16_t value) {
    Value& v = slot(property);
    v.type = CMPI_uint16;
    v.text = std::to_string(value);
    return *this;
}

CimObject& CimObject::uint32(const std::string& property, std::uint32_t value) {
    Value& v = slot(property);
    v.type = CMPI_uint32;
    v.text = std::to_string(value);
    return *this;
}

CimObject& CimObject::boolean(const std::string& property, bool value) {
    Value& v = slot(property);
    v.type = CMPI_boolean;
    v.text = value ? "true" : "false";
    return *this;
}

CimObject& CimObject::dateTime(const std::string& property, std::string value) {
    Value& v = slot(property);
    v.type = CMPI_dateTime;
    v.text = std::move(value);
    return *this;
}

CimObject& CimObject::reference(const std::string& property, ObjectName target) {
    Value& v = slot(property);
    v.type = CMPI_ref;
    v.target = std::move(target);
    return *this;
}

CimObject& CimObject::texts(const std::string& property, std::vector<std::string> values) {
    Value& v = slot(property);
    v.type = CMPI_stringA;
    v.texts = std::move(values);
    return *this;
}

CimObject& CimObject::uint16s(const std::string& property,
                              const std::vector<std::uint16_t>& values) {
    Value& v = slot(property);
    v.type = CMPI_uint16A;
    v.texts.clear();
    for (std::uint16_t value : values)
        v.texts.push_back(std::to_string(value));
    return *this;
}

CimObject& CimObject::array(const std::string& property, CMPIType elementType,
                            std::vector<std::string> values) {
    Value& v = slot(property);
    v.type = static_cast<CMPIType>(elementType | CMPI_ARRAY);
    v.texts = std::move(values);
    return *this;
}

const ObjectName* CimObject::referenceOf(std::string_view property) const {
    for (const Value& v : values_)
        if (v.type == CMPI_ref && sameName(v.property, property))
            return &v.target;
    return nullptr;
}

std::vector<std::pair<std::string, const ObjectName*>> CimObject::references() const {
    std::vector<std::pair<std::string, const ObjectName*>> out;
    for (const Value& v : values_)
        if (v.type == CMPI_ref)
            out.emplace_back(v.property, &v.target);
    return out;
}

CMPIInstance* CimObject::toInstance(const CMPIBroker* broker, const char* nameSpace) const {
    if (broker == nullptr || broker->eft == nullptr)
        return nullptr;
    CMPIObjectPath* path = name_.toPath(broker, nameSpace);
    if (path == nullptr)
        return nullptr;
    CMPIInstance* inst = broker->eft->newInstance(broker, path, nullptr);
    if (inst == nullptr || inst->ft == nullptr)
        return nullptr;
    for (const Value& v : values_) {
        CMPIValue value{};
        if (v.type == CMPI_ref) {
            value.ref = v.target.toPath(broker, nameSpace);
            if (value.ref == nullptr)
                continue;
        } else if (v.type & CMPI_ARRAY) {
            const CMPIType element = v.type & ~CMPI_ARRAY;
            CMPIArray* array = broker->eft->newArray(broker, static_cast<CMPICount>(v.texts.size()),
                                                     element, nullptr);
            if (array == nullptr || array->ft == nullptr)
                continue;
            for (std::size_t i = 0; i < v.texts.size(); ++i) {
                CMPIValue item{};
                if (scalar(broker, element, v.texts[i], item))
                    array->ft->setElementAt(array, static_cast<CMPICount>(i), &item, element);
            }
            value.array = array;
        } else if (!scalar(broker, v.type, v.text, value)) {
            continue;
        }
        inst->ft->setProperty(inst, v.property.c_str(), &value, v.type);
    }
    return inst;
}

} // namespace NQORVA20::profile
