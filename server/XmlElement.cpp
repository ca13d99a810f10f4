#include "server/XmlElement.h"

namespace diagserver {

const std::string* XmlElement::attribute(std::string_view attributeName) const {
    for (const auto& [key, value] : attributes)
        if (key == attributeName)
            return &value;
    return nullptr;
}

const XmlElement* XmlElement::child(std::string_view childName) const {
    for (const auto& c : children)
        if (c->name == childName)
            return c.get();
    return nullptr;
}

} // namespace diagserver
