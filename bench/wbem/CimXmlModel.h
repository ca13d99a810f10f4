// The part of a CIM-XML request a server's decoder needs (operation, namespace, parameters,
// instance names with key bindings and references), compared and measured for the parser
// benchmarks.
#ifndef DIAGCORE_BENCH_WBEM_CIMXMLMODEL_H
#define DIAGCORE_BENCH_WBEM_CIMXMLMODEL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wbembench {

struct ObjectPath;

// One key of an instance name: a KEYVALUE (type "string", "boolean" or "numeric") or a
// VALUE.REFERENCE (type "reference", the referenced path in ref).
struct KeyBinding {
    std::string name;
    std::string type;
    std::string value;
    std::unique_ptr<ObjectPath> ref;
};

// INSTANCEPATH (host and namespace set), LOCALINSTANCEPATH (namespace set) or INSTANCENAME.
struct ObjectPath {
    std::string host;
    std::string ns;
    std::string className;
    std::vector<KeyBinding> keys;
};

enum class ValueKind : std::uint8_t { None, Scalar, Array, Reference, InstanceName, ClassName };

// An IPARAMVALUE or a PARAMVALUE.
struct Param {
    std::string name;
    std::string paramType;
    ValueKind kind = ValueKind::None;
    std::string scalar;             // VALUE text, or the CLASSNAME's name
    std::vector<std::string> array; // VALUE.ARRAY
    ObjectPath ref;                 // VALUE.REFERENCE or INSTANCENAME
};

// A SIMPLEREQ: an IMETHODCALL (intrinsic, ns is its LOCALNAMESPACEPATH) or a METHODCALL (target
// is its LOCALINSTANCEPATH).
struct Request {
    std::string messageId;
    std::string protocolVersion;
    bool intrinsic = false;
    std::string method;
    std::string ns;
    ObjectPath target;
    std::vector<Param> params;
};

bool samePath(const ObjectPath& a, const ObjectPath& b);

inline bool sameKey(const KeyBinding& a, const KeyBinding& b) {
    if (a.name != b.name || a.type != b.type || a.value != b.value || !a.ref != !b.ref)
        return false;
    return !a.ref || samePath(*a.ref, *b.ref);
}

inline bool samePath(const ObjectPath& a, const ObjectPath& b) {
    if (a.host != b.host || a.ns != b.ns || a.className != b.className ||
        a.keys.size() != b.keys.size())
        return false;
    for (std::size_t i = 0; i < a.keys.size(); ++i)
        if (!sameKey(a.keys[i], b.keys[i]))
            return false;
    return true;
}

inline bool sameRequest(const Request& a, const Request& b) {
    if (a.messageId != b.messageId || a.protocolVersion != b.protocolVersion ||
        a.intrinsic != b.intrinsic || a.method != b.method || a.ns != b.ns ||
        !samePath(a.target, b.target) || a.params.size() != b.params.size())
        return false;
    for (std::size_t i = 0; i < a.params.size(); ++i) {
        const Param& p = a.params[i];
        const Param& q = b.params[i];
        if (p.name != q.name || p.paramType != q.paramType || p.kind != q.kind ||
            p.scalar != q.scalar || p.array != q.array || !samePath(p.ref, q.ref))
            return false;
    }
    return true;
}

// Bytes the decoded request keeps on the heap (strings longer than the small buffer, vectors),
// to tell the decoded result apart from what a parser itself needs.
inline std::size_t heldBytes(const std::string& s) {
    return s.capacity() > 15 ? s.capacity() + 1 : 0;
}
std::size_t heldBytes(const ObjectPath& p);
inline std::size_t heldBytes(const KeyBinding& k) {
    std::size_t n = heldBytes(k.name) + heldBytes(k.type) + heldBytes(k.value);
    if (k.ref)
        n += sizeof(ObjectPath) + heldBytes(*k.ref);
    return n;
}
inline std::size_t heldBytes(const ObjectPath& p) {
    std::size_t n = heldBytes(p.host) + heldBytes(p.ns) + heldBytes(p.className) +
                    p.keys.capacity() * sizeof(KeyBinding);
    for (const KeyBinding& k : p.keys)
        n += heldBytes(k);
    return n;
}
inline std::size_t heldBytes(const Request& r) {
    std::size_t n = heldBytes(r.messageId) + heldBytes(r.protocolVersion) + heldBytes(r.method) +
                    heldBytes(r.ns) + heldBytes(r.target) + r.params.capacity() * sizeof(Param);
    for (const Param& p : r.params) {
        n += heldBytes(p.name) + heldBytes(p.paramType) + heldBytes(p.scalar) + heldBytes(p.ref) +
             p.array.capacity() * sizeof(std::string);
        for (const std::string& s : p.array)
            n += heldBytes(s);
    }
    return n;
}

} // namespace wbembench

#endif // DIAGCORE_BENCH_WBEM_CIMXMLMODEL_H
