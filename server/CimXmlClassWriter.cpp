#include "server/CimXmlClassWriter.h"

#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <cmpidt.h>

namespace diagserver {

namespace {

// The elements of a qualifier value as the repository keeps it (arrays joined by ",").
std::vector<std::string> qualifierElements(const std::string& text, bool array) {
    if (!array)
        return {text};
    std::vector<std::string> out;
    std::size_t from = 0;
    for (;;) {
        std::size_t comma = text.find(',', from);
        out.push_back(text.substr(from, comma == std::string::npos ? comma : comma - from));
        if (comma == std::string::npos)
            return out;
        from = comma + 1;
    }
}

// The flavor attributes where the declared flavors differ from the defaults (overridable,
// propagated to subclasses, not translatable).
void flavors(CimXmlWriter& out, const diaghost::CimQualifierDecl& decl) {
    for (const std::string& flavor : decl.flavor) {
        if (flavor == "disableoverride")
            out.raw(" OVERRIDABLE=\"false\"");
        else if (flavor == "restricted")
            out.raw(" TOSUBCLASS=\"false\"");
        else if (flavor == "translatable")
            out.raw(" TRANSLATABLE=\"true\"");
    }
}

void qualifiers(CimXmlWriter& out, const diaghost::CimQualifiers& qualifiers,
                const diaghost::ClassRepository& classes, std::string_view ns) {
    for (const auto& [lowerName, value] : qualifiers) {
        const diaghost::CimQualifierDecl* decl = classes.findQualifier(std::string(ns), lowerName);
        const diaghost::CimTypeCode type = decl ? decl->type : CMPI_string;
        const bool array = (type & CMPI_ARRAY) != 0;
        out.raw("<QUALIFIER");
        out.attribute("NAME", decl ? std::string_view(decl->name) : std::string_view(lowerName));
        out.attribute("TYPE", CimXmlWriter::typeName(type).empty() ? "string"
                                                                   : CimXmlWriter::typeName(type));
        if (decl)
            flavors(out, *decl);
        out.raw(">");
        if (array)
            out.openTag("VALUE.ARRAY");
        for (const std::string& element : qualifierElements(value, array)) {
            out.openTag("VALUE");
            if ((type & ~CMPI_ARRAY) == CMPI_boolean)
                out.raw(diaghost::sameName(element, "false") ? "FALSE" : "TRUE");
            else
                out.text(element);
            out.closeTag("VALUE");
        }
        if (array)
            out.closeTag("VALUE.ARRAY");
        out.closeTag("QUALIFIER");
    }
}

} // namespace

void CimXmlClassWriter::cimClass(CimXmlWriter& out, const diaghost::CimClass& cls,
                                 const diaghost::ClassRepository& classes, std::string_view ns,
                                 const Parts& parts) {
    out.raw("<CLASS");
    out.attribute("NAME", cls.name);
    if (!cls.superclass.empty())
        out.attribute("SUPERCLASS", cls.superclass);
    out.raw(">");
    if (parts.qualifiers)
        qualifiers(out, cls.qualifiers, classes, ns);
    // A member is the class's own when the class declares it, overriding or not; an inherited
    // one is propagated, and its origin is the most derived class declaring it.
    auto inherited = [&](const std::string& declaredIn) {
        return !declaredIn.empty() && !diaghost::sameName(declaredIn, cls.name);
    };
    auto origin = [&](const std::string& declaredIn) {
        if (parts.classOrigin && !declaredIn.empty())
            out.attribute("CLASSORIGIN", declaredIn);
        if (inherited(declaredIn))
            out.raw(" PROPAGATED=\"true\"");
    };
    for (const diaghost::CimProperty& p : cls.properties) {
        if ((parts.localOnly && inherited(p.declaredIn)) ||
            !CimXmlWriter::listed(parts.properties, p.name))
            continue;
        const bool array = (p.type & CMPI_ARRAY) != 0;
        std::string_view tag = p.type == CMPI_ref ? "PROPERTY.REFERENCE"
                               : array            ? "PROPERTY.ARRAY"
                                                  : "PROPERTY";
        out.raw("<");
        out.raw(tag);
        out.attribute("NAME", p.name);
        if (p.type == CMPI_ref) {
            if (!p.refClass.empty())
                out.attribute("REFERENCECLASS", p.refClass);
        } else {
            out.attribute("TYPE", CimXmlWriter::typeName(p.type));
        }
        origin(p.declaredIn);
        out.raw(">");
        if (parts.qualifiers)
            qualifiers(out, p.qualifiers, classes, ns);
        if (p.hasDefault && p.defaultValue.kind != diaghost::LiteralKind::Null &&
            p.type != CMPI_ref) {
            if (array)
                out.openTag("VALUE.ARRAY");
            for (const std::string& element : p.defaultValue.elements) {
                out.openTag("VALUE");
                out.text(element);
                out.closeTag("VALUE");
            }
            if (array)
                out.closeTag("VALUE.ARRAY");
        }
        out.closeTag(tag);
    }
    for (const diaghost::CimMethod& m : cls.methods) {
        if (parts.localOnly && inherited(m.declaredIn))
            continue;
        out.raw("<METHOD");
        out.attribute("NAME", m.name);
        if (!CimXmlWriter::typeName(m.returnType).empty())
            out.attribute("TYPE", CimXmlWriter::typeName(m.returnType));
        origin(m.declaredIn);
        out.raw(">");
        if (parts.qualifiers)
            qualifiers(out, m.qualifiers, classes, ns);
        for (const diaghost::CimParameter& param : m.parameters) {
            const bool array = (param.type & CMPI_ARRAY) != 0;
            const bool reference = (param.type & ~CMPI_ARRAY) == CMPI_ref;
            std::string_view tag = reference
                                       ? (array ? "PARAMETER.REFARRAY" : "PARAMETER.REFERENCE")
                                   : array ? "PARAMETER.ARRAY"
                                           : "PARAMETER";
            out.raw("<");
            out.raw(tag);
            out.attribute("NAME", param.name);
            if (reference) {
                if (!param.refClass.empty())
                    out.attribute("REFERENCECLASS", param.refClass);
            } else {
                out.attribute("TYPE", CimXmlWriter::typeName(param.type));
            }
            out.raw(">");
            if (parts.qualifiers)
                qualifiers(out, param.qualifiers, classes, ns);
            out.closeTag(tag);
        }
        out.closeTag("METHOD");
    }
    out.closeTag("CLASS");
    out.maybeFlush();
}

void CimXmlClassWriter::qualifierDeclaration(CimXmlWriter& out,
                                             const diaghost::CimQualifierDecl& decl) {
    const bool array = (decl.type & CMPI_ARRAY) != 0;
    out.raw("<QUALIFIER.DECLARATION");
    out.attribute("NAME", decl.name);
    out.attribute("TYPE", CimXmlWriter::typeName(decl.type).empty()
                              ? "string"
                              : CimXmlWriter::typeName(decl.type));
    if (array)
        out.raw(" ISARRAY=\"true\"");
    flavors(out, decl);
    out.raw(">");
    out.raw("<SCOPE");
    static constexpr std::pair<std::string_view, std::string_view> scopes[] = {
        {"class", "CLASS"},          {"association", "ASSOCIATION"}, {"reference", "REFERENCE"},
        {"property", "PROPERTY"},    {"method", "METHOD"},           {"parameter", "PARAMETER"},
        {"indication", "INDICATION"}};
    bool any = false;
    for (const std::string& s : decl.scope)
        any = any || s == "any";
    for (const auto& [word, attributeName] : scopes) {
        bool in = any;
        for (const std::string& s : decl.scope)
            in = in || s == word;
        if (in)
            out.attribute(attributeName, "true");
    }
    out.raw("/>");
    if (!decl.defaultText.empty()) {
        if (array)
            out.openTag("VALUE.ARRAY");
        for (const std::string& element : qualifierElements(decl.defaultText, array)) {
            out.openTag("VALUE");
            out.text(element);
            out.closeTag("VALUE");
        }
        if (array)
            out.closeTag("VALUE.ARRAY");
    }
    out.closeTag("QUALIFIER.DECLARATION");
    out.maybeFlush();
}

} // namespace diagserver
