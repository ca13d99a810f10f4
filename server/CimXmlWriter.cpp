#include "server/CimXmlWriter.h"

#include "host/broker/HostDateTime.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"
#include "host/mof/CimClass.h"
#include "host/text/CimNames.h"
#include "host/text/LiteralText.h"
#include "server/XmlText.h"

#include <cmpift.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace diagserver {

namespace {

// The characters of a broker string, valid while the string lives (the writer's call scope).
std::string_view stringText(const CMPIString* s) {
    if (const diaghost::HostString* own = diaghost::HostString::from(s))
        return own->text() ? std::string_view(own->text(), own->length()) : std::string_view();
    if (!s || !s->ft)
        return {};
    const char* p = s->ft->getCharPtr(s, nullptr);
    return p ? std::string_view(p) : std::string_view();
}

// The path an instance is written with: the one given, else the instance's own, asked of it and
// released with this.
class InstancePath {
public:
    InstancePath(const CMPIObjectPath* given, const CMPIInstance* inst)
        : own_(!given && inst && inst->ft ? inst->ft->getObjectPath(inst, nullptr) : nullptr),
          path_(given ? given : own_) {}
    ~InstancePath() {
        if (own_ && own_->ft)
            own_->ft->release(own_);
    }
    InstancePath(const InstancePath&) = delete;
    InstancePath& operator=(const InstancePath&) = delete;
    const CMPIObjectPath* get() const { return path_; }

private:
    CMPIObjectPath* own_;
    const CMPIObjectPath* path_;
};

// A key's value as a path hands it out: a set value is marked as a key.
CMPIData asKey(CMPIData value) {
    if (!(value.state & CMPI_nullValue))
        value.state = CMPI_keyValue;
    return value;
}

bool isNull(const CMPIData& d) {
    return (d.state & (CMPI_nullValue | CMPI_notFound | CMPI_badValue)) != 0 || d.type == CMPI_null;
}

// Numbers are formatted into a caller's buffer of this size, which any of them fits.
using NumberBuffer = char[64];

template <class T>
std::string_view numberText(T value, NumberBuffer& buffer) {
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer));
}

// A real as CIM writes it: the shortest text that reads back as the same number, with a
// decimal point and a digit after it ("3.0", "1.0e+20"), which a CIM real literal must have.
template <class Real>
std::string_view realText(Real value, NumberBuffer& buffer) {
    if (std::isnan(value))
        return "NaN";
    if (std::isinf(value))
        return value < 0 ? "-INF" : "INF";
    const std::string_view shortest = numberText(value, buffer);
    if (shortest.find('.') != std::string_view::npos)
        return shortest;
    const std::size_t point = std::min(shortest.find('e'), shortest.size());
    std::memmove(buffer + point + 2, buffer + point, shortest.size() - point);
    buffer[point] = '.';
    buffer[point + 1] = '0';
    return std::string_view(buffer, shortest.size() + 2);
}

// What a string property holds as the class declares it: "instance" for the text of an
// embedded instance, "object" for an embedded instance or class; empty for plain text.
std::string_view embeddedKind(const diaghost::CimQualifiers& qualifiers) {
    auto set = [&](const char* name) {
        auto it = qualifiers.find(name);
        return it != qualifiers.end() && !diaghost::sameName(it->second, "false");
    };
    if (set("embeddedinstance"))
        return "instance";
    if (set("embeddedobject"))
        return "object";
    return {};
}

// What KEYVALUE's VALUETYPE says of a key's type.
std::string_view valueType(CMPIType type) {
    switch (type) {
    case CMPI_boolean:
        return "boolean";
    case CMPI_string:
    case CMPI_chars:
    case CMPI_char16:
    case CMPI_dateTime:
        return "string";
    default:
        return "numeric";
    }
}

} // namespace

CimXmlWriter::CimXmlWriter(Sink sink, std::size_t flushAt, PieceSink passed)
    : sink_(std::move(sink)), pieceSink_(std::move(passed)), flushAt_(flushAt) {
    grow(flushAt_ + 4096);
}

