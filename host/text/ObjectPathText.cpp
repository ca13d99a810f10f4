#include "host/text/ObjectPathText.h"
#include "host/text/CimNames.h"
#include "host/text/LiteralText.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <unordered_set>

namespace diaghost {

namespace {

// Quoted values are tried as nested paths down to this depth; deeper text stays a string.
constexpr int maxNesting = 16;

bool isIdentStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}

bool isIdentChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

class PathParser {
public:
    PathParser(const std::string& text, int depth) : s_(text), depth_(depth) {}

    ObjectPathText parse() {
        ObjectPathText path;
        end_ = s_.size();
        while (end_ > 0 && isSpace(s_[end_ - 1]))
            --end_;
        skipSpace();
        if (pos_ == end_)
            fail("the text is empty");
        if (s_.compare(pos_, 2, "//") == 0)
            path.host = host();
        path.nameSpace = nameSpace();
        path.className = identifier("a class name");
        skipSpace();
        if (pos_ == end_)
            return path;
        if (s_[pos_] == '=') {
            ++pos_;
            skipSpace();
            if (pos_ == end_ || s_[pos_] != '@')
                fail("expected '@' after '=' of a singleton path");
            ++pos_;
            skipSpace();
            if (pos_ != end_)
                fail("unexpected text after a singleton path");
            return path;
        }
        if (s_[pos_] != '.')
            fail(std::string("unexpected character '") + s_[pos_] + "' after the class name");
        ++pos_;
        keys(path);
        return path;
    }

private:
    [[noreturn]] void fail(const std::string& message) const {
        std::string shown = s_.size() > 160 ? s_.substr(0, 160) + "..." : s_;
        throw ObjectPathError("object path \"" + shown + "\": offset " + std::to_string(pos_) +
                              ": " + message);
    }

    void skipSpace() {
        while (pos_ < end_ && isSpace(s_[pos_]))
            ++pos_;
    }

    std::string host() {
        pos_ += 2;
        std::size_t start = pos_;
        while (pos_ < end_ && s_[pos_] != '/' && !isSpace(s_[pos_]) && s_[pos_] != '"')
            ++pos_;
        if (pos_ == start)
            fail("empty host name after '//'");
        if (pos_ == end_ || s_[pos_] != '/')
            fail("the host name is not followed by '/'");
        std::string h = s_.substr(start, pos_ - start);
        ++pos_;
        return h;
    }

    // A namespace is whatever precedes the first ':' that comes before any key syntax.
    std::string nameSpace() {
        std::size_t j = pos_;
        while (j < end_ && std::strchr(":.=\",", s_[j]) == nullptr && !isSpace(s_[j]))
            ++j;
        if (j == end_ || s_[j] != ':')
            return {};
        std::string ns = s_.substr(pos_, j - pos_);
        bool segmentStart = true;
        for (char c : ns) {
            if (c == '/') {
                if (segmentStart)
                    fail("empty segment in namespace \"" + ns + "\"");
                segmentStart = true;
            } else if (isIdentChar(c)) {
                segmentStart = false;
            } else {
                fail("invalid character in namespace \"" + ns + "\"");
            }
        }
        if (ns.empty() || segmentStart)
            fail("empty namespace before ':'");
        pos_ = j + 1;
        return ns;
    }

    std::string identifier(const char* what) {
        skipSpace();
        if (pos_ == end_ || !isIdentStart(s_[pos_]))
            fail(std::string("expected ") + what);
        std::size_t start = pos_;
        while (pos_ < end_ && isIdentChar(s_[pos_]))
            ++pos_;
        return s_.substr(start, pos_ - start);
    }

