#include "profile/EmbeddedInstance.h"

#include <expat.h>

#include <cstring>
#include <memory>

namespace NQORVA20::profile {

namespace {

bool same(const char* a, const char* b) {
    return std::strcmp(a, b) == 0;
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// CIM names compare without regard to the case of their (ASCII) letters.
bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i]))
            return false;
    return true;
}

const char* attribute(const XML_Char** attributes, const char* name) {
    for (std::size_t i = 0; attributes[i] != nullptr; i += 2)
        if (same(attributes[i], name))
            return attributes[i + 1];
    return nullptr;
}

} // namespace

// Follows expat's callbacks with a stack of the open elements, each as the kind of element it is,
// so that every element is checked against its parent as it opens.
struct EmbeddedInstanceReader {
    enum class Kind {
        Instance,
        Property,
        PropertyArray,
        PropertyReference,
        Value,
        ValueArray,
        ValueNull,
        Skipped, // a QUALIFIER or the content of a VALUE.REFERENCE, and all within it
    };

    XML_Parser parser = nullptr;
    EmbeddedInstance result;
    std::string error;
    std::vector<Kind> open;
    std::size_t elements = 0;
    bool valueGiven = false; // the current property has had its VALUE, VALUE.ARRAY, ...
    std::string value;       // the text of the VALUE being read

    EmbeddedInstance::Property& current() { return result.properties_.back(); }

    void fail(const std::string& why) {
        if (error.empty())
            error = why + " (line " + std::to_string(XML_GetCurrentLineNumber(parser)) +
                    ", column " + std::to_string(XML_GetCurrentColumnNumber(parser) + 1) + ")";
        XML_StopParser(parser, XML_FALSE);
    }

    void startProperty(const char* element, Kind kind, const XML_Char** attributes) {
        const char* name = attribute(attributes, "NAME");
        if (name == nullptr || *name == '\0')
            return fail(std::string("a ") + element + " without a NAME");
        if (result.find(name) != nullptr)
            return fail("property " + EmbeddedInstance::quoted(name) + " is given twice");
        EmbeddedInstance::Property p;
        p.name = name;
        const char* type = attribute(attributes, "TYPE");
        p.type = type != nullptr ? type : kind == Kind::PropertyReference ? "reference" : "";
        p.array = kind == Kind::PropertyArray;
        result.properties_.push_back(std::move(p));
        valueGiven = false;
        open.push_back(kind);
    }

    // A VALUE, VALUE.ARRAY, VALUE.REFERENCE or VALUE.NULL directly in a property.
    void startPropertyValue(Kind kind) {
        if (valueGiven)
            return fail("property " + EmbeddedInstance::quoted(current().name) +
                        " has more than one value");
        valueGiven = true;
        if (kind == Kind::Value)
            value.clear();
        if (kind == Kind::ValueArray)
            current().null = false;
        open.push_back(kind);
    }

    void start(const char* name, const XML_Char** attributes) {
        if (!error.empty())
            return;
        if (++elements > EmbeddedInstance::maxElements)
            return fail("more than " + std::to_string(EmbeddedInstance::maxElements) + " elements");
        if (open.size() >= EmbeddedInstance::maxDepth)
            return fail("elements nested deeper than " +
                        std::to_string(EmbeddedInstance::maxDepth));
        if (open.empty()) {
            if (!same(name, "INSTANCE"))
                return fail("the root element is " + EmbeddedInstance::quoted(name) +
                            ", not INSTANCE");
            const char* cls = attribute(attributes, "CLASSNAME");
            if (cls == nullptr || *cls == '\0')
                return fail("the INSTANCE has no CLASSNAME");
            result.className_ = cls;
            open.push_back(Kind::Instance);
            return;
        }
        const Kind parent = open.back();
        const bool qualified = parent == Kind::Instance || parent == Kind::Property ||
                               parent == Kind::PropertyArray || parent == Kind::PropertyReference;
        if (parent == Kind::Skipped || (qualified && same(name, "QUALIFIER"))) {
            open.push_back(Kind::Skipped);
            return;
        }
        switch (parent) {
        case Kind::Instance:
            if (same(name, "PROPERTY"))
                return startProperty(name, Kind::Property, attributes);
            if (same(name, "PROPERTY.ARRAY"))
                return startProperty(name, Kind::PropertyArray, attributes);
            if (same(name, "PROPERTY.REFERENCE"))
                return startProperty(name, Kind::PropertyReference, attributes);
            break;
        case Kind::Property:
            if (same(name, "VALUE"))
                return startPropertyValue(Kind::Value);
            if (same(name, "VALUE.NULL"))
                return startPropertyValue(Kind::ValueNull);
            break;
        case Kind::PropertyArray:
            if (same(name, "VALUE.ARRAY"))
                return startPropertyValue(Kind::ValueArray);
            if (same(name, "VALUE.NULL"))
                return startPropertyValue(Kind::ValueNull);
            break;
        case Kind::PropertyReference:
            if (same(name, "VALUE.REFERENCE")) {
                startPropertyValue(Kind::Skipped);
                current().null = false;
                return;
            }
            if (same(name, "VALUE.NULL"))
                return startPropertyValue(Kind::ValueNull);
            break;
        case Kind::ValueArray:
            if (same(name, "VALUE")) {
                value.clear();
                open.push_back(Kind::Value);
                return;
            }
            if (same(name, "VALUE.NULL")) {
                current().values.emplace_back();
                current().nullEntries.push_back(true);
                open.push_back(Kind::ValueNull);
                return;
            }
            break;
        case Kind::Value:
        case Kind::ValueNull:
        case Kind::Skipped:
            break;
        }
        fail("unexpected element " + EmbeddedInstance::quoted(name) + " in " + elementName(parent));
    }

