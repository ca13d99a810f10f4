// One CIM operation as a client asked for it, decoded from its CIM-XML message but not yet
// checked against the repository: the intrinsic method and its named parameters, or the
// extrinsic method with the object it is invoked on and its parameters. Paths are kept as
// parsed path text, so keys take the types their class declares when the path is made.
#ifndef DIAGSERVER_CIMREQUEST_H
#define DIAGSERVER_CIMREQUEST_H

#include "host/text/ObjectPathText.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace diagserver {

struct CimRequest {
    // One parameter value as sent.
    struct Value {
        enum class Kind {
            Null,           // the parameter without a value
            Text,           // VALUE
            TextArray,      // VALUE.ARRAY
            ClassName,      // CLASSNAME
            InstanceName,   // INSTANCENAME, or a VALUE.REFERENCE
            ReferenceArray, // VALUE.REFARRAY
            Other,          // an element no operation served here takes as a value
        };
        Kind kind = Kind::Null;
        std::string type;              // PARAMTYPE or TYPE when given ("uint32", "reference", ...)
        bool embeddedInstance = false; // EmbeddedObject="instance" (the text is CIM-XML)
        std::string text;              // Text; the class of ClassName
        std::vector<std::string> texts;
        diaghost::ObjectPathText path; // InstanceName (namespace empty when it had none)
        std::vector<diaghost::ObjectPathText> paths;
    };

    std::string messageId;
    bool intrinsic = true;
    std::string method;    // IMETHODCALL or METHODCALL NAME
    std::string nameSpace; // "root/cimv2"; for a method call, the target's
    std::vector<std::pair<std::string, Value>> params;
    // A method call's target: an instance (keys given) or a class (no keys, classTarget).
    diaghost::ObjectPathText target;
    bool classTarget = false;

    // The parameter of that name, any case; null when not sent.
    const Value* param(std::string_view name) const;
};

} // namespace diagserver

#endif