CimXmlWriter::CimXmlWriter(PieceSink sink, MarkupPiece memory, std::size_t flushAt)
    : pieceSink_(std::move(sink)), handsOverBuffer_(true), flushAt_(flushAt),
      buffer_(std::move(memory.data)), capacity_(buffer_ ? memory.capacity : 0) {}

void CimXmlWriter::grow(std::size_t more) {
    const std::size_t wanted = std::max({size_ + more, capacity_ * 2, flushAt_ + 4096});
    std::unique_ptr<char[]> larger(new char[wanted]);
    if (size_ > 0)
        std::memcpy(larger.get(), buffer_.get(), size_);
    buffer_ = std::move(larger);
    capacity_ = wanted;
}

void CimXmlWriter::escaped(std::string_view text, bool attribute) {
    std::string out;
    XmlText::appendEscaped(out, text, attribute);
    raw(out);
}

void CimXmlWriter::flush() {
    if (size_ == 0)
        return;
    if (!handsOverBuffer_) {
        sink_(std::string_view(buffer_.get(), size_));
        written_ += size_;
        size_ = 0;
        return;
    }
    MarkupPiece piece(std::move(buffer_), size_, capacity_);
    try {
        pieceSink_(piece);
    } catch (...) {
        buffer_ = std::move(piece.data);
        throw;
    }
    written_ += size_;
    buffer_ = std::move(piece.data);
    capacity_ = buffer_ ? piece.capacity : 0;
    size_ = 0;
}

void CimXmlWriter::pass(std::string_view markup) {
    if (handsOverBuffer_) {
        raw(markup);
        flush();
        return;
    }
    flush();
    if (markup.empty())
        return;
    sink_(markup);
    written_ += markup.size();
}

void CimXmlWriter::pass(MarkupPiece&& piece) {
    if (!pieceSink_ || handsOverBuffer_) {
        pass(piece.view());
        return;
    }
    flush();
    if (piece.size == 0)
        return;
    const std::size_t size = piece.size;
    pieceSink_(piece);
    written_ += size;
}

MarkupPiece CimXmlWriter::takeMemory() {
    MarkupPiece memory(std::move(buffer_), 0, capacity_);
    size_ = 0;
    capacity_ = 0;
    return memory;
}

void CimXmlWriter::maybeFlush() {
    if (size_ >= flushAt_)
        flush();
}

bool CimXmlWriter::listed(const std::vector<std::string>* properties, std::string_view name) {
    if (!properties)
        return true;
    for (const std::string& p : *properties)
        if (diaghost::sameName(p, name))
            return true;
    return false;
}

std::string_view CimXmlWriter::typeName(CMPIType type) {
    switch (type & ~CMPI_ARRAY) {
    case CMPI_boolean:
        return "boolean";
    case CMPI_char16:
        return "char16";
    case CMPI_real32:
        return "real32";
    case CMPI_real64:
        return "real64";
    case CMPI_uint8:
        return "uint8";
    case CMPI_uint16:
        return "uint16";
    case CMPI_uint32:
        return "uint32";
    case CMPI_uint64:
        return "uint64";
    case CMPI_sint8:
        return "sint8";
    case CMPI_sint16:
        return "sint16";
    case CMPI_sint32:
        return "sint32";
    case CMPI_sint64:
        return "sint64";
    case CMPI_string:
    case CMPI_chars:
        return "string";
    case CMPI_dateTime:
        return "datetime";
    case CMPI_ref:
        return "reference";
    default:
        return {};
    }
}

// ---- The message ------------------------------------------------------------------------------

void CimXmlWriter::beginMessage(std::string_view messageId) {
    raw("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
        "<MESSAGE");
    attribute("ID", messageId);
    raw(" PROTOCOLVERSION=\"1.0\"><SIMPLERSP>");
}

void CimXmlWriter::endMessage() {
    raw("</SIMPLERSP></MESSAGE></CIM>\n");
    flush();
}

void CimXmlWriter::beginIMethodResponse(std::string_view name) {
    raw("<IMETHODRESPONSE");
    attribute("NAME", name);
    put('>');
}

void CimXmlWriter::endIMethodResponse() {
    closeTag("IMETHODRESPONSE");
}

