// Writes CIM-XML, the DMTF representation of CIM messages and objects in XML, into a buffer that
// is handed to a sink whenever it fills, so that a long answer never lies whole in memory. It
// reads CMPI objects through their function tables only and classes from the host's repository.
// Every text is escaped and the output is well-formed UTF-8 whatever the objects hold.
#ifndef DIAGSERVER_CIMXMLWRITER_H
#define DIAGSERVER_CIMXMLWRITER_H

#include "server/MarkupPiece.h"
#include "server/XmlText.h"

#include <cmpidt.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace diaghost {
class HostInstance;
}

namespace diagserver {

class CimXmlWriter {
public:
    // Copies what it is given.
    using Sink = std::function<void(std::string_view)>;
    // Takes a whole piece of markup. Handed a writer's own buffer, it leaves in `piece` the
    // memory the writer goes on in (none, or any empty piece); if it throws, it leaves `piece` as
    // it was.
    using PieceSink = std::function<void(MarkupPiece& piece)>;

    // `flushAt`: how many bytes gather before the sink is called; the sink may throw, and the
    // exception leaves the writer as it is. Pieces passed go to `passed`, else are copied to the
    // sink.
    explicit CimXmlWriter(Sink sink, std::size_t flushAt = std::size_t{64} << 10,
                          PieceSink passed = nullptr);
    // A writer that hands its buffer itself to `sink` at each flush, so that what it wrote is
    // never copied; it starts in `memory`.
    CimXmlWriter(PieceSink sink, MarkupPiece memory, std::size_t flushAt);
    CimXmlWriter(const CimXmlWriter&) = delete;
    CimXmlWriter& operator=(const CimXmlWriter&) = delete;

    // Hands what is buffered to the sink.
    void flush();
    // Hands what is buffered and then markup written elsewhere to the sink, the markup without
    // copying it first.
    void pass(std::string_view markup);
    // The same with markup in a piece of its own, which goes whole to a sink of pieces passed.
    void pass(MarkupPiece&& piece);
    // The memory of an empty buffer, given up (the writer takes new memory if written to again).
    MarkupPiece takeMemory();
    // Bytes written so far, flushed or not.
    std::uint64_t written() const { return written_ + size_; }

    // ---- The message around an answer.
    void beginMessage(std::string_view messageId);
    void endMessage();
    void beginIMethodResponse(std::string_view name);
    void endIMethodResponse();
    void beginIReturnValue();
    void endIReturnValue();
    void beginMethodResponse(std::string_view name);
    void endMethodResponse();
    // A method's return value and its out parameters.
    void returnValue(const CMPIData& value);
    void paramValue(std::string_view name, const CMPIData& value);
    // ERROR with the CIM status code and its description.
    void error(unsigned code, std::string_view description);

    // ---- Objects. `properties` null: every property; else only those named (any case).
    // `path`: the instance's own, when the caller has it already (else it is asked for).
    void instance(const CMPIInstance* inst, const std::vector<std::string>* properties,
                  const CMPIObjectPath* path = nullptr);
    void instanceName(const CMPIObjectPath* path);
    // INSTANCEPATH with the host (when the path or `host` names one) and the namespace.
    void instancePath(const CMPIObjectPath* path, std::string_view host);
    void localInstancePath(const CMPIObjectPath* path);
    // VALUE.NAMEDINSTANCE: the instance's name and the instance. In this and objectWithPath a
    // null path stands for the instance's own (a host instance's is read without making it).
    void namedInstance(const CMPIObjectPath* path, const CMPIInstance* inst,
                       const std::vector<std::string>* properties);
    // VALUE.OBJECTWITHPATH: the full path and the instance.
    void objectWithPath(const CMPIObjectPath* path, std::string_view host, const CMPIInstance* inst,
                        const std::vector<std::string>* properties);
    // OBJECTPATH holding the INSTANCEPATH.
    void objectPath(const CMPIObjectPath* path, std::string_view host);
    void className(std::string_view name);
    // CLASSPATH: the host, the namespace and the class name.
    void classPath(std::string_view host, std::string_view ns, std::string_view className);

