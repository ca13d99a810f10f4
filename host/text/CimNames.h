// CIM names (classes, properties, qualifiers, namespaces, aliases) compare without regard to case.
// These helpers fold ASCII letters only; other bytes compare as they are.
#ifndef DIAGHOST_TEXT_CIMNAMES_H
#define DIAGHOST_TEXT_CIMNAMES_H

#include <string>
#include <string_view>

namespace diaghost {

inline char foldCase(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

inline std::string lowerName(std::string_view name) {
    std::string out(name);
    for (char& c : out) {
        c = foldCase(c);
    }
    return out;
}

inline bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (foldCase(a[i]) != foldCase(b[i])) {
            return false;
        }
    }
    return true;
}

} // namespace diaghost

#endif
