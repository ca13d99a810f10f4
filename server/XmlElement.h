// A parsed XML element as the request decoder reads it: name, attributes, character data and
// children, with nothing of the parser that made it.
#ifndef DIAGSERVER_XMLELEMENT_H
#define DIAGSERVER_XMLELEMENT_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace diagserver {

struct XmlElement {
    XmlElement() = default;
    // Frees a tree of any depth without recursing through it.
    ~XmlElement();
    XmlElement(XmlElement&&) = default;
    XmlElement& operator=(XmlElement&&) = default;

    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text; // the character data directly inside, concatenated
    std::vector<std::unique_ptr<XmlElement>> children;

    // The attribute's value; null when absent. Names compare exactly, as XML's do.
    const std::string* attribute(std::string_view attributeName) const;
    // The first child of that name; null when none.
    const XmlElement* child(std::string_view childName) const;
};

} // namespace diagserver

#endif
