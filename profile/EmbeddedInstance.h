// An instance carried as text in a string parameter (an embedded instance): one CIM-XML INSTANCE
// element with its properties, read with expat. Anything else is refused with an
// EmbeddedInstanceError saying what and where: text that is not well-formed or not valid UTF-8, a
// document type or entity declaration (nothing is expanded or fetched), nesting past 32 levels,
// more than 10,000 elements or 1 MiB, another root, an element out of its place, a property
// without a name, given twice or with two values. Qualifiers are read past and dropped.
#ifndef DIAGPROFILE_EMBEDDEDINSTANCE_H
#define DIAGPROFILE_EMBEDDEDINSTANCE_H

#include <cstddef>
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
        // The TYPE attribute; "reference" for a PROPERTY.REFERENCE; empty when not given.
        std::string type;
        bool array = false;
        // No value given: no VALUE, VALUE.ARRAY or VALUE.REFERENCE, or a VALUE.NULL. An empty
        // VALUE.ARRAY is an empty array, not null.
        bool null = true;
        // The text of each VALUE, entities and character references replaced; one for a scalar,
        // one for each entry of an array (empty for a VALUE.NULL entry), none for a reference,
        // whose value is not read.
        std::vector<std::string> values;
        // Parallel to `values`: whether that array entry is a VALUE.NULL.
        std::vector<bool> nullEntries;
    };

    static constexpr std::size_t maxText = std::size_t{1} << 20;
    static constexpr std::size_t maxDepth = 32;
    static constexpr std::size_t maxElements = 10000;

    static EmbeddedInstance parse(std::string_view text);

    const std::string& className() const { return className_; }
    const std::vector<Property>& properties() const { return properties_; }
    // A text from an instance, quoted for a message: at most 64 bytes, cut on a character
    // boundary so that the message stays valid UTF-8.
    static std::string quoted(std::string_view text);

    // The property of that name in any letter case; null when absent.
    const Property* find(std::string_view name) const;

private:
    friend struct EmbeddedInstanceReader;
    std::string className_;
    std::vector<Property> properties_;
};

} // namespace NQORVA20::profile

#endif