    static const char* elementName(Kind kind) {
        switch (kind) {
        case Kind::Instance:
            return "the INSTANCE";
        case Kind::Property:
            return "a PROPERTY";
        case Kind::PropertyArray:
            return "a PROPERTY.ARRAY";
        case Kind::PropertyReference:
            return "a PROPERTY.REFERENCE";
        case Kind::Value:
            return "a VALUE";
        case Kind::ValueArray:
            return "a VALUE.ARRAY";
        case Kind::ValueNull:
            return "a VALUE.NULL";
        case Kind::Skipped:
            break;
        }
        return "a skipped element";
    }

    void end() {
        // expat still reports the end of an empty element whose start was refused.
        if (!error.empty())
            return;
        const Kind closed = open.back();
        open.pop_back();
        if (closed != Kind::Value)
            return;
        EmbeddedInstance::Property& p = current();
        p.values.push_back(std::move(value));
        value.clear();
        p.null = false;
        if (open.back() == Kind::ValueArray)
            p.nullEntries.push_back(false);
    }

    static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<EmbeddedInstanceReader*>(self)->start(name, attributes);
    }
    static void XMLCALL onEnd(void* self, const XML_Char*) {
        static_cast<EmbeddedInstanceReader*>(self)->end();
    }
    static void XMLCALL onText(void* self, const XML_Char* text, int length) {
        auto* r = static_cast<EmbeddedInstanceReader*>(self);
        if (r->error.empty() && !r->open.empty() && r->open.back() == Kind::Value)
            r->value.append(text, static_cast<std::size_t>(length));
    }
    // Any document type declaration stops the reading before its internal subset is looked at:
    // no entity is ever declared, so none is expanded, and nothing external is named or read.
    static void XMLCALL onDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                                  int) {
        static_cast<EmbeddedInstanceReader*>(self)->fail("a document type declaration");
    }
    static void XMLCALL onEntity(void* self, const XML_Char*, int, const XML_Char*, int,
                                 const XML_Char*, const XML_Char*, const XML_Char*,
                                 const XML_Char*) {
        static_cast<EmbeddedInstanceReader*>(self)->fail("an entity declaration");
    }
    static int XMLCALL onExternalEntity(XML_Parser parser, const XML_Char*, const XML_Char*,
                                        const XML_Char*, const XML_Char*) {
        static_cast<EmbeddedInstanceReader*>(XML_GetUserData(parser))
            ->fail("a reference to an external entity");
        return XML_STATUS_ERROR;
    }
};

EmbeddedInstance EmbeddedInstance::parse(std::string_view text) {
    if (text.size() > maxText)
        throw EmbeddedInstanceError("the embedded instance is refused: it is larger than 1 MiB");
    // The encoding is fixed: a string parameter holds UTF-8 whatever its declaration says.
    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate("UTF-8"),
                                                                   XML_ParserFree);
    if (!parser)
        throw EmbeddedInstanceError("no memory to read the embedded instance");
    EmbeddedInstanceReader reader;
    reader.parser = parser.get();
    XML_SetUserData(parser.get(), &reader);
    XML_SetElementHandler(parser.get(), &EmbeddedInstanceReader::onStart,
                          &EmbeddedInstanceReader::onEnd);
    XML_SetCharacterDataHandler(parser.get(), &EmbeddedInstanceReader::onText);
    XML_SetStartDoctypeDeclHandler(parser.get(), &EmbeddedInstanceReader::onDoctype);
    XML_SetEntityDeclHandler(parser.get(), &EmbeddedInstanceReader::onEntity);
    XML_SetExternalEntityRefHandler(parser.get(), &EmbeddedInstanceReader::onExternalEntity);
    XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
    const XML_Status status =
        XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (!reader.error.empty())
        throw EmbeddedInstanceError("the embedded instance is refused: " + reader.error);
    if (status != XML_STATUS_OK)
        throw EmbeddedInstanceError(
            std::string("the embedded instance is not well-formed: ") +
            XML_ErrorString(XML_GetErrorCode(parser.get())) + " (line " +
            std::to_string(XML_GetCurrentLineNumber(parser.get())) + ", column " +
            std::to_string(XML_GetCurrentColumnNumber(parser.get()) + 1) + ")");
    return std::move(reader.result);
}

std::string EmbeddedInstance::quoted(std::string_view text) {
    constexpr std::size_t most = 64;
    if (text.size() <= most)
        return "\"" + std::string(text) + "\"";
    std::size_t cut = most;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;
    return "\"" + std::string(text.substr(0, cut)) + "...\"";
}

const EmbeddedInstance::Property* EmbeddedInstance::find(std::string_view name) const {
    for (const Property& p : properties_)
        if (sameName(p.name, name))
            return &p;
    return nullptr;
}

} // namespace NQORVA20::profile
