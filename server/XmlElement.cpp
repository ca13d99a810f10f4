#include "server/XmlElement.h"

namespace diagserver {

XmlElement::~XmlElement() {
    // Descendants are detached level by level into one list, so each is destroyed childless.
    std::vector<std::unique_ptr<XmlElement>> pending = std::move(children);
    while (!pending.empty()) {
        std::unique_ptr<XmlElement> element = std::move(pending.back());
        pending.pop_back();
        for (std::unique_ptr<XmlElement>& child : element->children)
            pending.push_back(std::move(child));
        element->children.clear();
    }
}

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
