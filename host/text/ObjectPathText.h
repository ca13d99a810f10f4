// The DMTF text form of an object path, parsed:
//   [//host/][namespace:]Class[.Key="v",Key=5,Flag=TRUE,Ref="ns:Other.Name=\"x\""]
// or Class=@ for a singleton. String values take the escapes \" \' \\ \b \t \n \f \r and \xHHHH;
// integers are decimal, hexadecimal (0x), binary (b suffix) or octal; TRUE/FALSE are booleans;
// 'c' is a char16. A quoted value that is itself a path with keys is kept as a reference
// candidate. Malformed text gives an ObjectPathError naming the offset, never a hang or crash.
#ifndef DIAGHOST_TEXT_OBJECTPATHTEXT_H
#define DIAGHOST_TEXT_OBJECTPATHTEXT_H

#include "host/text/LiteralText.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace diaghost {

// Object path text the parser cannot accept, or a key that cannot take its declared type.
class ObjectPathError : public std::runtime_error {
public:
    explicit ObjectPathError(const std::string& message) : std::runtime_error(message) {}
};

class ObjectPathText {
public:
    struct Key {
        std::string name;
        LiteralKind kind = LiteralKind::String;
        std::string text; // unquoted and unescaped; a number or TRUE/FALSE as written
        // For a quoted value whose text parses as a path with keys: that path.
        std::shared_ptr<const ObjectPathText> reference;
    };

    std::string host;
    std::string nameSpace;
    std::string className;
    std::vector<Key> keys;

    // Throws ObjectPathError.
    static ObjectPathText parse(const std::string& text);
};

} // namespace diaghost

#endif
