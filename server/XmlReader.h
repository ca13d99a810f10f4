// Reads an XML document into an element tree, refusing what a request to a server has no use for
// and what could make the server do unbounded work: any document type declaration (so no entity
// is ever declared, expanded or fetched), nesting past a depth, more elements and attributes
// than a count (each costs the tree far more memory than its bytes in the document), and
// malformed or non-UTF-8 text. Text can be given in pieces as it arrives.
#ifndef DIAGSERVER_XMLREADER_H
#define DIAGSERVER_XMLREADER_H

#include "server/XmlElement.h"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace diagserver {

// A document the reader refuses; what() says why.
class XmlRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class XmlReader {
public:
    struct Limits {
        std::size_t depth = 64;
        // Elements and attributes together: a request's tree then holds about 12 MiB besides
        // its text at most.
        std::size_t nodes = std::size_t{1} << 16;
    };

    XmlReader();
    explicit XmlReader(Limits limits);
    ~XmlReader();
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    // The next piece of the document. Throws XmlRefused.
    void feed(std::string_view piece);
    // The end of the document: its root element. Throws XmlRefused.
    std::unique_ptr<XmlElement> finish();

    // feed() and finish() over a whole document.
    static std::unique_ptr<XmlElement> read(std::string_view document, Limits limits);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace diagserver

#endif
