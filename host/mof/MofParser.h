// Reads the declarations of one MOF file: pragmas, qualifier declarations, classes and instance
// declarations, and passes them to the MofCompilation it belongs to. The namespace starts as the
// one given and follows "#pragma namespace" to the end of this file. The first syntax or type
// error raises MofError at file:line.
#ifndef DIAGHOST_MOF_MOFPARSER_H
#define DIAGHOST_MOF_MOFPARSER_H

#include "host/mof/CimClass.h"
#include "host/mof/MofCompilation.h"
#include "host/mof/MofLexer.h"

#include <string>
#include <string_view>
#include <vector>

namespace diaghost {

class MofParser {
public:
    // The text must outlive the parser.
    MofParser(MofCompilation& unit, std::string_view text, const std::string& file,
              const std::string& ns);

    void parse();

private:
    struct TypeRef {
        CimTypeCode type = 0;
        std::string refClass;
    };

    void advance();
    bool atSymbol(char c) const;
    bool atKeyword(std::string_view lowerWord) const;
    void expectSymbol(char c, const char* where);
    void expectKeyword(std::string_view lowerWord);
    std::string expectIdentifier(const char* what);
    std::string describeToken() const;
    [[noreturn]] void fail(const std::string& message) const;
    [[noreturn]] void failAt(int line, const std::string& message) const;

    void parsePragma();
    void parseQualifierDeclaration();
    void parseClass(CimQualifiers qualifiers);
    void parseInstance();
    CimQualifiers parseQualifierList();
    TypeRef parseType();
    // "[]" or "[N]" after a name: adds the array flag to type.
    void parseArraySuffix(TypeRef& type);
    std::string parseStringValue();
    // A value or "{ values }"; aliases are accepted only when uses is given.
    MofValue parseInitializer(std::vector<MofAliasUse>* uses, std::size_t valueIndex);
    // Appends one scalar to value (kind checked against the elements before it).
    void parseElement(MofValue& value, std::vector<MofAliasUse>* uses, std::size_t valueIndex);
    // Checks a value against the type it is given to and converts it to that type's kind.
    void checkValue(MofValue& value, CimTypeCode type, const std::string& what, int line) const;
    static std::string qualifierText(const MofValue& value);

    MofCompilation& unit_;
    MofLexer lexer_;
    MofToken tok_;
    std::string file_;
    std::string ns_;
};

} // namespace diaghost

#endif