void CimXmlWriter::beginIReturnValue() {
    openTag("IRETURNVALUE");
}

void CimXmlWriter::endIReturnValue() {
    closeTag("IRETURNVALUE");
    maybeFlush();
}

void CimXmlWriter::beginMethodResponse(std::string_view name) {
    raw("<METHODRESPONSE");
    attribute("NAME", name);
    put('>');
}

void CimXmlWriter::endMethodResponse() {
    closeTag("METHODRESPONSE");
}

void CimXmlWriter::error(unsigned code, std::string_view description) {
    NumberBuffer number;
    raw("<ERROR");
    attribute("CODE", numberText(code, number));
    if (!description.empty())
        attribute("DESCRIPTION", description);
    raw("/>");
}

void CimXmlWriter::returnValue(const CMPIData& value) {
    raw("<RETURNVALUE");
    if (!(value.type & CMPI_ARRAY))
        paramType(value.type);
    put('>');
    valueElement(value);
    closeTag("RETURNVALUE");
}

void CimXmlWriter::paramType(CMPIType type) {
    // An embedded instance travels as a string that says what it holds.
    if ((type & ~CMPI_ARRAY) == CMPI_instance) {
        raw(" PARAMTYPE=\"string\" EmbeddedObject=\"instance\"");
        return;
    }
    const std::string_view name = typeName(type);
    if (!name.empty())
        attribute("PARAMTYPE", name);
}

void CimXmlWriter::paramValue(std::string_view name, const CMPIData& value) {
    raw("<PARAMVALUE");
    attribute("NAME", name);
    paramType(value.type);
    put('>');
    valueElement(value);
    closeTag("PARAMVALUE");
}

// ---- Paths ------------------------------------------------------------------------------------

void CimXmlWriter::localNamespacePath(std::string_view ns) {
    openTag("LOCALNAMESPACEPATH");
    // One NAMESPACE element per non-empty part between slashes.
    while (!ns.empty()) {
        const std::size_t slash = ns.find('/');
        const std::string_view part = ns.substr(0, slash);
        if (!part.empty()) {
            raw("<NAMESPACE");
            attribute("NAME", part);
            raw("/>");
        }
        ns.remove_prefix(slash == std::string_view::npos ? ns.size() : slash + 1);
    }
    closeTag("LOCALNAMESPACEPATH");
}

void CimXmlWriter::keyBinding(std::string_view name, const CMPIData& value) {
    raw("<KEYBINDING");
    attribute("NAME", name);
    put('>');
    if (value.type == CMPI_ref && !isNull(value)) {
        // A reference key is written with its namespace but without a host: clients hand key
        // values back in later requests, and a local path is one every client reads back as it
        // was (wbemcli cannot read a full path back inside a key).
        openTag("VALUE.REFERENCE");
        localInstancePath(value.value.ref);
        closeTag("VALUE.REFERENCE");
    } else {
        raw("<KEYVALUE");
        attribute("VALUETYPE", valueType(value.type));
        std::string_view type = typeName(value.type);
        if (!type.empty())
            attribute("TYPE", type);
        put('>');
        if (!isNull(value))
            scalarValue(value.type, value.value);
        closeTag("KEYVALUE");
    }
    closeTag("KEYBINDING");
}

void CimXmlWriter::instanceName(const CMPIObjectPath* path) {
    if (const diaghost::HostObjectPath* own = diaghost::HostObjectPath::from(path)) {
        // The host's own path: its class and key names are read where it keeps them.
        raw("<INSTANCENAME");
        attribute("CLASSNAME", own->className() ? own->className() : "");
        put('>');
        for (const diaghost::HostObjectPath::Key& key : own->keys())
            keyBinding(key.name ? key.name : "", asKey(key.value));
        raw("</INSTANCENAME>");
        return;
    }
    raw("<INSTANCENAME");
    attribute("CLASSNAME", path && path->ft ? stringText(path->ft->getClassName(path, nullptr))
                                            : std::string_view());
    put('>');
    CMPICount keys = path && path->ft ? path->ft->getKeyCount(path, nullptr) : 0;
    for (CMPICount i = 0; i < keys; ++i) {
        CMPIString* name = nullptr;
        CMPIData key = path->ft->getKeyAt(path, i, &name, nullptr);
        keyBinding(stringText(name), key);
    }
    closeTag("INSTANCENAME");
}

