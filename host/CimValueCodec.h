// Conversions between CIM values as text (MOF literals, object-path key literals) and CMPIData,
// and the comparisons an object manager needs to match keys: literals become values of the
// declared CIM type with range checks, values render as MOF literal text, and two values compare
// equal when they are the same CIM value whatever integer width carries them.
#ifndef DIAGCORE_HOST_CIMVALUECODEC_H
#define DIAGCORE_HOST_CIMVALUECODEC_H

#include "host/CimClass.h"

#include <cmpidt.h>

#include <stdexcept>
#include <string>

namespace NQORVA20::host {

class Broker;

class CimValueCodec {
public:
    // A literal that cannot become a value of the asked type; what() says why.
    class Error : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // A scalar literal as a value of `type` (no array flag). Strings, datetimes and paths are made
    // through the broker and belong to the calling thread's current scope. A Reference literal,
    // or a String literal for a REF type, is parsed as object path text; a path without a
    // namespace gets `ns`. Throws Error.
    static CMPIData fromLiteral(Broker& broker, MofValue::Kind kind, const std::string& text,
                                CimTypeCode type, const std::string& ns);
    // A MOF value, scalar or array, as a value of `type`; arrays become a CMPIArray. A Null
    // value gives the type with CMPI_nullValue. Throws Error.
    static CMPIData fromMof(Broker& broker, const MofValue& value, CimTypeCode type,
                            const std::string& ns);
    // A literal typed by its own form, for keys whose declared type is unknown: strings
    // CMPI_string, integers CMPI_sint64 (CMPI_uint64 above its range), reals CMPI_real64,
    // booleans, chars CMPI_char16, references CMPI_ref. Throws Error.
    static CMPIData fromUntypedLiteral(Broker& broker, MofValue::Kind kind, const std::string& text,
                                       const std::string& ns);

    // The value as a MOF literal: strings and datetimes quoted and escaped, booleans TRUE/FALSE,
    // references as the quoted path text in the broker's dialect, arrays in braces, NULL.
    static std::string mofText(const CMPIData& data);
    // The value as plain text: like mofText, but strings, datetimes and references unquoted and
    // unescaped and booleans "true"/"false"; arrays as "{a, b}" of those texts.
    static std::string plainText(const CMPIData& data);

    // True when both are the same CIM value: null equals null, integers compare by number
    // whatever their width, reals by value, strings exactly, datetimes by their text, references
    // by namespace and class (ignoring case) and equal keys.
    static bool equal(const CMPIData& a, const CMPIData& b);
    // Paths name the same object: class names equal ignoring case, namespaces too when both have
    // one, the same key names (ignoring case) with equal values.
    static bool samePath(const CMPIObjectPath* a, const CMPIObjectPath* b);

    // Integer literal text: decimal, hexadecimal (0x), binary (b suffix) or octal (leading 0),
    // optionally signed. False when the text is none of these or the magnitude exceeds 64 bits.
    static bool parseInteger(const std::string& text, bool& negative,
                             unsigned long long& magnitude);
    // Real literal text (decimal with a '.', an exponent or both). False otherwise.
    static bool parseReal(const std::string& text, double& value);
};

} // namespace NQORVA20::host

#endif