    void keys(ObjectPathText& path) {
        // The names seen so far, case-folded: a text with thousands of keys is read in linear
        // time.
        std::unordered_set<std::string> seen;
        for (;;) {
            ObjectPathText::Key key;
            key.name = identifier("a key name");
            std::string folded = key.name;
            for (char& c : folded)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (!seen.insert(std::move(folded)).second)
                fail("key \"" + key.name + "\" given twice");
            skipSpace();
            if (pos_ == end_ || s_[pos_] != '=')
                fail("expected '=' after key \"" + key.name + "\"");
            ++pos_;
            skipSpace();
            value(key);
            path.keys.push_back(std::move(key));
            skipSpace();
            if (pos_ == end_)
                return;
            if (s_[pos_] != ',')
                fail("expected ',' or the end after the value of a key");
            ++pos_;
        }
    }

    void value(ObjectPathText::Key& key) {
        if (pos_ == end_)
            fail("missing value of key \"" + key.name + "\"");
        if (s_[pos_] == '"') {
            key.kind = LiteralKind::String;
            key.text = quoted('"');
            if (depth_ < maxNesting)
                key.reference = nestedPath(key.text);
            return;
        }
        if (s_[pos_] == '\'') {
            key.kind = LiteralKind::Char;
            key.text = quoted('\'');
            std::size_t chars = 0;
            for (unsigned char c : key.text)
                if ((c & 0xC0) != 0x80)
                    ++chars;
            if (chars != 1)
                fail("a char16 value holds exactly one character");
            return;
        }
        std::size_t start = pos_;
        while (pos_ < end_ && s_[pos_] != ',' && !isSpace(s_[pos_]))
            ++pos_;
        key.text = s_.substr(start, pos_ - start);
        bool negative = false;
        unsigned long long magnitude = 0;
        double real = 0;
        if (key.text.empty()) {
            pos_ = start;
            fail("missing value of key \"" + key.name + "\"");
        }
        if (sameName(key.text, "true") || sameName(key.text, "false")) {
            key.kind = LiteralKind::Boolean;
        } else if (LiteralText::parseInteger(key.text, negative, magnitude)) {
            key.kind = LiteralKind::Integer;
        } else if (LiteralText::parseReal(key.text, real)) {
            key.kind = LiteralKind::Real;
        } else {
            pos_ = start;
            fail("malformed value \"" + key.text + "\" of key \"" + key.name + "\"");
        }
    }

    std::shared_ptr<const ObjectPathText> nestedPath(const std::string& text) const {
        try {
            auto nested = std::make_shared<ObjectPathText>(PathParser(text, depth_ + 1).parse());
            if (nested->keys.empty())
                return nullptr;
            return nested;
        } catch (const ObjectPathError&) {
            return nullptr;
        }
    }

    std::string quoted(char quote) {
        std::size_t open = pos_;
        ++pos_;
        std::string out;
        for (;;) {
            if (pos_ >= end_) {
                pos_ = open;
                fail("unterminated quoted value");
            }
            char c = s_[pos_++];
            if (c == quote)
                return out;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (pos_ >= end_) {
                pos_ = open;
                fail("unterminated quoted value");
            }
            char e = s_[pos_++];
            switch (e) {
            case '"':
            case '\'':
            case '\\':
                out += e;
                break;
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'x':
            case 'X': {
                unsigned long cp = 0;
                int digits = 0;
                while (digits < 4 && pos_ < end_ &&
                       std::isxdigit(static_cast<unsigned char>(s_[pos_]))) {
                    char h = s_[pos_++];
                    cp =
                        cp * 16 + static_cast<unsigned long>(
                                      std::isdigit(static_cast<unsigned char>(h))
                                          ? h - '0'
                                          : std::tolower(static_cast<unsigned char>(h)) - 'a' + 10);
                    ++digits;
                }
                if (digits == 0)
                    fail("\\x without hexadecimal digits");
                if (cp == 0)
                    fail("\\x0 would end the text");
                LiteralText::appendUtf8(out, cp);
                break;
            }
            default:
                --pos_;
                fail(std::string("unknown escape \\") + e);
            }
        }
    }

    const std::string& s_;
    int depth_;
    std::size_t pos_ = 0;
    std::size_t end_ = 0;
};

} // namespace

ObjectPathText ObjectPathText::parse(const std::string& text) {
    return PathParser(text, 0).parse();
}

} // namespace diaghost
