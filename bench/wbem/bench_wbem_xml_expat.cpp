// CIM-XML request decoding with expat: the parser's events drive the events decoder.
//   default:  a parser per request with expat's own settings (internal entities are expanded,
//             its amplification limit is on, external entities are not loaded since no handler
//             is set, parameter entities are not parsed).
//   hardened: the same, and a DOCTYPE stops the parser at once.
//   reused:   hardened, with one parser per thread reset for each request (XML_ParserReset), as
//             a server would keep one per connection.
//   pieces:   hardened, fed the text in pieces of 16 KiB, as a server would feed the body while
//             it arrives (expat's buffer then holds only what is not parsed yet).
#include "XmlBench.h"

#include <expat.h>

namespace {

using namespace wbembench;

struct ExpatAttrs {
    const XML_Char** list;
    bool get(const char* name, std::string_view& value) const {
        for (const XML_Char** a = list; *a; a += 2) {
            if (std::strcmp(a[0], name) == 0) {
                value = a[1];
                return true;
            }
        }
        return false;
    }
};

struct Context {
    XML_Parser parser;
    EventDecoder decoder;
};

void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** attrs) {
    auto* c = static_cast<Context*>(data);
    if (!c->decoder.start(name, ExpatAttrs{attrs}))
        XML_StopParser(c->parser, XML_FALSE);
}

void XMLCALL onEnd(void* data, const XML_Char*) {
    auto* c = static_cast<Context*>(data);
    c->decoder.end();
}

void XMLCALL onText(void* data, const XML_Char* s, int len) {
    static_cast<Context*>(data)->decoder.text(s, static_cast<std::size_t>(len));
}

void XMLCALL onDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
    auto* c = static_cast<Context*>(data);
    c->decoder.fail("DOCTYPE refused");
    XML_StopParser(c->parser, XML_FALSE);
}

// Feeds the text in pieces of `piece` bytes (all at once when 0), as a server would feed the
// body while it arrives.
std::string run(XML_Parser parser, bool hardened, const std::string& text, Request& out,
                std::size_t piece = 0) {
    Context c{parser, EventDecoder(out)};
    XML_SetUserData(parser, &c);
    XML_SetElementHandler(parser, onStart, onEnd);
    XML_SetCharacterDataHandler(parser, onText);
    if (hardened)
        XML_SetStartDoctypeDeclHandler(parser, onDoctype);
    XML_Status status = XML_STATUS_OK;
    if (piece == 0) {
        status = XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE);
    } else {
        for (std::size_t at = 0; status == XML_STATUS_OK && at < text.size(); at += piece) {
            std::size_t n = std::min(piece, text.size() - at);
            status = XML_Parse(parser, text.data() + at, static_cast<int>(n),
                               at + n == text.size() ? XML_TRUE : XML_FALSE);
        }
    }
    if (c.decoder.failed())
        return c.decoder.error();
    if (status != XML_STATUS_OK)
        return std::string("expat: ") + XML_ErrorString(XML_GetErrorCode(parser));
    if (!c.decoder.finish())
        return c.decoder.error();
    return std::string();
}

std::string parseFresh(bool hardened, const std::string& text, Request& out,
                       std::size_t piece = 0) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    std::string error = run(parser, hardened, text, out, piece);
    XML_ParserFree(parser);
    return error;
}

std::string parseReused(const std::string& text, Request& out) {
    struct Owner {
        XML_Parser parser = XML_ParserCreate(nullptr);
        ~Owner() { XML_ParserFree(parser); }
    };
    thread_local Owner owner;
    XML_ParserReset(owner.parser, nullptr);
    return run(owner.parser, true, text, out);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<XmlParser> parsers = {
        {"expat/default", [](const std::string& t, Request& r) { return parseFresh(false, t, r); }},
        {"expat/hardened", [](const std::string& t, Request& r) { return parseFresh(true, t, r); }},
        {"expat/reused", [](const std::string& t, Request& r) { return parseReused(t, r); }},
        {"expat/pieces",
         [](const std::string& t, Request& r) { return parseFresh(true, t, r, 16384); }},
    };
    return xmlBenchMain(argc, argv, parsers);
}
