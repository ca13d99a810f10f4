#include "host/mof/MofValueCheck.h"

#include "host/mof/CimTypeCodes.h"
#include "host/text/LiteralText.h"

#include <cstdint>

namespace diaghost {

namespace {

using Kind = MofValue::Kind;

// True when text is exactly one UTF-8 encoded character.
bool isSingleCharacter(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    auto lead = static_cast<unsigned char>(text[0]);
    std::size_t len = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    return text.size() == len;
}

// yyyymmddhhmmss.mmmmmmsutc for a point in time, ddddddddhhmmss.mmmmmm:000 for an interval;
// '*' may stand for any digit.
bool isDatetime(const std::string& s) {
    if (s.size() != 25 || s[14] != '.' || (s[21] != '+' && s[21] != '-' && s[21] != ':')) {
        return false;
    }
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (i != 14 && i != 21 && !((s[i] >= '0' && s[i] <= '9') || s[i] == '*')) {
            return false;
        }
    }
    return true;
}

bool integerFits(const std::string& text, CimTypeCode type) {
    bool negative = !text.empty() && text[0] == '-';
    std::uint64_t magnitude = std::stoull(negative ? text.substr(1) : text);
    int bits = cimtype::integerBits(type);
    if (cimtype::isUnsigned(type)) {
        std::uint64_t max = bits == 64 ? UINT64_MAX : (std::uint64_t{1} << bits) - 1;
        return (!negative || magnitude == 0) && magnitude <= max;
    }
    std::uint64_t limit = std::uint64_t{1} << (bits - 1);
    return negative ? magnitude <= limit : magnitude < limit;
}

} // namespace

std::string MofValueCheck::fit(MofValue& value, CimTypeCode type, const std::string& what) {
    if (!value.array && value.kind == Kind::Null)
        return {};
    if (value.array != cimtype::isArray(type))
        return what + " is " + cimtype::typeName(type) + "; it cannot take " +
               (value.array ? "an array value" : "a single value");
    const CimTypeCode base = cimtype::elementType(type);
    const std::string mismatch = what + " is " + cimtype::typeName(type) + "; it cannot take " +
                                 (value.kind == Kind::Integer ? "an " : "a ") +
                                 LiteralText::kindName(value.kind) + " value";
    const bool empty = value.elements.empty();
    auto kindIs = [&](std::initializer_list<Kind> kinds) {
        for (Kind k : kinds)
            if (value.kind == k)
                return true;
        return false;
    };
    Kind converted = value.kind;
    if (base == cimtype::boolean) {
        if (!empty && !kindIs({Kind::Boolean}))
            return mismatch;
        converted = Kind::Boolean;
    } else if (base == cimtype::char16) {
        if (!empty && !kindIs({Kind::Char})) {
            if (!kindIs({Kind::String}))
                return mismatch;
            for (const std::string& e : value.elements)
                if (!isSingleCharacter(e))
                    return what + " is char16; \"" + e + "\" is not one character";
        }
        converted = Kind::Char;
    } else if (base == cimtype::string || base == cimtype::datetime) {
        if (!empty && !kindIs({Kind::String, Kind::Char}))
            return mismatch;
        if (base == cimtype::datetime)
            for (const std::string& e : value.elements)
                if (!isDatetime(e))
                    return what + " is datetime; \"" + e + "\" is not a date-time";
        converted = Kind::String;
    } else if (cimtype::isInteger(base)) {
        if (!empty && !kindIs({Kind::Integer}))
            return mismatch;
        for (const std::string& e : value.elements)
            if (!integerFits(e, base))
                return what + " is " + cimtype::typeName(base) + "; " + e + " is out of its range";
        converted = Kind::Integer;
    } else if (cimtype::isReal(base)) {
        if (!empty && !kindIs({Kind::Integer, Kind::Real}))
            return mismatch;
        converted = Kind::Real;
    } else if (base == cimtype::ref) {
        if (!empty && !kindIs({Kind::String, Kind::Reference}))
            return mismatch;
        converted = Kind::Reference;
    }
    value.kind = converted;
    return {};
}

} // namespace diaghost
