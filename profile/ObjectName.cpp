#include "profile/ObjectName.h"

#include <cmpift.h>

#include <strings.h>

#include <string>

namespace NQORVA20::profile {

namespace {

std::string textOf(const CMPIString* s) {
    const char* chars = s && s->ft ? s->ft->getCharPtr(s, nullptr) : nullptr;
    return chars ? chars : "";
}

bool sameName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::string keyText(const CMPIData& data) {
    if (data.state & CMPI_nullValue)
        return {};
    switch (data.type) {
    case CMPI_string:
        return textOf(data.value.string);
    case CMPI_chars:
        return data.value.chars ? data.value.chars : "";
    case CMPI_boolean:
        return data.value.boolean ? "true" : "false";
    case CMPI_uint8:
        return std::to_string(data.value.uint8);
    case CMPI_uint16:
        return std::to_string(data.value.uint16);
    case CMPI_uint32:
        return std::to_string(data.value.uint32);
    case CMPI_uint64:
        return std::to_string(data.value.uint64);
    case CMPI_sint8:
        return std::to_string(data.value.sint8);
    case CMPI_sint16:
        return std::to_string(data.value.sint16);
    case CMPI_sint32:
        return std::to_string(data.value.sint32);
    case CMPI_sint64:
        return std::to_string(data.value.sint64);
    default:
        return {};
    }
}

} // namespace

ObjectName ObjectName::fromPath(const CMPIObjectPath* path) {
    ObjectName name;
    if (path == nullptr || path->ft == nullptr)
        return name;
    name.className = textOf(path->ft->getClassName(path, nullptr));
    const CMPICount count = path->ft->getKeyCount(path, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIString* keyName = nullptr;
        CMPIData value = path->ft->getKeyAt(path, i, &keyName, nullptr);
        if (value.type == CMPI_ref && !(value.state & CMPI_nullValue))
            name.references.push_back({textOf(keyName), fromPath(value.value.ref)});
        else
            name.keys.emplace_back(textOf(keyName), keyText(value));
    }
    return name;
}

CMPIObjectPath* ObjectName::toPath(const CMPIBroker* broker, const char* nameSpace) const {
    if (broker == nullptr || broker->eft == nullptr)
        return nullptr;
    CMPIObjectPath* path =
        broker->eft->newObjectPath(broker, nameSpace, className.c_str(), nullptr);
    if (path == nullptr || path->ft == nullptr)
        return nullptr;
    // With CMPI_chars the value argument is the text itself, as object managers read it.
    for (const auto& [key, value] : keys)
        path->ft->addKey(path, key.c_str(), reinterpret_cast<const CMPIValue*>(value.c_str()),
                         CMPI_chars);
    for (const ObjectNameReference& reference : references) {
        CMPIValue v;
        v.ref = reference.target.toPath(broker, nameSpace);
        if (v.ref != nullptr)
            path->ft->addKey(path, reference.key.c_str(), &v, CMPI_ref);
    }
    return path;
}

bool ObjectName::matches(const ObjectName& other) const {
    if (!sameName(className, other.className) || keys.size() != other.keys.size() ||
        references.size() != other.references.size())
        return false;
    for (const ObjectNameReference& reference : references) {
        bool found = false;
        for (const ObjectNameReference& theirs : other.references)
            if (sameName(reference.key, theirs.key)) {
                found = reference.target.matches(theirs.target);
                break;
            }
        if (!found)
            return false;
    }
    for (const auto& [key, value] : keys) {
        bool found = false;
        for (const auto& [otherKey, otherValue] : other.keys)
            if (sameName(key, otherKey)) {
                found = value == otherValue;
                break;
            }
        if (!found)
            return false;
    }
    return true;
}

std::string ObjectName::text() const {
    std::string out = className;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        out += i == 0 ? '.' : ',';
        out += keys[i].first + "=\"" + keys[i].second + '"';
    }
    for (std::size_t i = 0; i < references.size(); ++i) {
        out += keys.empty() && i == 0 ? '.' : ',';
        out += references[i].key + "=\"" + references[i].target.text() + '"';
    }
    return out;
}

} // namespace NQORVA20::profile
