// The text of CIM value literals as MOF and object paths write them, with no CIM object behind
// it: what kind of literal a text is, integer and real literal syntax, char16 values as UTF-8,
// and backslash escaping. Shared by the MOF reader, the path parser and the value codec so that
// each form is read and written one way only.
#ifndef DIAGHOST_TEXT_LITERALTEXT_H
#define DIAGHOST_TEXT_LITERALTEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace diaghost {

// The syntactic form of a literal, before any declared type gives it a meaning.
enum class LiteralKind { Null, String, Integer, Real, Boolean, Char, Reference };

class LiteralText {
public:
    // "NULL", "string", "integer", "real", "boolean", "char" or "reference".
    static const char* kindName(LiteralKind kind);

    // Integer literal text: decimal, hexadecimal (0x), binary (b suffix) or octal (leading 0),
    // optionally signed. False when the text is none of these or the magnitude exceeds 64 bits.
    static bool parseInteger(const std::string& text, bool& negative,
                             unsigned long long& magnitude);
    // Real literal text (decimal with a '.', an exponent or both). False otherwise.
    static bool parseReal(const std::string& text, double& value);

    // The UCS-2 code unit of text holding exactly one UTF-8 character of at most three bytes;
    // false for anything else.
    static bool parseChar16(const std::string& text, std::uint16_t& unit);
    // A UCS-2 code unit as UTF-8.
    static std::string char16Utf8(std::uint16_t unit);
    // Appends a code point below 0x10000 as UTF-8.
    static void appendUtf8(std::string& out, std::uint32_t codePoint);

    // Which characters besides the backslash and `quote` escape writes as escapes.
    enum class Controls {
        Kept,  // written as they are
        Named, // \n \r \t \b \f; other control characters as they are
        All,   // \n \r \t \b \f, any other below 0x20 as \xHH
    };
    // Appends text with a backslash before every backslash and `quote`, and control characters
    // as `controls` says. Runs without anything to escape are copied whole.
    static void appendEscaped(std::string& out, std::string_view text, char quote,
                              Controls controls);
};

} // namespace diaghost

#endif
