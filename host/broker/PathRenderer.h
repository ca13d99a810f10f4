// Object paths and instances as text, the way each object manager the host imitates writes
// them. Pegasus: "//host/ns:Class.k1=v1,k2=v2" with the host only when set and keys sorted by
// name ignoring case; strings, datetimes, chars and references quoted, with backslash and
// double quote escaped; booleans TRUE/FALSE. Sfcb: "ns:Class.k1=v1,..." without host, keys in
// the order they were added (an instance's path adds them in its class's sfcbKeyOrder), strings and
// datetimes quoted but not escaped, references bare; booleans true/false. Either way the namespace
// and ':' appear only when a namespace is set.
#ifndef DIAGHOST_BROKER_PATHRENDERER_H
#define DIAGHOST_BROKER_PATHRENDERER_H

#include "host/text/PathDialect.h"

#include <cmpidt.h>

#include <string>

namespace diaghost {

class HostInstance;
class HostObjectPath;

class PathRenderer {
public:
    static std::string render(const HostObjectPath& path, PathDialect dialect);
    static void append(std::string& out, const HostObjectPath& path, PathDialect dialect);
    // One key value as the dialect writes it after "Name=".
    static void appendKeyValue(std::string& out, const CMPIData& value, PathDialect dialect);
    // A value as a MOF literal: strings and datetimes quoted and escaped, references as the
    // quoted path text of the dialect, arrays in braces, NULL for null.
    static void appendMofValue(std::string& out, const CMPIData& value, PathDialect dialect);
    // "instance of Class {\n    Prop = value;\n};" with the properties that are set.
    static std::string renderInstance(const HostInstance& instance, PathDialect dialect);
};

} // namespace diaghost

#endif
