#include "host/mof/MofLexer.h"

#include "host/mof/ClassRepository.h"
#include "host/text/LiteralText.h"

#include <cerrno>
#include <cstdlib>

namespace diaghost {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
int hexValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    return (c | 0x20) - 'a' + 10;
}
// Identifiers take ASCII letters, digits, '_' and any non-ASCII (UTF-8) byte.
bool isIdentStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}
bool isIdentChar(char c) {
    return isIdentStart(c) || isDigit(c);
}

std::string printable(char c) {
    auto u = static_cast<unsigned char>(c);
    if (u >= 0x20 && u < 0x7F) {
        return std::string("'") + c + "'";
    }
    static const char hex[] = "0123456789ABCDEF";
    return std::string("byte 0x") + hex[u >> 4] + hex[u & 15];
}

// Accumulates digits of the given base into value; false on overflow or a digit out of base.
bool accumulate(std::string_view digits, unsigned base, std::uint64_t& value) {
    value = 0;
    for (char c : digits) {
        unsigned d = static_cast<unsigned>(hexValue(c));
        if (!isHexDigit(c) || d >= base) {
            return false;
        }
        if (value > (UINT64_MAX - d) / base) {
            return false;
        }
        value = value * base + d;
    }
    return true;
}

} // namespace

MofLexer::MofLexer(std::string_view text, std::string file) : text_(text), file_(std::move(file)) {
    if (text_.size() >= 3 && text_.substr(0, 3) == "\xEF\xBB\xBF") {
        pos_ = 3;
    } else if (text_.size() >= 2 &&
               (text_.substr(0, 2) == "\xFF\xFE" || text_.substr(0, 2) == "\xFE\xFF")) {
        fail(1, "UTF-16 MOF text is not supported; convert the file to UTF-8");
    }
}

void MofLexer::fail(int line, const std::string& message) const {
    throw MofError(file_, line, message);
}

void MofLexer::skipSpaceAndComments() {
    while (pos_ < text_.size()) {
        char c = text_[pos_];
        if (c == '\n') {
            ++line_;
            ++pos_;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
            ++pos_;
        } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '/') {
            std::size_t end = text_.find('\n', pos_);
            pos_ = end == std::string_view::npos ? text_.size() : end;
        } else if (c == '/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == '*') {
            int startLine = line_;
            std::size_t end = text_.find("*/", pos_ + 2);
            if (end == std::string_view::npos) {
                fail(startLine, "unterminated comment");
            }
            for (std::size_t i = pos_; i < end; ++i) {
                line_ += text_[i] == '\n';
            }
            pos_ = end + 2;
        } else {
            return;
        }
    }
}

MofToken MofLexer::next() {
    skipSpaceAndComments();
    MofToken tok;
    tok.line = line_;
    if (pos_ >= text_.size()) {
        return tok;
    }
    char c = text_[pos_];
    if (isIdentStart(c)) {
        std::size_t start = pos_;
        while (pos_ < text_.size() && isIdentChar(text_[pos_])) {
            ++pos_;
        }
        tok.kind = MofTokenKind::Identifier;
        tok.text.assign(text_.substr(start, pos_ - start));
        return tok;
    }
    if (isDigit(c) || (c == '.' && pos_ + 1 < text_.size() && isDigit(text_[pos_ + 1]))) {
        return lexNumber();
    }
    switch (c) {
    case '"':
        return lexString();
    case '\'':
        return lexChar();
    case '$': {
        std::size_t start = ++pos_;
        while (pos_ < text_.size() && isIdentChar(text_[pos_])) {
            ++pos_;
        }
        if (pos_ == start) {
            fail(tok.line, "'$' must be followed by an alias name");
        }
        tok.kind = MofTokenKind::Alias;
        tok.text.assign(text_.substr(start, pos_ - start));
        return tok;
    }
    case '{':
    case '}':
    case '(':
    case ')':
    case '[':
    case ']':
    case ';':
    case ',':
    case ':':
    case '=':
    case '#':
    case '+':
    case '-':
        ++pos_;
        tok.kind = MofTokenKind::Symbol;
        tok.symbol = c;
        tok.text.assign(1, c);
        return tok;
    default:
        fail(tok.line, "unexpected character " + printable(c));
    }
}

