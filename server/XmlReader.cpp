#include "server/XmlReader.h"

#include <expat.h>

#include <climits>
#include <string>
#include <vector>

namespace diagserver {

struct XmlReader::State {
    explicit State(Limits l) : limits(l), parser(XML_ParserCreate("UTF-8")) {
        if (!parser)
            throw std::bad_alloc();
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, &State::start, &State::end);
        XML_SetCharacterDataHandler(parser, &State::characters);
        XML_SetStartDoctypeDeclHandler(parser, &State::doctype);
        XML_SetEntityDeclHandler(parser, &State::entity);
        // No external entity or DTD is ever read, whatever the document names.
        XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_NEVER);
    }
    ~State() { XML_ParserFree(parser); }

    // Stops the parser with a reason; feed() turns it into XmlRefused.
    void refuse(std::string why) {
        if (refusal.empty())
            refusal = std::move(why);
        XML_StopParser(parser, XML_FALSE);
    }

    static void XMLCALL start(void* data, const XML_Char* name, const XML_Char** attributes) {
        auto* s = static_cast<State*>(data);
        try {
            if (s->open.size() >= s->limits.depth)
                return s->refuse("elements nested deeper than " + std::to_string(s->limits.depth));
            std::size_t nodes = 1;
            for (const XML_Char** a = attributes; a && a[0]; a += 2)
                ++nodes;
            s->count += nodes;
            if (s->count > s->limits.nodes)
                return s->refuse("more than " + std::to_string(s->limits.nodes) +
                                 " elements and attributes");
            auto element = std::make_unique<XmlElement>();
            element->name = name;
            element->attributes.reserve(nodes - 1);
            for (const XML_Char** a = attributes; a && a[0]; a += 2)
                element->attributes.emplace_back(a[0], a[1]);
            XmlElement* raw = element.get();
            if (s->open.empty()) {
                s->root = std::move(element);
            } else {
                s->open.back()->children.push_back(std::move(element));
            }
            s->open.push_back(raw);
        } catch (const std::exception& e) {
            s->refuse(e.what());
        }
    }

    static void XMLCALL end(void* data, const XML_Char*) {
        auto* s = static_cast<State*>(data);
        if (!s->open.empty())
            s->open.pop_back();
    }

    static void XMLCALL characters(void* data, const XML_Char* text, int length) {
        auto* s = static_cast<State*>(data);
        if (s->open.empty() || length <= 0)
            return;
        try {
            s->open.back()->text.append(text, static_cast<std::size_t>(length));
        } catch (const std::exception& e) {
            s->refuse(e.what());
        }
    }

    static void XMLCALL doctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*,
                                int) {
        static_cast<State*>(data)->refuse("a document type declaration is not accepted");
    }

    static void XMLCALL entity(void* data, const XML_Char*, int, const XML_Char*, int,
                               const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
        static_cast<State*>(data)->refuse("an entity declaration is not accepted");
    }

    void parse(const char* bytes, std::size_t length, bool last) {
        while (length > 0 || last) {
            const int chunk = length > INT_MAX ? INT_MAX : static_cast<int>(length);
            const bool final = last && static_cast<std::size_t>(chunk) == length;
            if (XML_Parse(parser, bytes, chunk, final ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
                if (!refusal.empty())
                    throw XmlRefused(refusal);
                throw XmlRefused(std::string(XML_ErrorString(XML_GetErrorCode(parser))) +
                                 " at line " + std::to_string(XML_GetCurrentLineNumber(parser)));
            }
            bytes += chunk;
            length -= static_cast<std::size_t>(chunk);
            if (final)
                break;
        }
    }

    Limits limits;
    XML_Parser parser;
    std::unique_ptr<XmlElement> root;
    std::vector<XmlElement*> open;
    std::size_t count = 0;
    std::string refusal;
};

XmlReader::XmlReader() : XmlReader(Limits{}) {}

XmlReader::XmlReader(Limits limits) : state_(std::make_unique<State>(limits)) {}

XmlReader::~XmlReader() = default;

void XmlReader::feed(std::string_view piece) {
    state_->parse(piece.data(), piece.size(), false);
}

std::unique_ptr<XmlElement> XmlReader::finish() {
    state_->parse("", 0, true);
    if (!state_->root)
        throw XmlRefused("the document holds no element");
    return std::move(state_->root);
}

std::unique_ptr<XmlElement> XmlReader::read(std::string_view document, Limits limits) {
    XmlReader reader(limits);
    reader.feed(document);
    return reader.finish();
}

} // namespace diagserver