void CimXmlWriter::namespacePath(std::string_view own, std::string_view host, std::string_view ns) {
    raw("<NAMESPACEPATH><HOST>");
    text(!own.empty() ? own : !host.empty() ? host : "localhost");
    raw("</HOST>");
    localNamespacePath(ns);
    raw("</NAMESPACEPATH>");
}

void CimXmlWriter::instancePath(const CMPIObjectPath* path, std::string_view host) {
    raw("<INSTANCEPATH>");
    const bool usable = path && path->ft;
    namespacePath(usable ? stringText(path->ft->getHostname(path, nullptr)) : std::string_view(),
                  host, usable ? stringText(path->ft->getNameSpace(path, nullptr)) : "");
    instanceName(path);
    raw("</INSTANCEPATH>");
}

void CimXmlWriter::localInstancePath(const CMPIObjectPath* path) {
    openTag("LOCALINSTANCEPATH");
    localNamespacePath(path && path->ft ? stringText(path->ft->getNameSpace(path, nullptr)) : "");
    instanceName(path);
    closeTag("LOCALINSTANCEPATH");
}

void CimXmlWriter::valueReference(const CMPIObjectPath* path) {
    openTag("VALUE.REFERENCE");
    std::string_view host =
        path && path->ft ? stringText(path->ft->getHostname(path, nullptr)) : std::string_view();
    std::string_view ns =
        path && path->ft ? stringText(path->ft->getNameSpace(path, nullptr)) : std::string_view();
    if (!host.empty())
        instancePath(path, host);
    else if (!ns.empty())
        localInstancePath(path);
    else
        instanceName(path);
    closeTag("VALUE.REFERENCE");
}

void CimXmlWriter::objectPath(const CMPIObjectPath* path, std::string_view host) {
    openTag("OBJECTPATH");
    instancePath(path, host);
    closeTag("OBJECTPATH");
    maybeFlush();
}

void CimXmlWriter::classPath(std::string_view host, std::string_view ns,
                             std::string_view className) {
    raw("<CLASSPATH>");
    namespacePath({}, host, ns);
    raw("<CLASSNAME");
    attribute("NAME", className);
    raw("/>");
    closeTag("CLASSPATH");
}

void CimXmlWriter::className(std::string_view name) {
    raw("<CLASSNAME");
    attribute("NAME", name);
    raw("/>");
    maybeFlush();
}

// ---- Values -----------------------------------------------------------------------------------

void CimXmlWriter::scalarValue(CMPIType type, const CMPIValue& v) {
    NumberBuffer number;
    switch (type) {
    case CMPI_boolean:
        raw(v.boolean ? "TRUE" : "FALSE");
        return;
    case CMPI_char16:
        text(diaghost::LiteralText::char16Utf8(v.char16));
        return;
    case CMPI_real32:
        raw(realText(v.real32, number));
        return;
    case CMPI_real64:
        raw(realText(v.real64, number));
        return;
    case CMPI_uint8:
        raw(numberText(v.uint8, number));
        return;
    case CMPI_uint16:
        raw(numberText(v.uint16, number));
        return;
    case CMPI_uint32:
        raw(numberText(v.uint32, number));
        return;
    case CMPI_uint64:
        raw(numberText(v.uint64, number));
        return;
    case CMPI_sint8:
        raw(numberText(static_cast<int>(v.sint8), number));
        return;
    case CMPI_sint16:
        raw(numberText(v.sint16, number));
        return;
    case CMPI_sint32:
        raw(numberText(v.sint32, number));
        return;
    case CMPI_sint64:
        raw(numberText(v.sint64, number));
        return;
    case CMPI_string:
        text(stringText(v.string));
        return;
    case CMPI_chars:
        text(v.chars ? v.chars : "");
        return;
    case CMPI_dateTime:
        if (const diaghost::HostDateTime* own = diaghost::HostDateTime::from(v.dateTime)) {
            char digits[diaghost::HostDateTime::textLength];
            raw(std::string_view(digits, own->format(digits)));
        } else if (v.dateTime && v.dateTime->ft)
            text(stringText(v.dateTime->ft->getStringFormat(v.dateTime, nullptr)));
        return;
    case CMPI_instance: {
        // An embedded instance travels as the escaped text of its own INSTANCE element.
        std::string inner;
        // An embedded instance is short: a small buffer, not an answer's.
        CimXmlWriter nested([&inner](std::string_view part) { inner.append(part); },
                            std::size_t{4} << 10);
        nested.instance(v.inst, nullptr);
        nested.flush();
        text(inner);
        return;
    }
    default:
        return;
    }
}