MofToken MofLexer::lexNumber() {
    MofToken tok;
    tok.line = line_;
    std::size_t start = pos_;
    auto at = [this](std::size_t i) { return i < text_.size() ? text_[i] : '\0'; };

    if (at(pos_) == '0' && (at(pos_ + 1) == 'x' || at(pos_ + 1) == 'X')) {
        pos_ += 2;
        std::size_t digits = pos_;
        while (isIdentChar(at(pos_))) {
            ++pos_;
        }
        tok.text.assign(text_.substr(start, pos_ - start));
        std::string_view digitText = text_.substr(digits, pos_ - digits);
        if (digitText.empty() ||
            digitText.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos) {
            fail(tok.line, "malformed hexadecimal number '" + tok.text + "'");
        }
        if (!accumulate(digitText, 16, tok.integer)) {
            fail(tok.line, "integer '" + tok.text + "' does not fit 64 bits");
        }
        tok.kind = MofTokenKind::Integer;
        return tok;
    }

    while (isDigit(at(pos_))) {
        ++pos_;
    }
    bool real = false;
    if (at(pos_) == '.' && isDigit(at(pos_ + 1))) {
        real = true;
        ++pos_;
        while (isDigit(at(pos_))) {
            ++pos_;
        }
    }
    if ((at(pos_) == 'e' || at(pos_) == 'E') &&
        (isDigit(at(pos_ + 1)) ||
         ((at(pos_ + 1) == '+' || at(pos_ + 1) == '-') && isDigit(at(pos_ + 2))))) {
        real = true;
        pos_ += 2;
        while (isDigit(at(pos_))) {
            ++pos_;
        }
    }
    if (real) {
        tok.text.assign(text_.substr(start, pos_ - start));
        if (isIdentChar(at(pos_))) {
            fail(tok.line, "malformed number '" + tok.text + at(pos_) + "'");
        }
        errno = 0;
        double v = std::strtod(tok.text.c_str(), nullptr);
        if (errno == ERANGE && (v > 1.0 || v < -1.0)) {
            fail(tok.line, "real number '" + tok.text + "' is out of range");
        }
        tok.kind = MofTokenKind::Real;
        return tok;
    }

    // An integer: decimal, octal (leading 0) or binary (trailing b). Letters right after the
    // digits belong to the literal, so "12ab" is one malformed number rather than two tokens.
    while (isIdentChar(at(pos_))) {
        ++pos_;
    }
    tok.text.assign(text_.substr(start, pos_ - start));
    std::string_view lit = tok.text;
    tok.kind = MofTokenKind::Integer;
    bool ok;
    char last = lit.back();
    if ((last == 'b' || last == 'B') && lit.size() > 1 &&
        lit.substr(0, lit.size() - 1).find_first_not_of("01") == std::string_view::npos) {
        ok = accumulate(lit.substr(0, lit.size() - 1), 2, tok.integer);
    } else if (lit.find_first_not_of("0123456789") != std::string_view::npos) {
        fail(tok.line, "malformed number '" + tok.text + "'");
    } else if (lit.size() > 1 && lit[0] == '0') {
        if (lit.find_first_of("89") != std::string_view::npos) {
            fail(tok.line, "malformed octal number '" + tok.text + "'");
        }
        ok = accumulate(lit.substr(1), 8, tok.integer);
    } else {
        ok = accumulate(lit, 10, tok.integer);
    }
    if (!ok) {
        fail(tok.line, "integer '" + tok.text + "' does not fit 64 bits");
    }
    return tok;
}

void MofLexer::lexEscape(std::string& out, int line) {
    // pos_ is at the character after the backslash.
    if (pos_ >= text_.size()) {
        fail(line, "unterminated escape sequence");
    }
    char c = text_[pos_++];
    switch (c) {
    case 'b':
        out += '\b';
        return;
    case 't':
        out += '\t';
        return;
    case 'n':
        out += '\n';
        return;
    case 'f':
        out += '\f';
        return;
    case 'r':
        out += '\r';
        return;
    case '"':
    case '\'':
    case '\\':
        out += c;
        return;
    case 'x':
    case 'X': {
        std::uint32_t cp = 0;
        int n = 0;
        while (n < 4 && pos_ < text_.size() && isHexDigit(text_[pos_])) {
            cp = cp * 16 + static_cast<std::uint32_t>(hexValue(text_[pos_++]));
            ++n;
        }
        if (n == 0) {
            fail(line, "escape \\x needs 1 to 4 hexadecimal digits");
        }
        if (cp == 0 || (cp >= 0xD800 && cp <= 0xDFFF)) {
            fail(line, "escape \\x names an invalid character");
        }
        LiteralText::appendUtf8(out, cp);
        return;
    }
    default:
        fail(line, "unknown escape sequence \\" + std::string(1, c));
    }
}

MofToken MofLexer::lexString() {
    MofToken tok;
    tok.line = line_;
    tok.kind = MofTokenKind::String;
    ++pos_; // opening quote
    while (true) {
        std::size_t stop = text_.find_first_of("\"\\\n", pos_);
        if (stop == std::string_view::npos || text_[stop] == '\n') {
            fail(tok.line, "unterminated string");
        }
        tok.text.append(text_.substr(pos_, stop - pos_));
        pos_ = stop + 1;
        if (text_[stop] == '"') {
            return tok;
        }
        lexEscape(tok.text, tok.line);
    }
}

MofToken MofLexer::lexChar() {
    MofToken tok;
    tok.line = line_;
    tok.kind = MofTokenKind::Char;
    ++pos_; // opening quote
    if (pos_ >= text_.size() || text_[pos_] == '\n' || text_[pos_] == '\'') {
        fail(tok.line, "malformed char literal");
    }
    if (text_[pos_] == '\\') {
        ++pos_;
        lexEscape(tok.text, tok.line);
    } else {
        // One UTF-8 encoded character.
        auto lead = static_cast<unsigned char>(text_[pos_]);
        std::size_t len = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        if (pos_ + len > text_.size()) {
            fail(tok.line, "malformed char literal");
        }
        tok.text.assign(text_.substr(pos_, len));
        pos_ += len;
    }
    if (pos_ >= text_.size() || text_[pos_] != '\'') {
        fail(tok.line, "char literal must hold exactly one character");
    }
    ++pos_;
    return tok;
}

} // namespace diaghost
