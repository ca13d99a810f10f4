// CIM-XML request decoding with libxml2, two ways:
//   sax: the SAX2 element and text events drive the events decoder (the other SAX2 handlers are
//        libxml2's own, as set up for any new parser context);
//   dom: the document is read into a tree (xmlCtxtReadMemory) and the tree decoder walks it.
// Each with
//   default:  options XML_PARSE_NOERROR | XML_PARSE_NOWARNING only (libxml2's own limits:
//             entity amplification checks, 256 levels of nesting without XML_PARSE_HUGE;
//             entities are not substituted without XML_PARSE_NOENT);
//   hardened: also XML_PARSE_NONET, a DOCTYPE stops the parser at once (the internalSubset
//             handler), and the external entity loader refuses every load.
// With --checks also "dom with XML_PARSE_NOENT": the default plus entity substitution, to show
// what that one option opens.
#include "XmlBench.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

namespace {

using namespace wbembench;

constexpr int quiet = XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
constexpr int hardenedOptions = quiet | XML_PARSE_NONET;

const char* str(const xmlChar* s) {
    return reinterpret_cast<const char*>(s);
}

struct Private {
    EventDecoder* decoder = nullptr;
    bool doctypeRefused = false;
};

void refuseDoctype(void* ctx, const xmlChar*, const xmlChar*, const xmlChar*) {
    auto* ctxt = static_cast<xmlParserCtxtPtr>(ctx);
    static_cast<Private*>(ctxt->_private)->doctypeRefused = true;
    xmlStopParser(ctxt);
}

xmlParserInputPtr refuseLoad(const char*, const char*, xmlParserCtxtPtr) {
    return nullptr;
}

void quietErrors(void*, xmlErrorPtr) {}

std::string libxmlError(xmlParserCtxtPtr ctxt) {
    std::string m = ctxt->lastError.message ? ctxt->lastError.message : "not well-formed";
    while (!m.empty() && m.back() == '\n')
        m.pop_back();
    return "libxml2: " + m;
}

// SAX2 -------------------------------------------------------------------------------------

// Without XML_PARSE_NOENT, libxml2 hands a SAX2 handler each '&' of an attribute value
// (written "&amp;" or "&#38;") as the five characters "&#38;", and leaves turning them back to
// whoever builds the value: here, into scratch.
struct SaxAttrs {
    const xmlChar** list; // five pointers each: local name, prefix, URI, value, value end
    int count;
    std::string* scratch;
    bool get(const char* name, std::string_view& value) const {
        for (int i = 0; i < count; ++i) {
            const xmlChar** a = list + 5 * i;
            if (std::strcmp(str(a[0]), name) != 0)
                continue;
            value = std::string_view(str(a[3]), static_cast<std::size_t>(a[4] - a[3]));
            if (value.find('&') == std::string_view::npos)
                return true;
            scratch->clear();
            for (std::size_t k = 0; k < value.size(); ++k) {
                if (value.compare(k, 5, "&#38;") == 0) {
                    *scratch += '&';
                    k += 4;
                } else {
                    *scratch += value[k];
                }
            }
            value = *scratch;
            return true;
        }
        return false;
    }
};

EventDecoder& decoderOf(void* ctx) {
    auto* ctxt = static_cast<xmlParserCtxtPtr>(ctx);
    return *static_cast<Private*>(ctxt->_private)->decoder;
}

void onStart(void* ctx, const xmlChar* name, const xmlChar*, const xmlChar*, int, const xmlChar**,
             int count, int, const xmlChar** attrs) {
    std::string scratch;
    if (!decoderOf(ctx).start(str(name), SaxAttrs{attrs, count, &scratch}))
        xmlStopParser(static_cast<xmlParserCtxtPtr>(ctx));
}

void onEnd(void* ctx, const xmlChar*, const xmlChar*, const xmlChar*) {
    decoderOf(ctx).end();
}

void onText(void* ctx, const xmlChar* s, int len) {
    decoderOf(ctx).text(str(s), static_cast<std::size_t>(len));
}

std::string parseSax(bool hardened, const std::string& text, Request& out) {
    EventDecoder decoder(out);
    Private priv{&decoder, false};
    xmlParserCtxtPtr ctxt = xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size()));
    if (!ctxt)
        return "libxml2: no parser context";
    ctxt->_private = &priv;
    ctxt->sax->startElementNs = onStart;
    ctxt->sax->endElementNs = onEnd;
    ctxt->sax->characters = onText;
    ctxt->sax->cdataBlock = onText;
    ctxt->sax->serror = quietErrors;
    if (hardened)
        ctxt->sax->internalSubset = refuseDoctype;
    xmlCtxtUseOptions(ctxt, hardened ? hardenedOptions : quiet);
    xmlParseDocument(ctxt);
    std::string error;
    if (priv.doctypeRefused)
        error = "DOCTYPE refused";
    else if (decoder.failed())
        error = decoder.error();
    else if (!ctxt->wellFormed)
        error = libxmlError(ctxt);
    else if (!decoder.finish())
        error = decoder.error();
    if (ctxt->myDoc)
        xmlFreeDoc(ctxt->myDoc);
    xmlFreeParserCtxt(ctxt);
    return error;
}