void CimXmlWriter::valueElement(const CMPIData& data) {
    if (isNull(data))
        return;
    if (!(data.type & CMPI_ARRAY)) {
        if (data.type == CMPI_ref) {
            valueReference(data.value.ref);
            return;
        }
        raw("<VALUE>");
        scalarValue(data.type, data.value);
        raw("</VALUE>");
        return;
    }
    const CMPIArray* array = data.value.array;
    const bool references = (data.type & ~CMPI_ARRAY) == CMPI_ref;
    openTag(references ? "VALUE.REFARRAY" : "VALUE.ARRAY");
    CMPICount n = array && array->ft ? array->ft->getSize(array, nullptr) : 0;
    for (CMPICount i = 0; i < n; ++i) {
        CMPIData element = array->ft->getElementAt(array, i, nullptr);
        if (isNull(element)) {
            raw("<VALUE.NULL/>");
        } else if (references) {
            valueReference(element.value.ref);
        } else {
            raw("<VALUE>");
            scalarValue(data.type & ~CMPI_ARRAY, element.value);
            raw("</VALUE>");
        }
    }
    closeTag(references ? "VALUE.REFARRAY" : "VALUE.ARRAY");
}

// ---- Instances --------------------------------------------------------------------------------

std::string_view CimXmlWriter::propertyStart(std::string_view name, CMPIType type,
                                             std::string_view embedded) {
    const CMPIType element = type & ~CMPI_ARRAY;
    if (type == CMPI_ref) {
        raw("<PROPERTY.REFERENCE");
        attribute("NAME", name);
        put('>');
        return "</PROPERTY.REFERENCE>";
    }
    const bool array = (type & CMPI_ARRAY) != 0;
    raw(array ? "<PROPERTY.ARRAY" : "<PROPERTY");
    attribute("NAME", name);
    const std::string_view holds = element == CMPI_instance ? std::string_view("instance")
                                   : element == CMPI_string ? embedded
                                                            : std::string_view();
    if (!holds.empty()) {
        raw(" TYPE=\"string\"");
        attribute("EmbeddedObject", holds);
    } else {
        std::string_view typeText = typeName(element);
        attribute("TYPE", typeText.empty() ? std::string_view("string") : typeText);
    }
    put('>');
    return array ? "</PROPERTY.ARRAY>" : "</PROPERTY>";
}

void CimXmlWriter::property(std::string_view name, const CMPIData& data,
                            std::string_view embedded) {
    const std::string_view end = propertyStart(name, data.type, embedded);
    valueElement(data);
    raw(end);
}

const CimXmlWriter::ClassTags& CimXmlWriter::tagsFor(const diaghost::HostInstance& inst) {
    const void* cls = &inst.cimClass();
    for (const ClassTags& known : classTags_)
        if (known.cls == cls)
            return known;
    ClassTags tags{cls, {}, {}};
    tags.properties.reserve(inst.propertyCount());
    for (std::size_t i = 0; i < inst.propertyCount(); ++i) {
        const char* name = inst.propertyName(i);
        const diaghost::CimProperty& declared = inst.cimClass().properties[i];
        PropertyTags property{
            declared.type, name ? name : "", {}, {}, embeddedKind(declared.qualifiers)};
        if (!property.name.empty()) {
            // Rendered once into the buffer and moved out, so that both ways of writing a
            // property write the same start tag.
            const std::size_t mark = size_;
            property.end = propertyStart(property.name, property.type, property.embedded);
            property.start.assign(buffer_.get() + mark, size_ - mark);
            size_ = mark;
        }
        tags.properties.push_back(std::move(property));
    }
    tags.keys = inst.keyOrder();
    classTags_.push_back(std::move(tags));
    return classTags_.back();
}

