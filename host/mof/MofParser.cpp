#include "host/mof/MofParser.h"

#include "host/mof/MofValueCheck.h"

#include "host/mof/CimTypeCodes.h"
#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <cstdint>
#include <unordered_set>

namespace diaghost {

namespace {

using Kind = MofValue::Kind;

bool isOneOf(const std::string& word, std::initializer_list<const char*> words) {
    for (const char* w : words) {
        if (word == w) {
            return true;
        }
    }
    return false;
}

} // namespace

MofParser::MofParser(MofCompilation& unit, std::string_view text, const std::string& file,
                     const std::string& ns)
    : unit_(unit), lexer_(text, file), file_(file), ns_(ns) {
    advance();
}

void MofParser::advance() {
    tok_ = lexer_.next();
}

bool MofParser::atSymbol(char c) const {
    return tok_.kind == MofTokenKind::Symbol && tok_.symbol == c;
}

bool MofParser::atKeyword(std::string_view lowerWord) const {
    return tok_.kind == MofTokenKind::Identifier && sameName(tok_.text, lowerWord);
}

void MofParser::failAt(int line, const std::string& message) const {
    throw MofError(file_, line, message);
}

void MofParser::fail(const std::string& message) const {
    failAt(tok_.line, message);
}

std::string MofParser::describeToken() const {
    switch (tok_.kind) {
    case MofTokenKind::End:
        return "end of file";
    case MofTokenKind::Identifier:
        return "'" + tok_.text + "'";
    case MofTokenKind::String:
        return "string \"" + tok_.text.substr(0, 24) + (tok_.text.size() > 24 ? "...\"" : "\"");
    case MofTokenKind::Integer:
    case MofTokenKind::Real:
        return "number " + tok_.text;
    case MofTokenKind::Char:
        return "char literal";
    case MofTokenKind::Alias:
        return "alias $" + tok_.text;
    case MofTokenKind::Symbol:
        return std::string("'") + tok_.symbol + "'";
    }
    return "?";
}

void MofParser::expectSymbol(char c, const char* where) {
    if (!atSymbol(c)) {
        fail(std::string("expected '") + c + "' " + where + ", found " + describeToken());
    }
    advance();
}

void MofParser::expectKeyword(std::string_view lowerWord) {
    if (!atKeyword(lowerWord)) {
        fail("expected '" + std::string(lowerWord) + "', found " + describeToken());
    }
    advance();
}

std::string MofParser::expectIdentifier(const char* what) {
    if (tok_.kind != MofTokenKind::Identifier) {
        fail(std::string("expected ") + what + ", found " + describeToken());
    }
    std::string name = std::move(tok_.text);
    advance();
    return name;
}

void MofParser::parse() {
    while (tok_.kind != MofTokenKind::End) {
        if (atSymbol('#')) {
            parsePragma();
        } else if (atSymbol('[')) {
            CimQualifiers qualifiers = parseQualifierList();
            if (atKeyword("class")) {
                parseClass(std::move(qualifiers));
            } else if (atKeyword("instance")) {
                parseInstance(); // qualifiers of an instance declaration are not kept
            } else {
                fail("expected 'class' or 'instance of' after a qualifier list, found " +
                     describeToken());
            }
        } else if (atKeyword("class")) {
            parseClass({});
        } else if (atKeyword("instance")) {
            parseInstance();
        } else if (atKeyword("qualifier")) {
            parseQualifierDeclaration();
        } else {
            fail("expected a class, instance or qualifier declaration or a #pragma, found " +
                 describeToken());
        }
    }
}

void MofParser::parsePragma() {
    int line = tok_.line;
    advance(); // '#'
    expectKeyword("pragma");
    std::string name = lowerName(expectIdentifier("a pragma name"));
    expectSymbol('(', "after the pragma name");
    if (name == "include") {
        std::string file = parseStringValue();
        expectSymbol(')', "after the included file name");
        unit_.include(file, ns_, file_, line);
    } else if (name == "namespace") {
        std::string ns = parseStringValue();
        expectSymbol(')', "after the namespace name");
        if (ns.find_first_not_of('/') == std::string::npos) {
            failAt(line, "#pragma namespace needs a namespace name");
        }
        ns_ = ns;
    } else {
        // locale and pragmas of other tools: their arguments do not affect the repository.
        while (!atSymbol(')')) {
            if (tok_.kind == MofTokenKind::End) {
                failAt(line, "unterminated #pragma " + name);
            }
            advance();
        }
        advance();
    }
}

std::string MofParser::parseStringValue() {
    if (tok_.kind != MofTokenKind::String) {
        fail("expected a string, found " + describeToken());
    }
    std::string text = std::move(tok_.text);
    advance();
    while (tok_.kind == MofTokenKind::String) {
        text += tok_.text;
        advance();
    }
    return text;
}

MofParser::TypeRef MofParser::parseType() {
    int line = tok_.line;
    std::string name = expectIdentifier("a type");
    TypeRef t;
    t.type = cimtype::fromName(lowerName(name));
    if (t.type != 0) {
        return t;
    }
    if (atKeyword("ref")) {
        advance();
        t.type = cimtype::ref;
        t.refClass = std::move(name);
        return t;
    }
    failAt(line, "unknown type '" + name + "'");
}

void MofParser::parseArraySuffix(TypeRef& type) {
    if (!atSymbol('[')) {
        return;
    }
    advance();
    if (tok_.kind == MofTokenKind::Integer) {
        if (tok_.integer == 0) {
            fail("an array size must be positive");
        }
        advance();
    }
    expectSymbol(']', "to close the array size");
    type.type |= cimtype::arrayFlag;
}

CimQualifiers MofParser::parseQualifierList() {
    expectSymbol('[', "to open a qualifier list");
    CimQualifiers qualifiers;
    while (true) {
        int line = tok_.line;
        std::string name = expectIdentifier("a qualifier name");
        std::string text = "true";
        if (atSymbol('(')) {
            advance();
            text = qualifierText(parseInitializer(nullptr, 0));
            expectSymbol(')', "to close the qualifier value");
        } else if (atSymbol('{')) {
            text = qualifierText(parseInitializer(nullptr, 0));
        }
        if (atSymbol(':')) {
            // Flavors given with the qualifier; the declared flavors govern inheritance here.
            advance();
            expectIdentifier("a flavor");
            while (tok_.kind == MofTokenKind::Identifier) {
                advance();
            }
        }
        if (!qualifiers.emplace(lowerName(name), std::move(text)).second) {
            failAt(line, "qualifier " + name + " is given twice");
        }
        if (!atSymbol(',')) {
            break;
        }
        advance();
    }
    expectSymbol(']', "to close the qualifier list");
    return qualifiers;
}

void MofParser::parseQualifierDeclaration() {
    int line = tok_.line;
    advance(); // 'qualifier'
    CimQualifierDecl decl;
    decl.name = expectIdentifier("a qualifier name");
    expectSymbol(':', "after the qualifier name");
    int typeLine = tok_.line;
    TypeRef t = parseType();
    if (t.type == cimtype::ref) {
        failAt(typeLine, "qualifier " + decl.name + " cannot be a reference");
    }
    parseArraySuffix(t);
    decl.type = t.type;
    if (atSymbol('=')) {
        advance();
        int valueLine = tok_.line;
        MofValue v = parseInitializer(nullptr, 0);
        checkValue(v, decl.type, "the default of qualifier " + decl.name, valueLine);
        decl.defaultText = qualifierText(v);
    }
    bool scopeSeen = false;
    bool flavorSeen = false;
    while (atSymbol(',')) {
        advance();
        int clauseLine = tok_.line;
        std::string clause = lowerName(expectIdentifier("'Scope' or 'Flavor'"));
        bool isScope = clause == "scope";
        if (!isScope && clause != "flavor") {
            failAt(clauseLine, "expected 'Scope' or 'Flavor', found '" + clause + "'");
        }
        bool& seen = isScope ? scopeSeen : flavorSeen;
        if (seen) {
            failAt(clauseLine, "qualifier " + decl.name + " has two " + clause + " clauses");
        }
        seen = true;
        expectSymbol('(', isScope ? "after Scope" : "after Flavor");
        std::vector<std::string>& words = isScope ? decl.scope : decl.flavor;
        while (true) {
            int wordLine = tok_.line;
            std::string word = lowerName(expectIdentifier(isScope ? "a scope" : "a flavor"));
            bool known =
                isScope
                    ? isOneOf(word, {"schema", "class", "association", "indication", "qualifier",
                                     "property", "reference", "method", "parameter", "any"})
                    : isOneOf(word, {"enableoverride", "disableoverride", "tosubclass",
                                     "restricted", "translatable", "toinstance"});
            if (!known) {
                failAt(wordLine, "unknown " + clause + " '" + word + "'");
            }
            words.push_back(std::move(word));
            if (!atSymbol(',')) {
                break;
            }
            advance();
        }
        expectSymbol(')', isScope ? "to close the scope" : "to close the flavors");
    }
    expectSymbol(';', "after the qualifier declaration");
    if (!scopeSeen) {
        failAt(line, "qualifier " + decl.name + " needs a Scope");
    }
    auto has = [&](const char* f) {
        return std::find(decl.flavor.begin(), decl.flavor.end(), f) != decl.flavor.end();
    };
    if ((has("enableoverride") && has("disableoverride")) ||
        (has("tosubclass") && has("restricted"))) {
        failAt(line, "qualifier " + decl.name + " has contradicting flavors");
    }
    unit_.defineQualifier(ns_, std::move(decl));
}

void MofParser::parseClass(CimQualifiers qualifiers) {
    advance(); // 'class'
    int line = tok_.line;
    CimClass cls;
    cls.name = expectIdentifier("a class name");
    cls.qualifiers = std::move(qualifiers);
    if (atKeyword("as")) {
        advance();
        if (tok_.kind != MofTokenKind::Alias) {
            fail("expected an alias after 'as', found " + describeToken());
        }
        advance(); // class aliases name nothing the repository keeps
    }
    if (atSymbol(':')) {
        advance();
        cls.superclass = expectIdentifier("a superclass name");
    }
    expectSymbol('{', "to open the class body");
    std::unordered_set<std::string> propertyNames;
    std::unordered_set<std::string> methodNames;
    while (!atSymbol('}')) {
        CimQualifiers featureQualifiers;
        if (atSymbol('[')) {
            featureQualifiers = parseQualifierList();
        }
        TypeRef t = parseType();
        int nameLine = tok_.line;
        std::string name = expectIdentifier("a property or method name");

        if (atSymbol('(')) {
            advance();
            CimMethod m;
            m.name = std::move(name);
            m.returnType = t.type;
            m.qualifiers = std::move(featureQualifiers);
            std::unordered_set<std::string> parameterNames;
            while (!atSymbol(')')) {
                CimParameter p;
                if (atSymbol('[')) {
                    p.qualifiers = parseQualifierList();
                }
                TypeRef pt = parseType();
                int paramLine = tok_.line;
                p.name = expectIdentifier("a parameter name");
                parseArraySuffix(pt);
                p.type = pt.type;
                p.refClass = std::move(pt.refClass);
                if (atSymbol('=')) {
                    // A parameter default is checked but not kept: CIM methods take no defaults.
                    advance();
                    int valueLine = tok_.line;
                    MofValue v = parseInitializer(nullptr, 0);
                    checkValue(v, p.type, "the default of parameter " + p.name, valueLine);
                }
                auto in = p.qualifiers.find("in");
                p.in = in == p.qualifiers.end() || !sameName(in->second, "false");
                auto out = p.qualifiers.find("out");
                p.out = out != p.qualifiers.end() && !sameName(out->second, "false");
                if (!parameterNames.insert(lowerName(p.name)).second) {
                    failAt(paramLine, "method " + m.name + " has two parameters named " + p.name);
                }
                m.parameters.push_back(std::move(p));
                if (!atSymbol(',')) {
                    break;
                }
                advance();
            }
            expectSymbol(')', "to close the parameter list");
            expectSymbol(';', "after the method declaration");
            if (!methodNames.insert(lowerName(m.name)).second) {
                failAt(nameLine, "class " + cls.name + " declares method " + m.name + " twice");
            }
            cls.methods.push_back(std::move(m));
            continue;
        }

        parseArraySuffix(t);
        CimProperty p;
        p.name = std::move(name);
        p.type = t.type;
        p.refClass = std::move(t.refClass);
        p.qualifiers = std::move(featureQualifiers);
        if (atSymbol('=')) {
            advance();
            int valueLine = tok_.line;
            MofValue v = parseInitializer(nullptr, 0);
            checkValue(v, p.type, "the default of property " + p.name, valueLine);
            // "= NULL" is the same as no default.
            p.hasDefault = v.array || v.kind != Kind::Null;
            p.defaultText = qualifierText(v);
            p.defaultValue = std::move(v);
        }
        expectSymbol(';', "after the property declaration");
        if (!propertyNames.insert(lowerName(p.name)).second) {
            failAt(nameLine, "class " + cls.name + " declares property " + p.name + " twice");
        }
        cls.properties.push_back(std::move(p));
    }
    advance(); // '}'
    expectSymbol(';', "after the class body");
    unit_.defineClass(ns_, cls, file_, line);
}

void MofParser::parseInstance() {
    int line = tok_.line;
    advance(); // 'instance'
    expectKeyword("of");
    int classLine = tok_.line;
    std::string className = expectIdentifier("a class name");
    const CimClass* cls = unit_.findClass(ns_, className);
    if (cls == nullptr) {
        failAt(classLine, "instance of undefined class " + className);
    }
    if (cls->abstract) {
        failAt(classLine, "class " + cls->name + " is abstract and cannot have instances");
    }
    CimInstanceDecl decl;
    decl.className = cls->name;
    if (atKeyword("as")) {
        advance();
        if (tok_.kind != MofTokenKind::Alias) {
            fail("expected an alias after 'as', found " + describeToken());
        }
        decl.alias = tok_.text;
        advance();
    }
    expectSymbol('{', "to open the instance body");
    std::vector<MofAliasUse> uses;
    std::unordered_set<std::string> given;
    while (!atSymbol('}')) {
        if (atSymbol('[')) {
            parseQualifierList(); // qualifiers on instance values are not kept
        }
        int valueLine = tok_.line;
        std::string name = expectIdentifier("a property name");
        const CimProperty* prop = cls->findProperty(name);
        if (prop == nullptr) {
            failAt(valueLine, "class " + cls->name + " has no property " + name);
        }
        if (!given.insert(lowerName(name)).second) {
            failAt(valueLine, "property " + prop->name + " is given twice");
        }
        expectSymbol('=', "after the property name");
        std::size_t usesBefore = uses.size();
        MofValue v = parseInitializer(&uses, decl.values.size());
        if (uses.size() != usesBefore && cimtype::elementType(prop->type) != cimtype::ref) {
            failAt(valueLine, "property " + prop->name + " is " + cimtype::typeName(prop->type) +
                                  "; only a reference can take an alias");
        }
        checkValue(v, prop->type, "property " + prop->name, valueLine);
        expectSymbol(';', "after the property value");
        decl.values.emplace_back(prop->name, std::move(v));
    }
    advance(); // '}'
    expectSymbol(';', "after the instance body");
    unit_.addInstance(ns_, std::move(decl), std::move(uses), file_, line);
}

MofValue MofParser::parseInitializer(std::vector<MofAliasUse>* uses, std::size_t valueIndex) {
    MofValue value;
    if (!atSymbol('{')) {
        parseElement(value, uses, valueIndex);
        return value;
    }
    value.array = true;
    advance();
    while (!atSymbol('}')) {
        parseElement(value, uses, valueIndex);
        if (!atSymbol(',')) {
            break;
        }
        advance();
    }
    expectSymbol('}', "to close the array value");
    return value;
}

void MofParser::parseElement(MofValue& value, std::vector<MofAliasUse>* uses,
                             std::size_t valueIndex) {
    int line = tok_.line;
    Kind kind = Kind::Null;
    std::string text;
    switch (tok_.kind) {
    case MofTokenKind::String:
        kind = Kind::String;
        text = parseStringValue();
        break;
    case MofTokenKind::Char:
        kind = Kind::Char;
        text = std::move(tok_.text);
        advance();
        break;
    case MofTokenKind::Alias:
        if (uses == nullptr) {
            fail("alias $" + tok_.text + " can only be used in an instance declaration");
        }
        uses->push_back({valueIndex, value.elements.size(), tok_.text, line});
        kind = Kind::Reference;
        advance();
        break;
    case MofTokenKind::Identifier:
        if (sameName(tok_.text, "true") || sameName(tok_.text, "false")) {
            kind = Kind::Boolean;
            text = lowerName(tok_.text);
        } else if (sameName(tok_.text, "null")) {
            kind = Kind::Null;
        } else {
            fail("expected a value, found " + describeToken());
        }
        advance();
        break;
    case MofTokenKind::Symbol:
    case MofTokenKind::Integer:
    case MofTokenKind::Real: {
        bool negative = atSymbol('-');
        if (atSymbol('-') || atSymbol('+')) {
            advance();
        }
        if (tok_.kind == MofTokenKind::Integer) {
            if (negative && tok_.integer > (std::uint64_t{1} << 63)) {
                fail("integer -" + tok_.text + " does not fit 64 bits");
            }
            kind = Kind::Integer;
            text = (negative && tok_.integer != 0 ? "-" : "") + std::to_string(tok_.integer);
        } else if (tok_.kind == MofTokenKind::Real) {
            kind = Kind::Real;
            text = (negative ? "-" : "") + tok_.text;
        } else {
            fail("expected a value, found " + describeToken());
        }
        advance();
        break;
    }
    default:
        fail("expected a value, found " + describeToken());
    }

    if (kind == Kind::Null) {
        if (value.array) {
            failAt(line, "NULL cannot be an element of an array");
        }
        return;
    }
    if (value.elements.empty()) {
        value.kind = kind;
    } else if (value.kind != kind) {
        auto either = [&](Kind a, Kind b) {
            return (value.kind == a && kind == b) || (value.kind == b && kind == a);
        };
        if (either(Kind::Integer, Kind::Real)) {
            value.kind = Kind::Real;
        } else if (either(Kind::String, Kind::Reference)) {
            value.kind = Kind::Reference;
        } else {
            failAt(line, std::string("an array cannot mix ") + LiteralText::kindName(value.kind) +
                             " and " + LiteralText::kindName(kind) + " values");
        }
    }
    value.elements.push_back(std::move(text));
}

void MofParser::checkValue(MofValue& value, CimTypeCode type, const std::string& what,
                           int line) const {
    std::string fault = MofValueCheck::fit(value, type, what);
    if (!fault.empty())
        failAt(line, fault);
}

std::string MofParser::qualifierText(const MofValue& value) {
    std::string text;
    for (std::size_t i = 0; i < value.elements.size(); ++i) {
        if (i != 0) {
            text += ',';
        }
        text += value.elements[i];
    }
    return text;
}

} // namespace diaghost