// Tree -------------------------------------------------------------------------------------

struct Node {
    xmlNodePtr n = nullptr;

    static xmlNodePtr element(xmlNodePtr c) {
        while (c && c->type != XML_ELEMENT_NODE)
            c = c->next;
        return c;
    }
    explicit operator bool() const { return n != nullptr; }
    Node firstElement() const { return Node{element(n->children)}; }
    Node nextElement() const { return Node{element(n->next)}; }
    std::string_view name() const { return str(n->name); }
    bool attr(const char* name, std::string_view& value) const {
        for (xmlAttrPtr a = n->properties; a; a = a->next) {
            if (std::strcmp(str(a->name), name) != 0)
                continue;
            if (!a->children) {
                value = std::string_view();
                return true;
            }
            if (a->children->next || a->children->type != XML_TEXT_NODE)
                return false; // an attribute value with entity references in it
            value = str(a->children->content);
            return true;
        }
        return false;
    }
    bool text(std::string& out) const {
        for (xmlNodePtr c = n->children; c; c = c->next) {
            if (c->type != XML_TEXT_NODE && c->type != XML_CDATA_SECTION_NODE)
                return false;
            out += str(c->content);
        }
        return true;
    }
};

std::string parseDom(bool hardened, const std::string& text, Request& out, int options) {
    Private priv;
    xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
    if (!ctxt)
        return "libxml2: no parser context";
    ctxt->_private = &priv;
    ctxt->sax->serror = quietErrors;
    if (hardened)
        ctxt->sax->internalSubset = refuseDoctype;
    xmlDocPtr doc = xmlCtxtReadMemory(ctxt, text.data(), static_cast<int>(text.size()),
                                      "request.xml", nullptr, options);
    std::string error;
    if (priv.doctypeRefused) {
        error = "DOCTYPE refused";
    } else if (!doc) {
        error = libxmlError(ctxt);
    } else {
        TreeDecoder<Node> decoder(out);
        if (!decoder.decode(Node{xmlDocGetRootElement(doc)}))
            error = decoder.error();
    }
    if (doc)
        xmlFreeDoc(doc);
    xmlFreeParserCtxt(ctxt);
    return error;
}

} // namespace

int main(int argc, char** argv) {
    xmlInitParser();
    // The loader is process-wide: each variant sets the one it runs with.
    static xmlExternalEntityLoader libraryLoader = xmlGetExternalEntityLoader();
    std::vector<XmlParser> parsers = {
        {"libxml2-sax/default",
         [](const std::string& t, Request& r) {
             xmlSetExternalEntityLoader(libraryLoader);
             return parseSax(false, t, r);
         }},
        {"libxml2-sax/hardened",
         [](const std::string& t, Request& r) {
             xmlSetExternalEntityLoader(refuseLoad);
             return parseSax(true, t, r);
         }},
        {"libxml2-dom/default",
         [](const std::string& t, Request& r) {
             xmlSetExternalEntityLoader(libraryLoader);
             return parseDom(false, t, r, quiet);
         }},
        {"libxml2-dom/hardened",
         [](const std::string& t, Request& r) {
             xmlSetExternalEntityLoader(refuseLoad);
             return parseDom(true, t, r, hardenedOptions);
         }},
        {"libxml2-dom/with XML_PARSE_NOENT",
         [](const std::string& t, Request& r) {
             xmlSetExternalEntityLoader(libraryLoader);
             return parseDom(false, t, r, quiet | XML_PARSE_NOENT);
         },
         true},
    };
    int rc = xmlBenchMain(argc, argv, parsers);
    xmlCleanupParser();
    return rc;
}