void CimXmlWriter::instance(const CMPIInstance* inst, const std::vector<std::string>* properties,
                            const CMPIObjectPath* path) {
    if (const diaghost::HostInstance* h = diaghost::HostInstance::from(inst)) {
        hostInstance(*h, tagsFor(*h), properties);
        return;
    }
    {
        const InstancePath named(path, inst);
        const CMPIObjectPath* p = named.get();
        raw("<INSTANCE");
        attribute("CLASSNAME",
                  p && p->ft ? stringText(p->ft->getClassName(p, nullptr)) : std::string_view());
        put('>');
    }
    CMPICount n = inst && inst->ft ? inst->ft->getPropertyCount(inst, nullptr) : 0;
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        CMPIData value = inst->ft->getPropertyAt(inst, i, &name, nullptr);
        const std::string_view propertyName = stringText(name);
        if (!propertyName.empty() && listed(properties, propertyName))
            property(propertyName, value);
    }
    closeTag("INSTANCE");
}

void CimXmlWriter::hostInstance(const diaghost::HostInstance& h, const ClassTags& tags,
                                const std::vector<std::string>* properties) {
    // The host's own instance: its values are typed as its class declares them, so each
    // property's start tag is the class's, rendered once per answer.
    raw("<INSTANCE");
    attribute("CLASSNAME", h.className());
    put('>');
    for (std::size_t i = 0; i < h.propertyCount() && i < tags.properties.size(); ++i) {
        const PropertyTags& tag = tags.properties[i];
        if (tag.name.empty() || !listed(properties, tag.name))
            continue;
        const CMPIData& value = h.at(i);
        if (value.type != tag.type) {
            property(tag.name, value, tag.embedded);
            continue;
        }
        raw(tag.start);
        valueElement(value);
        raw(tag.end);
    }
    closeTag("INSTANCE");
}

void CimXmlWriter::hostInstanceName(const diaghost::HostInstance& h, const ClassTags& tags) {
    // What the instance's path would hold, read from the instance without making the path.
    raw("<INSTANCENAME");
    attribute("CLASSNAME", h.className());
    put('>');
    // As the instance's paths: keys that are not set are left out.
    for (std::size_t i : tags.keys)
        if (!(h.at(i).state & CMPI_nullValue))
            keyBinding(tags.properties[i].name, asKey(h.at(i)));
    raw("</INSTANCENAME>");
}

void CimXmlWriter::namedInstance(const CMPIObjectPath* path, const CMPIInstance* inst,
                                 const std::vector<std::string>* properties) {
    raw("<VALUE.NAMEDINSTANCE>");
    const diaghost::HostInstance* h = path ? nullptr : diaghost::HostInstance::from(inst);
    if (h) {
        const ClassTags& tags = tagsFor(*h);
        hostInstanceName(*h, tags);
        hostInstance(*h, tags, properties);
    } else {
        const InstancePath named(path, inst);
        instanceName(named.get());
        instance(inst, properties, named.get());
    }
    raw("</VALUE.NAMEDINSTANCE>");
    maybeFlush();
}

void CimXmlWriter::objectWithPath(const CMPIObjectPath* path, std::string_view host,
                                  const CMPIInstance* inst,
                                  const std::vector<std::string>* properties) {
    raw("<VALUE.OBJECTWITHPATH>");
    const diaghost::HostInstance* h = path ? nullptr : diaghost::HostInstance::from(inst);
    if (h) {
        const ClassTags& tags = tagsFor(*h);
        raw("<INSTANCEPATH>");
        namespacePath(h->host(), host, h->nameSpace());
        hostInstanceName(*h, tags);
        raw("</INSTANCEPATH>");
        hostInstance(*h, tags, properties);
    } else {
        const InstancePath named(path, inst);
        instancePath(named.get(), host);
        instance(inst, properties, named.get());
    }
    raw("</VALUE.OBJECTWITHPATH>");
    maybeFlush();
}

} // namespace diagserver
