// XML character data and attribute values from arbitrary bytes: markup characters become entity
// references, and so does white space a parser would otherwise change (a carriage return, and a
// tab or line feed in an attribute value); whatever XML 1.0 cannot carry (invalid UTF-8, control
// characters other than tab, line feed and carriage return, U+FFFE and U+FFFF) becomes U+FFFD,
// so that what is written is always well-formed UTF-8 and reads back as the provider's text.
#ifndef DIAGSERVER_XMLTEXT_H
#define DIAGSERVER_XMLTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace diagserver {

class XmlText {
public:
    // Appends text escaped for use between tags, or inside a double-quoted attribute value.
    static void appendEscaped(std::string& out, std::string_view text, bool attribute = false);
    // How many leading bytes of text are plain ASCII that needs no escaping there.
    static std::size_t plainPrefix(std::string_view text, bool attribute = false);
    // True when text is UTF-8 that XML 1.0 can carry as it is (markup characters aside).
    static bool isClean(std::string_view text);
};

} // namespace diagserver

#endif
