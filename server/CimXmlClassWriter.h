// Writes the class side of CIM-XML through a CimXmlWriter: CLASS elements from the host's class
// repository (qualifiers typed by their declarations, properties with their defaults, methods with
// their parameters) and QUALIFIER.DECLARATION elements.
#ifndef DIAGSERVER_CIMXMLCLASSWRITER_H
#define DIAGSERVER_CIMXMLCLASSWRITER_H

#include "host/mof/CimClass.h"
#include "server/CimXmlWriter.h"

#include <string>
#include <string_view>
#include <vector>

namespace diaghost {
class ClassRepository;
} // namespace diaghost

namespace diagserver {

class CimXmlClassWriter {
public:
    // What of a class GetClass and EnumerateClasses answer.
    struct Parts {
        bool localOnly = false; // only what the class itself declares
        bool qualifiers = true;
        bool classOrigin = false;
        const std::vector<std::string>* properties = nullptr; // null: every property
    };

    static void cimClass(CimXmlWriter& out, const diaghost::CimClass& cls,
                         const diaghost::ClassRepository& classes, std::string_view ns,
                         const Parts& parts);
    static void qualifierDeclaration(CimXmlWriter& out, const diaghost::CimQualifierDecl& decl);
};

} // namespace diagserver

#endif
