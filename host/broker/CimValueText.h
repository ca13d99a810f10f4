// CMPIData as text: MOF literal text (strings and datetimes quoted and escaped, booleans
// TRUE/FALSE, references as quoted path text) and plain text (unquoted, booleans true/false),
// for any broker's objects, reading them through their function tables only.
#ifndef DIAGHOST_BROKER_CIMVALUETEXT_H
#define DIAGHOST_BROKER_CIMVALUETEXT_H

#include <cmpidt.h>

#include <string>

namespace diaghost {

class CimValueText {
public:
    // The value as a MOF literal: strings and datetimes quoted and escaped, booleans TRUE/FALSE,
    // references as the quoted path text in the broker's dialect, arrays in braces, NULL.
    static std::string mofText(const CMPIData& data);
    // The value as plain text: like mofText, but strings, datetimes and references unquoted and
    // unescaped and booleans "true"/"false"; arrays as "{a, b}" of those texts.
    static std::string plainText(const CMPIData& data);
    // The characters of a string; null for a null string or one without characters.
    static const char* chars(const CMPIString* s);
    // The text of a string; empty for a null string or one without characters.
    static std::string text(const CMPIString* s);
    // A datetime's CIM text; empty for a null one.
    static std::string dateTimeText(const CMPIDateTime* dt);
};

} // namespace diaghost

#endif
