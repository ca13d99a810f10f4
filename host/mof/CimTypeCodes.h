// The CMPI type codes the class repository gives CIM data types, and the mapping between MOF type
// names and them, so a repository type can be handed to providers as it is.
#ifndef DIAGHOST_MOF_CIMTYPECODES_H
#define DIAGHOST_MOF_CIMTYPECODES_H

#include "host/mof/CimClass.h"

#include <cmpidt.h>

#include <string>
#include <string_view>
#include <utility>

namespace diaghost::cimtype {

constexpr CimTypeCode boolean = CMPI_boolean;
constexpr CimTypeCode char16 = CMPI_char16;
constexpr CimTypeCode real32 = CMPI_real32;
constexpr CimTypeCode real64 = CMPI_real64;
constexpr CimTypeCode uint8 = CMPI_uint8;
constexpr CimTypeCode uint16 = CMPI_uint16;
constexpr CimTypeCode uint32 = CMPI_uint32;
constexpr CimTypeCode uint64 = CMPI_uint64;
constexpr CimTypeCode sint8 = CMPI_sint8;
constexpr CimTypeCode sint16 = CMPI_sint16;
constexpr CimTypeCode sint32 = CMPI_sint32;
constexpr CimTypeCode sint64 = CMPI_sint64;
constexpr CimTypeCode ref = CMPI_ref;
constexpr CimTypeCode string = CMPI_string;
constexpr CimTypeCode datetime = CMPI_dateTime;
constexpr CimTypeCode arrayFlag = CMPI_ARRAY;

constexpr bool isArray(CimTypeCode t) {
    return (t & arrayFlag) != 0;
}
constexpr CimTypeCode elementType(CimTypeCode t) {
    return t & ~arrayFlag;
}
constexpr bool isUnsigned(CimTypeCode t) {
    return t >= uint8 && t <= uint64;
}
constexpr bool isSigned(CimTypeCode t) {
    return t >= sint8 && t <= sint64;
}
constexpr bool isInteger(CimTypeCode t) {
    return isUnsigned(t) || isSigned(t);
}
constexpr bool isReal(CimTypeCode t) {
    return t == real32 || t == real64;
}
// Width in bits of an integer type code (8, 16, 32 or 64).
constexpr int integerBits(CimTypeCode t) {
    return 8 << ((t >> 4) & 3);
}

// The code of a built-in MOF type name given in lower case; 0 when the name is not one.
inline CimTypeCode fromName(std::string_view lowerName) {
    struct Entry {
        std::string_view name;
        CimTypeCode code;
    };
    static constexpr Entry table[] = {
        {"boolean", boolean}, {"char16", char16},    {"real32", real32}, {"real64", real64},
        {"uint8", uint8},     {"uint16", uint16},    {"uint32", uint32}, {"uint64", uint64},
        {"sint8", sint8},     {"sint16", sint16},    {"sint32", sint32}, {"sint64", sint64},
        {"string", string},   {"datetime", datetime}};
    for (const Entry& e : table) {
        if (e.name == lowerName) {
            return e.code;
        }
    }
    return 0;
}

// The MOF spelling of a type code, "[]" added for arrays; "REF" for references.
inline std::string typeName(CimTypeCode t) {
    static constexpr std::pair<CimTypeCode, std::string_view> names[] = {
        {boolean, "boolean"}, {char16, "char16"},     {real32, "real32"}, {real64, "real64"},
        {uint8, "uint8"},     {uint16, "uint16"},     {uint32, "uint32"}, {uint64, "uint64"},
        {sint8, "sint8"},     {sint16, "sint16"},     {sint32, "sint32"}, {sint64, "sint64"},
        {string, "string"},   {datetime, "datetime"}, {ref, "REF"}};
    std::string out = "unknown type";
    for (const auto& [code, name] : names) {
        if (code == elementType(t)) {
            out = std::string(name);
        }
    }
    return isArray(t) ? out + "[]" : out;
}

} // namespace diaghost::cimtype

#endif
