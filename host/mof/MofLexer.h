// Splits MOF text into tokens: identifiers, string/char/number literals, aliases and punctuation.
// Comments and white space are skipped; string and char escapes are decoded to UTF-8. Malformed
// input (an unterminated string or comment, a stray character, a number too large for 64 bits)
// raises MofError naming the file and line.
#ifndef DIAGHOST_MOF_MOFLEXER_H
#define DIAGHOST_MOF_MOFLEXER_H

#include <cstdint>
#include <string>
#include <string_view>

namespace diaghost {

enum class MofTokenKind { End, Identifier, String, Integer, Real, Char, Alias, Symbol };

struct MofToken {
    MofTokenKind kind = MofTokenKind::End;
    // Identifier: the name. String/Char: the decoded text. Real: the literal as written.
    // Integer: the literal as written. Alias: the name without '$'.
    std::string text;
    std::uint64_t integer = 0; // Integer: the value (its magnitude; a sign is a separate token)
    char symbol = 0;           // Symbol: one of { } ( ) [ ] ; , : = # + -
    int line = 0;
};

class MofLexer {
public:
    // The text must outlive the lexer.
    MofLexer(std::string_view text, std::string file);

    MofToken next();
    const std::string& file() const { return file_; }

private:
    void skipSpaceAndComments();
    [[noreturn]] void fail(int line, const std::string& message) const;
    MofToken lexNumber();
    MofToken lexString();
    MofToken lexChar();
    // Decodes one escape sequence after the backslash at pos_ and appends it as UTF-8.
    void lexEscape(std::string& out, int line);

    std::string_view text_;
    std::string file_;
    std::size_t pos_ = 0;
    int line_ = 1;
};

} // namespace diaghost

#endif
