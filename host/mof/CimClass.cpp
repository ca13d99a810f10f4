#include "host/mof/CimClass.h"

#include "host/text/CimNames.h"

#include <cstring>

namespace diaghost {

const CimProperty* CimClass::findProperty(const std::string& name) const {
    for (const CimProperty& p : properties) {
        if (sameName(p.name, name)) {
            return &p;
        }
    }
    return nullptr;
}

namespace {

// Cheap on purpose: the length and three case-folded letters tell a class's property names
// apart well enough, and a probe compares whole names anyway.
std::size_t foldedHash(std::string_view name) {
    if (name.empty())
        return 0;
    const auto at = [&](std::size_t i) {
        return static_cast<std::size_t>(static_cast<unsigned char>(foldCase(name[i])));
    };
    return name.size() * 0x9E3779B1u + at(0) * 31u + at(name.size() / 2) * 131u +
           at(name.size() - 1) * 1031u;
}

// The same name, spelled alike (the usual case) or differing only in case.
bool sameNameQuick(std::string_view declared, std::string_view name) {
    return declared.size() == name.size() &&
           (std::memcmp(declared.data(), name.data(), name.size()) == 0 ||
            sameName(declared, name));
}

} // namespace

long CimClass::propertyIndex(std::string_view name) const {
    if (propertySlots_.empty() || indexedCount_ != properties.size()) {
        for (std::size_t i = 0; i < properties.size(); ++i) {
            if (sameName(properties[i].name, name))
                return static_cast<long>(i);
        }
        return -1;
    }
    const std::size_t mask = propertySlots_.size() - 1;
    for (std::size_t at = foldedHash(name) & mask;; at = (at + 1) & mask) {
        const std::uint32_t slot = propertySlots_[at];
        if (slot == 0)
            return -1;
        if (sameNameQuick(properties[slot - 1].name, name))
            return static_cast<long>(slot - 1);
    }
}

void CimClass::indexProperties() {
    std::size_t size = 4;
    while (size < 2 * properties.size())
        size *= 2;
    std::vector<std::uint32_t> slots(size, 0);
    for (std::size_t i = 0; i < properties.size(); ++i) {
        std::size_t at = foldedHash(properties[i].name) & (size - 1);
        bool duplicate = false;
        for (; slots[at] != 0; at = (at + 1) & (size - 1)) {
            if (sameName(properties[slots[at] - 1].name, properties[i].name)) {
                duplicate = true; // the first of two same-named properties answers, as before
                break;
            }
        }
        if (!duplicate)
            slots[at] = static_cast<std::uint32_t>(i + 1);
    }
    propertySlots_ = std::move(slots);
    indexedCount_ = properties.size();
}

const CimMethod* CimClass::findMethod(const std::string& name) const {
    for (const CimMethod& m : methods) {
        if (sameName(m.name, name)) {
            return &m;
        }
    }
    return nullptr;
}

} // namespace diaghost
