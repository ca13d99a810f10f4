// An instance carried as text in a string parameter (an embedded instance): one CIM-XML INSTANCE
// element with its properties, read with expat. Anything else is refused with an
// EmbeddedInstanceError: text that is not well-formed or not valid UTF-8, a document type or
// entity declaration (nothing is expanded or fetched), nesting past 32 levels, more than 10,000
// elements or 1 MiB, another root, a property without a name or given twice.
#ifndef DIAGPROFILE_EMBEDDEDINSTANCE_H
#define DIAGPROFILE_EMBEDDEDINSTANCE_H

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace NQORVA20::profile {

class EmbeddedInstanceError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class EmbeddedInstance {
public:
    struct Property {
        std::string name;
        std::string type; // the TYPE attribute; empty when not given
        bool array = false;
        bool null = true; // no VALUE (or VALUE.NULL only)
        std::vector<std::string> values;
    };

    static EmbeddedInstance parse(std::string_view text);

    const std::string& className() const { return className_; }
    const std::vector<Property>& properties() const { return properties_; }
    // The property of that name in any letter case; null when absent.
    const Property* find(std::string_view name) const;

private:
    friend struct EmbeddedInstanceReader;
    std::string className_;
    std::vector<Property> properties_;
};

} // namespace NQORVA20::profile

#endif
