#include "profile/EmbeddedInstance.h"

#include <expat.h>
#include <strings.h>

#include <cstring>
#include <memory>

namespace NQORVA20::profile {

namespace {

constexpr std::size_t maxText = std::size_t{1} << 20;
constexpr std::size_t maxDepth = 32;
constexpr std::size_t maxElements = 10000;

bool same(const char* a, const char* b) {
    return std::strcmp(a, b) == 0;
}

const char* attribute(const XML_Char** attributes, const char* name) {
    for (std::size_t i = 0; attributes[i] != nullptr; i += 2)
        if (same(attributes[i], name))
            return attributes[i + 1];
    return nullptr;
}

} // namespace

struct EmbeddedInstanceReader {
    XML_Parser parser = nullptr;
    EmbeddedInstance result;
    std::string error;
    std::size_t depth = 0;
    std::size_t elements = 0;
    std::size_t qualifierDepth = 0; // inside a QUALIFIER: everything there is skipped
    // The property being read: an index, as the list grows while it is read.
    std::size_t property = none;
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    bool inValue = false;
    std::string value;

    void fail(const std::string& why) {
        if (error.empty())
            error = why;
        XML_StopParser(parser, XML_FALSE);
    }

    void start(const char* name, const XML_Char** attributes) {
        ++depth;
        if (++elements > maxElements)
            return fail("more than " + std::to_string(maxElements) + " elements");
        if (depth > maxDepth)
            return fail("elements nested deeper than " + std::to_string(maxDepth));
        if (qualifierDepth > 0 || same(name, "QUALIFIER")) {
            ++qualifierDepth;
            return;
        }
        if (depth == 1) {
            const char* cls = attribute(attributes, "CLASSNAME");
            if (!same(name, "INSTANCE") || cls == nullptr || *cls == '\0')
                return fail("the text is not an INSTANCE element with a CLASSNAME");
            result.className_ = cls;
            return;
        }
        if (depth == 2) {
            const bool array = same(name, "PROPERTY.ARRAY");
            if (!array && !same(name, "PROPERTY") && !same(name, "PROPERTY.REFERENCE"))
                return fail(std::string("unexpected element ") + name + " in the INSTANCE");
            const char* propertyName = attribute(attributes, "NAME");
            if (propertyName == nullptr || *propertyName == '\0')
                return fail("a property without a NAME");
            if (result.find(propertyName) != nullptr)
                return fail(std::string("property ") + propertyName + " given twice");
            EmbeddedInstance::Property p;
            p.name = propertyName;
            const char* type = attribute(attributes, "TYPE");
            p.type = type ? type : (same(name, "PROPERTY.REFERENCE") ? "reference" : "");
            p.array = array;
            result.properties_.push_back(std::move(p));
            property = result.properties_.size() - 1;
            return;
        }
        if (property != none && same(name, "VALUE")) {
            inValue = true;
            value.clear();
        }
    }

    void end(const char* name) {
        if (qualifierDepth > 0) {
            --qualifierDepth;
        } else if (inValue && same(name, "VALUE")) {
            inValue = false;
            result.properties_[property].values.push_back(value);
            result.properties_[property].null = false;
        } else if (depth == 2) {
            property = none;
        }
        --depth;
    }

    static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<EmbeddedInstanceReader*>(self)->start(name, attributes);
    }
    static void XMLCALL onEnd(void* self, const XML_Char* name) {
        static_cast<EmbeddedInstanceReader*>(self)->end(name);
    }
    static void XMLCALL onText(void* self, const XML_Char* text, int length) {
        auto* r = static_cast<EmbeddedInstanceReader*>(self);
        if (r->inValue && r->qualifierDepth == 0)
            r->value.append(text, static_cast<std::size_t>(length));
    }
    static void XMLCALL onDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                                  int) {
        static_cast<EmbeddedInstanceReader*>(self)->fail("a document type declaration");
    }
    static void XMLCALL onEntity(void* self, const XML_Char*, int, const XML_Char*, int,
                                 const XML_Char*, const XML_Char*, const XML_Char*,
                                 const XML_Char*) {
        static_cast<EmbeddedInstanceReader*>(self)->fail("an entity declaration");
    }
};

EmbeddedInstance EmbeddedInstance::parse(std::string_view text) {
    if (text.size() > maxText)
        throw EmbeddedInstanceError("the embedded instance is larger than 1 MiB");
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
    XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
    const XML_Status status =
        XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
    if (!reader.error.empty())
        throw EmbeddedInstanceError("the embedded instance is refused: " + reader.error);
    if (status != XML_STATUS_OK)
        throw EmbeddedInstanceError(std::string("the embedded instance is not well-formed: ") +
                                    XML_ErrorString(XML_GetErrorCode(parser.get())));
    if (reader.result.className_.empty())
        throw EmbeddedInstanceError("the embedded instance is empty");
    return std::move(reader.result);
}

const EmbeddedInstance::Property* EmbeddedInstance::find(std::string_view name) const {
    for (const Property& p : properties_)
        if (p.name.size() == name.size() &&
            strncasecmp(p.name.data(), name.data(), name.size()) == 0)
            return &p;
    return nullptr;
}

} // namespace NQORVA20::profile