    // The CIM-XML type name of a CMPI type ("uint32", "string", "reference", ...), arrays by
    // their element type; empty for types CIM-XML has no name for.
    static std::string_view typeName(CMPIType type);
    // Whether a property list (null: every property) names the property, in any letter case.
    static bool listed(const std::vector<std::string>* properties, std::string_view name);

    // ---- Building blocks for the writers of other elements (CimXmlClassWriter).
    // Markup as it stands.
    void raw(std::string_view text) { put(text.data(), text.size()); }
    // Character data, escaped.
    void text(std::string_view text) { escapedText(text, false); }
    // ` name="value"` inside an open start tag, the value escaped.
    void attribute(std::string_view name, std::string_view value) {
        put(' ');
        raw(name);
        raw("=\"");
        escapedText(value, true);
        put('"');
    }
    void openTag(std::string_view name) {
        put('<');
        raw(name);
        put('>');
    }
    void closeTag(std::string_view name) {
        raw("</");
        raw(name);
        put('>');
    }
    // Hands the buffer to the sink once it holds enough; called after each whole element.
    void maybeFlush();

private:
    // The buffer is written in place, so that the many short pieces of markup an answer is
    // made of cost a comparison and a copy each.
    void put(const char* data, std::size_t size) {
        if (size > capacity_ - size_)
            grow(size);
        if (size > 0) // a null data pointer comes with no bytes
            std::memcpy(buffer_.get() + size_, data, size);
        size_ += size;
    }
    void put(char c) {
        if (size_ == capacity_)
            grow(1);
        buffer_[size_++] = c;
    }
    void grow(std::size_t more);
    // Text from its first byte that is not plain ASCII on.
    void escapedText(std::string_view text, bool attribute) {
        const std::size_t plain = XmlText::plainPrefix(text, attribute);
        put(text.data(), plain);
        if (plain < text.size())
            escaped(text.substr(plain), attribute);
    }
    void escaped(std::string_view text, bool attribute);
    void localNamespacePath(std::string_view ns);
    // NAMESPACEPATH: the path's own host, else `host`, else "localhost"; and the namespace.
    void namespacePath(std::string_view own, std::string_view host, std::string_view ns);
    void keyBinding(std::string_view name, const CMPIData& value);
    void valueReference(const CMPIObjectPath* path);
    void scalarValue(CMPIType type, const CMPIValue& value);
    void valueElement(const CMPIData& data);
    // PARAMTYPE (and EmbeddedObject) of a parameter or return value of that type.
    void paramType(CMPIType type);
    void property(std::string_view name, const CMPIData& data, std::string_view embedded = {});
    // Writes a property's start tag for a value of that type; the matching end tag. A string
    // the class declares an embedded instance or object says so with `embedded` ("instance" or
    // "object").
    std::string_view propertyStart(std::string_view name, CMPIType type,
                                   std::string_view embedded = {});

    // The start and end tags of each property of one class, for values of its declared type.
    struct PropertyTags {
        CMPIType type;
        std::string name;
        std::string start;
        std::string_view end;
        std::string_view embedded; // what a string of it holds, as propertyStart takes it
    };
    struct ClassTags {
        const void* cls;
        std::vector<PropertyTags> properties;
        // The key properties' positions, in the order the class's paths list them.
        std::vector<std::size_t> keys;
    };
    const ClassTags& tagsFor(const diaghost::HostInstance& inst);
    void hostInstance(const diaghost::HostInstance& inst, const ClassTags& tags,
                      const std::vector<std::string>* properties);
    void hostInstanceName(const diaghost::HostInstance& inst, const ClassTags& tags);

    Sink sink_;
    // Passed pieces; or, for a writer handing over its buffer, every flush.
    PieceSink pieceSink_;
    bool handsOverBuffer_ = false;
    std::size_t flushAt_;
    std::unique_ptr<char[]> buffer_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    std::uint64_t written_ = 0;
    // The classes of host instances written so far; an answer holds a few at most.
    std::vector<ClassTags> classTags_;
};

} // namespace diagserver

#endif
