#include "host/text/LiteralText.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace diaghost {

const char* LiteralText::kindName(LiteralKind kind) {
    switch (kind) {
    case LiteralKind::Null:
        return "NULL";
    case LiteralKind::String:
        return "string";
    case LiteralKind::Integer:
        return "integer";
    case LiteralKind::Real:
        return "real";
    case LiteralKind::Boolean:
        return "boolean";
    case LiteralKind::Char:
        return "char";
    case LiteralKind::Reference:
        return "reference";
    }
    return "value";
}

bool LiteralText::parseInteger(const std::string& text, bool& negative,
                               unsigned long long& magnitude) {
    std::size_t i = 0;
    negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    std::string body = text.substr(i);
    if (body.empty())
        return false;
    unsigned base = 10;
    std::size_t from = 0;
    std::size_t to = body.size();
    if (body.size() > 2 && body[0] == '0' && (body[1] == 'x' || body[1] == 'X')) {
        base = 16;
        from = 2;
    } else if (body.size() > 1 && (body.back() == 'b' || body.back() == 'B')) {
        base = 2;
        to = body.size() - 1;
    } else if (body.size() > 1 && body[0] == '0') {
        base = 8;
        from = 1;
    }
    unsigned long long value = 0;
    for (std::size_t k = from; k < to; ++k) {
        unsigned char c = static_cast<unsigned char>(body[k]);
        unsigned digit;
        if (std::isdigit(c))
            digit = c - '0';
        else if (base == 16 && std::isxdigit(c))
            digit = static_cast<unsigned>(std::tolower(c) - 'a' + 10);
        else
            return false;
        if (digit >= base)
            return false;
        if (value > (std::numeric_limits<unsigned long long>::max() - digit) / base)
            return false;
        value = value * base + digit;
    }
    magnitude = value;
    return true;
}

bool LiteralText::parseReal(const std::string& text, double& value) {
    std::size_t i = 0;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    bool digits = false;
    bool dotOrExp = false;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
        ++i;
        digits = true;
    }
    if (i < text.size() && text[i] == '.') {
        dotOrExp = true;
        ++i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
            digits = true;
        }
    }
    if (!digits)
        return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        dotOrExp = true;
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-'))
            ++i;
        bool expDigits = false;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
            expDigits = true;
        }
        if (!expDigits)
            return false;
    }
    if (i != text.size() || !dotOrExp)
        return false;
    errno = 0;
    value = std::strtod(text.c_str(), nullptr);
    return errno != ERANGE || std::isfinite(value);
}

bool LiteralText::parseChar16(const std::string& text, std::uint16_t& unit) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t n = text.size();
    unsigned long cp = 0;
    std::size_t len = 0;
    if (n >= 1 && p[0] < 0x80) {
        cp = p[0];
        len = 1;
    } else if (n >= 2 && (p[0] & 0xE0) == 0xC0 && (p[1] & 0xC0) == 0x80) {
        cp = ((p[0] & 0x1Fu) << 6) | (p[1] & 0x3Fu);
        len = 2;
    } else if (n >= 3 && (p[0] & 0xF0) == 0xE0 && (p[1] & 0xC0) == 0x80 && (p[2] & 0xC0) == 0x80) {
        cp = ((p[0] & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
        len = 3;
    }
    if (len == 0 || len != n)
        return false;
    unit = static_cast<std::uint16_t>(cp);
    return true;
}

std::string LiteralText::char16Utf8(std::uint16_t c) {
    std::string out;
    appendUtf8(out, c);
    return out;
}

void LiteralText::appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

namespace {

// The letter of a named escape for c; 0 when c has none.
char namedEscape(unsigned char c) {
    switch (c) {
    case '\n':
        return 'n';
    case '\t':
        return 't';
    case '\r':
        return 'r';
    case '\b':
        return 'b';
    case '\f':
        return 'f';
    default:
        return 0;
    }
}

} // namespace

void LiteralText::appendEscaped(std::string& out, std::string_view text, char quote,
                                Controls controls) {
    std::size_t from = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        char named = controls == Controls::Kept ? 0 : namedEscape(c);
        bool hex = controls == Controls::All && !named && c < 0x20;
        if (c != '\\' && c != static_cast<unsigned char>(quote) && !named && !hex)
            continue;
        out.append(text.data() + from, i - from);
        from = i + 1;
        if (named) {
            out += '\\';
            out += named;
        } else if (hex) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        } else {
            out += '\\';
            out += static_cast<char>(c);
        }
    }
    out.append(text.data() + from, text.size() - from);
}

} // namespace diaghost
