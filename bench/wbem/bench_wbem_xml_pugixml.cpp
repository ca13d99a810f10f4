// CIM-XML request decoding with pugixml: the request is read into pugixml's tree
// (xml_document::load_buffer, which copies the text; parse_default, text given as UTF-8) and the
// tree decoder walks it.
//   default:  pugixml's own behaviour (a DOCTYPE is skipped, entities other than the five
//             predefined ones and character references are left as they are, bytes are not
//             checked for UTF-8).
//   hardened: parse_doctype keeps a DOCTYPE as a node, and a document with one is refused; the
//             text is checked for UTF-8 first (our own check below: pugixml has none).
#include "XmlBench.h"

#include <pugixml.hpp>

namespace {

using namespace wbembench;

// True when s is well-formed UTF-8: no stray continuation bytes, no overlong forms, no UTF-16
// surrogates, nothing above U+10FFFF, no sequence cut short.
bool validUtf8(const unsigned char* s, std::size_t n) {
    std::size_t i = 0;
    while (i < n) {
        // Eight ASCII bytes at a time.
        while (i + 8 <= n) {
            std::uint64_t w;
            std::memcpy(&w, s + i, 8);
            if (w & 0x8080808080808080ULL)
                break;
            i += 8;
        }
        if (i >= n)
            break;
        unsigned char c = s[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t len;
        unsigned char lo = 0x80, hi = 0xBF; // allowed range of the second byte
        if (c >= 0xC2 && c <= 0xDF) {
            len = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            len = 3;
            if (c == 0xE0)
                lo = 0xA0;
            else if (c == 0xED)
                hi = 0x9F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            len = 4;
            if (c == 0xF0)
                lo = 0x90;
            else if (c == 0xF4)
                hi = 0x8F;
        } else {
            return false;
        }
        if (i + len > n || s[i + 1] < lo || s[i + 1] > hi)
            return false;
        for (std::size_t k = 2; k < len; ++k)
            if ((s[i + k] & 0xC0) != 0x80)
                return false;
        i += len;
    }
    return true;
}

struct Node {
    pugi::xml_node n;

    static pugi::xml_node element(pugi::xml_node c) {
        while (c && c.type() != pugi::node_element)
            c = c.next_sibling();
        return c;
    }
    explicit operator bool() const { return !n.empty(); }
    Node firstElement() const { return Node{element(n.first_child())}; }
    Node nextElement() const { return Node{element(n.next_sibling())}; }
    std::string_view name() const { return n.name(); }
    bool attr(const char* name, std::string_view& value) const {
        for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute()) {
            if (std::strcmp(a.name(), name) == 0) {
                value = a.value();
                return true;
            }
        }
        return false;
    }
    bool text(std::string& out) const {
        for (pugi::xml_node c = n.first_child(); c; c = c.next_sibling()) {
            if (c.type() != pugi::node_pcdata && c.type() != pugi::node_cdata)
                return false;
            out += c.value();
        }
        return true;
    }
};

std::string parse(bool hardened, const std::string& text, Request& out) {
    if (hardened && !validUtf8(reinterpret_cast<const unsigned char*>(text.data()), text.size()))
        return "not UTF-8";
    pugi::xml_document doc;
    unsigned options = pugi::parse_default | (hardened ? pugi::parse_doctype : 0u);
    pugi::xml_parse_result result =
        doc.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
    if (!result)
        return std::string("pugixml: ") + result.description();
    Node root{};
    for (pugi::xml_node c = doc.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_doctype)
            return "DOCTYPE refused";
        if (c.type() == pugi::node_element && !root)
            root.n = c;
    }
    TreeDecoder<Node> decoder(out);
    if (!decoder.decode(root))
        return decoder.error();
    return std::string();
}

} // namespace

int main(int argc, char** argv) {
    std::vector<XmlParser> parsers = {
        {"pugixml/default", [](const std::string& t, Request& r) { return parse(false, t, r); }},
        {"pugixml/hardened", [](const std::string& t, Request& r) { return parse(true, t, r); }},
    };
    return xmlBenchMain(argc, argv, parsers);
}
