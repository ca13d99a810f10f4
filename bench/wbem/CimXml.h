// What the XML parser benchmarks share: the part of a CIM-XML request a server's decoder needs
// (operation, namespace, parameters with their values, instance names with their key bindings and
// references), a writer that turns such a request into CIM-XML text, the three requests the
// benchmarks parse, and two decoders built on the same grammar: one fed by parser events (start
// tag, end tag, text) and one that walks a parsed tree through a small node adapter. Every
// benchmark program checks, before it measures, that its parser decodes each request back into
// exactly the request the text was written from.
#ifndef DIAGCORE_BENCH_WBEM_CIMXML_H
#define DIAGCORE_BENCH_WBEM_CIMXML_H

#include "CimXmlModel.h"
#include "CimXmlText.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wbembench {

// ---------------------------------------------------------------------------------------------
// Decoding. Both decoders accept exactly the elements above in their places, refuse any other
// element, and refuse nesting beyond a fixed depth (references nest through key bindings).

enum class Tag : std::uint8_t {
    None,
    CIM,
    MESSAGE,
    SIMPLEREQ,
    IMETHODCALL,
    METHODCALL,
    LOCALNAMESPACEPATH,
    NAMESPACE,
    IPARAMVALUE,
    PARAMVALUE,
    VALUE,
    VALUE_ARRAY,
    VALUE_REFERENCE,
    INSTANCENAME,
    KEYBINDING,
    KEYVALUE,
    INSTANCEPATH,
    LOCALINSTANCEPATH,
    NAMESPACEPATH,
    HOST,
    CLASSNAME,
    Unknown
};

inline Tag tagOf(std::string_view name) {
    static constexpr std::pair<std::string_view, Tag> tags[] = {
        {"VALUE", Tag::VALUE},
        {"KEYBINDING", Tag::KEYBINDING},
        {"KEYVALUE", Tag::KEYVALUE},
        {"INSTANCENAME", Tag::INSTANCENAME},
        {"VALUE.REFERENCE", Tag::VALUE_REFERENCE},
        {"NAMESPACE", Tag::NAMESPACE},
        {"PARAMVALUE", Tag::PARAMVALUE},
        {"IPARAMVALUE", Tag::IPARAMVALUE},
        {"VALUE.ARRAY", Tag::VALUE_ARRAY},
        {"LOCALNAMESPACEPATH", Tag::LOCALNAMESPACEPATH},
        {"INSTANCEPATH", Tag::INSTANCEPATH},
        {"NAMESPACEPATH", Tag::NAMESPACEPATH},
        {"HOST", Tag::HOST},
        {"LOCALINSTANCEPATH", Tag::LOCALINSTANCEPATH},
        {"CLASSNAME", Tag::CLASSNAME},
        {"IMETHODCALL", Tag::IMETHODCALL},
        {"METHODCALL", Tag::METHODCALL},
        {"SIMPLEREQ", Tag::SIMPLEREQ},
        {"MESSAGE", Tag::MESSAGE},
        {"CIM", Tag::CIM},
    };
    for (const auto& t : tags)
        if (t.first == name)
            return t.second;
    return Tag::Unknown;
}

constexpr std::size_t maxElementDepth = 64; // events decoder: open elements
constexpr int maxReferenceDepth = 8;        // tree decoder: references inside references

inline void appendNamespace(std::string& ns, std::string_view part) {
    if (!ns.empty())
        ns += '/';
    ns.append(part.data(), part.size());
}

// Fed by a parser's events. Attrs is any object with bool get(const char* name,
// std::string_view& value) const. A handler that gets false back stops its parser.
class EventDecoder {
public:
    explicit EventDecoder(Request& out) : req_(out) { stack_.reserve(32); }

    const std::string& error() const { return error_; }
    bool failed() const { return !error_.empty(); }

    template <class Attrs>
    bool start(std::string_view name, const Attrs& attrs) {
        if (failed())
            return false;
        if (stack_.size() >= maxElementDepth)
            return fail("elements nested too deep");
        Frame parent = stack_.empty() ? Frame{} : stack_.back();
        Frame f{tagOf(name), parent.path, parent.param, parent.key, nullptr, nullptr};
        std::string_view v;
        switch (f.tag) {
        case Tag::CIM:
            if (parent.tag != Tag::None)
                return misplaced(name);
            break;
        case Tag::MESSAGE:
            if (parent.tag != Tag::CIM)
                return misplaced(name);
            if (!attrs.get("ID", v))
                return fail("MESSAGE without ID");
            req_.messageId.assign(v.data(), v.size());
            if (!attrs.get("PROTOCOLVERSION", v))
                return fail("MESSAGE without PROTOCOLVERSION");
            req_.protocolVersion.assign(v.data(), v.size());
            break;
        case Tag::SIMPLEREQ:
            if (parent.tag != Tag::MESSAGE)
                return misplaced(name);
            break;
        case Tag::IMETHODCALL:
        case Tag::METHODCALL:
            if (parent.tag != Tag::SIMPLEREQ)
                return misplaced(name);
            if (!attrs.get("NAME", v))
                return fail("method call without NAME");
            req_.intrinsic = f.tag == Tag::IMETHODCALL;
            req_.method.assign(v.data(), v.size());
            break;
        case Tag::LOCALNAMESPACEPATH:
            if (parent.tag == Tag::IMETHODCALL)
                f.ns = &req_.ns;
            else if (parent.tag == Tag::LOCALINSTANCEPATH || parent.tag == Tag::NAMESPACEPATH)
                f.ns = &parent.path->ns;
            else
                return misplaced(name);
            break;
        case Tag::NAMESPACE:
            if (parent.tag != Tag::LOCALNAMESPACEPATH)
                return misplaced(name);
            if (!attrs.get("NAME", v))
                return fail("NAMESPACE without NAME");
            appendNamespace(*parent.ns, v);
            break;
        case Tag::LOCALINSTANCEPATH:
            if (parent.tag == Tag::METHODCALL)
                f.path = &req_.target;
            else if (parent.tag != Tag::VALUE_REFERENCE)
                return misplaced(name);
            break;
        case Tag::INSTANCEPATH:
            if (parent.tag != Tag::VALUE_REFERENCE)
                return misplaced(name);
            break;
        case Tag::NAMESPACEPATH:
            if (parent.tag != Tag::INSTANCEPATH)
                return misplaced(name);
            break;
        case Tag::HOST:
            if (parent.tag != Tag::NAMESPACEPATH)
                return misplaced(name);
            f.text = &parent.path->host;
            break;
        case Tag::IPARAMVALUE:
        case Tag::PARAMVALUE:
            if (parent.tag != (f.tag == Tag::IPARAMVALUE ? Tag::IMETHODCALL : Tag::METHODCALL))
                return misplaced(name);
            if (!attrs.get("NAME", v))
                return fail("parameter without NAME");
            f.param = &req_.params.emplace_back();
            f.param->name.assign(v.data(), v.size());
            if (attrs.get("PARAMTYPE", v))
                f.param->paramType.assign(v.data(), v.size());
            break;
        case Tag::VALUE:
            if (parent.tag == Tag::IPARAMVALUE || parent.tag == Tag::PARAMVALUE) {
                if (!setKind(*parent.param, ValueKind::Scalar))
                    return false;
                f.text = &parent.param->scalar;
            } else if (parent.tag == Tag::VALUE_ARRAY) {
                f.text = &parent.param->array.emplace_back();
            } else {
                return misplaced(name);
            }
            break;
        case Tag::VALUE_ARRAY:
            if (parent.tag != Tag::IPARAMVALUE && parent.tag != Tag::PARAMVALUE)
                return misplaced(name);
            if (!setKind(*parent.param, ValueKind::Array))
                return false;
            break;
        case Tag::VALUE_REFERENCE:
            if (parent.tag == Tag::IPARAMVALUE || parent.tag == Tag::PARAMVALUE) {
                if (!setKind(*parent.param, ValueKind::Reference))
                    return false;
                f.path = &parent.param->ref;
            } else if (parent.tag == Tag::KEYBINDING) {
                if (!parent.key->type.empty())
                    return fail("KEYBINDING with two values");
                parent.key->type = "reference";
                parent.key->ref = std::make_unique<ObjectPath>();
                f.path = parent.key->ref.get();
            } else {
                return misplaced(name);
            }
            break;
        case Tag::INSTANCENAME:
            if (parent.tag == Tag::IPARAMVALUE || parent.tag == Tag::PARAMVALUE) {
                if (!setKind(*parent.param, ValueKind::InstanceName))
                    return false;
                f.path = &parent.param->ref;
            } else if (parent.tag != Tag::VALUE_REFERENCE && parent.tag != Tag::INSTANCEPATH &&
                       parent.tag != Tag::LOCALINSTANCEPATH) {
                return misplaced(name);
            }
            if (!attrs.get("CLASSNAME", v))
                return fail("INSTANCENAME without CLASSNAME");
            f.path->className.assign(v.data(), v.size());
            break;
        case Tag::KEYBINDING:
            if (parent.tag != Tag::INSTANCENAME)
                return misplaced(name);
            if (!attrs.get("NAME", v))
                return fail("KEYBINDING without NAME");
            f.key = &parent.path->keys.emplace_back();
            f.key->name.assign(v.data(), v.size());
            break;
        case Tag::KEYVALUE:
            if (parent.tag != Tag::KEYBINDING)
                return misplaced(name);
            if (!parent.key->type.empty())
                return fail("KEYBINDING with two values");
            if (attrs.get("VALUETYPE", v))
                parent.key->type.assign(v.data(), v.size());
            else
                parent.key->type = "string";
            f.text = &parent.key->value;
            break;
        case Tag::CLASSNAME:
            if (parent.tag != Tag::IPARAMVALUE && parent.tag != Tag::PARAMVALUE)
                return misplaced(name);
            if (!setKind(*parent.param, ValueKind::ClassName))
                return false;
            if (!attrs.get("NAME", v))
                return fail("CLASSNAME without NAME");
            parent.param->scalar.assign(v.data(), v.size());
            break;
        case Tag::None:
        case Tag::Unknown:
            return fail("unknown element " + std::string(name));
        }
        stack_.push_back(f);
        return true;
    }

    bool end() {
        if (failed())
            return false;
        stack_.pop_back();
        return true;
    }

    void text(const char* s, std::size_t n) {
        if (!stack_.empty() && stack_.back().text)
            stack_.back().text->append(s, n);
    }

    // What a parser could not report itself (an unexpected end of the document).
    bool finish() {
        if (failed())
            return false;
        if (req_.method.empty())
            return fail("no method call");
        return true;
    }

    bool fail(std::string what) {
        if (error_.empty())
            error_ = std::move(what);
        return false;
    }

private:
    struct Frame {
        Tag tag = Tag::None;
        ObjectPath* path = nullptr;
        Param* param = nullptr;
        KeyBinding* key = nullptr;
        std::string* text = nullptr;
        std::string* ns = nullptr;
    };

    bool misplaced(std::string_view name) { return fail("misplaced element " + std::string(name)); }
    bool setKind(Param& p, ValueKind k) {
        if (p.kind != ValueKind::None)
            return fail("parameter " + p.name + " with two values");
        p.kind = k;
        return true;
    }

    Request& req_;
    std::vector<Frame> stack_;
    std::string error_;
};

// Walks a parsed tree. Node is an adapter with: explicit operator bool; Node firstElement();
// Node nextElement(); std::string_view name(); bool attr(const char*, std::string_view&);
// bool text(std::string&) (appends the node's text, false if it holds anything but text).
template <class Node>
class TreeDecoder {
public:
    explicit TreeDecoder(Request& out) : req_(out) {}
    const std::string& error() const { return error_; }

    bool decode(Node root) {
        std::string_view v;
        if (!root || root.name() != "CIM")
            return fail("root is not CIM");
        Node message = only(root, "MESSAGE");
        if (!message)
            return false;
        if (!message.attr("ID", v))
            return fail("MESSAGE without ID");
        req_.messageId.assign(v.data(), v.size());
        if (!message.attr("PROTOCOLVERSION", v))
            return fail("MESSAGE without PROTOCOLVERSION");
        req_.protocolVersion.assign(v.data(), v.size());
        Node simple = only(message, "SIMPLEREQ");
        if (!simple)
            return false;
        Node call = simple.firstElement();
        if (!call || call.nextElement())
            return fail("SIMPLEREQ must hold one call");
        std::string_view callName = call.name();
        req_.intrinsic = callName == "IMETHODCALL";
        if (!req_.intrinsic && callName != "METHODCALL")
            return fail("unknown element " + std::string(callName));
        if (!call.attr("NAME", v))
            return fail("method call without NAME");
        req_.method.assign(v.data(), v.size());
        Node child = call.firstElement();
        if (req_.intrinsic) {
            if (!child || child.name() != "LOCALNAMESPACEPATH")
                return fail("IMETHODCALL without LOCALNAMESPACEPATH");
            if (!localNamespace(child, req_.ns))
                return false;
        } else {
            if (!child || child.name() != "LOCALINSTANCEPATH")
                return fail("METHODCALL without LOCALINSTANCEPATH");
            if (!localInstancePath(child, req_.target, 0))
                return false;
        }
        const char* paramTag = req_.intrinsic ? "IPARAMVALUE" : "PARAMVALUE";
        for (child = child.nextElement(); child; child = child.nextElement()) {
            if (child.name() != paramTag)
                return fail("unknown element " + std::string(child.name()));
            if (!param(child, req_.params.emplace_back()))
                return false;
        }
        return true;
    }

private:
    bool fail(std::string what) {
        if (error_.empty())
            error_ = std::move(what);
        return false;
    }

    Node only(Node parent, std::string_view name) {
        Node c = parent.firstElement();
        if (!c || c.name() != name || c.nextElement()) {
            fail(std::string(parent.name()) + " must hold one " + std::string(name));
            return Node();
        }
        return c;
    }

    bool localNamespace(Node n, std::string& ns) {
        std::string_view v;
        for (Node c = n.firstElement(); c; c = c.nextElement()) {
            if (c.name() != "NAMESPACE" || !c.attr("NAME", v))
                return fail("bad LOCALNAMESPACEPATH");
            appendNamespace(ns, v);
        }
        return true;
    }

    bool localInstancePath(Node n, ObjectPath& p, int depth) {
        Node ns = n.firstElement();
        if (!ns || ns.name() != "LOCALNAMESPACEPATH" || !localNamespace(ns, p.ns))
            return fail("LOCALINSTANCEPATH without LOCALNAMESPACEPATH");
        Node name = ns.nextElement();
        if (!name || name.name() != "INSTANCENAME" || name.nextElement())
            return fail("LOCALINSTANCEPATH without INSTANCENAME");
        return instanceName(name, p, depth);
    }

    bool instanceName(Node n, ObjectPath& p, int depth) {
        std::string_view v;
        if (!n.attr("CLASSNAME", v))
            return fail("INSTANCENAME without CLASSNAME");
        p.className.assign(v.data(), v.size());
        for (Node kb = n.firstElement(); kb; kb = kb.nextElement()) {
            if (kb.name() != "KEYBINDING" || !kb.attr("NAME", v))
                return fail("bad KEYBINDING");
            KeyBinding& k = p.keys.emplace_back();
            k.name.assign(v.data(), v.size());
            Node value = kb.firstElement();
            if (!value || value.nextElement())
                return fail("KEYBINDING must hold one value");
            if (value.name() == "KEYVALUE") {
                if (value.attr("VALUETYPE", v))
                    k.type.assign(v.data(), v.size());
                else
                    k.type = "string";
                if (!value.text(k.value))
                    return fail("KEYVALUE holds more than text");
            } else if (value.name() == "VALUE.REFERENCE") {
                k.type = "reference";
                k.ref = std::make_unique<ObjectPath>();
                if (!reference(value, *k.ref, depth + 1))
                    return false;
            } else {
                return fail("unknown element " + std::string(value.name()));
            }
        }
        return true;
    }

    bool reference(Node n, ObjectPath& p, int depth) {
        if (depth > maxReferenceDepth)
            return fail("references nested too deep");
        Node c = n.firstElement();
        if (!c || c.nextElement())
            return fail("VALUE.REFERENCE must hold one path");
        std::string_view name = c.name();
        if (name == "INSTANCENAME")
            return instanceName(c, p, depth);
        if (name == "LOCALINSTANCEPATH")
            return localInstancePath(c, p, depth);
        if (name != "INSTANCEPATH")
            return fail("unknown element " + std::string(name));
        Node nsPath = c.firstElement();
        if (!nsPath || nsPath.name() != "NAMESPACEPATH")
            return fail("INSTANCEPATH without NAMESPACEPATH");
        Node host = nsPath.firstElement();
        if (!host || host.name() != "HOST" || !host.text(p.host))
            return fail("NAMESPACEPATH without HOST");
        Node ns = host.nextElement();
        if (!ns || ns.name() != "LOCALNAMESPACEPATH" || ns.nextElement() ||
            !localNamespace(ns, p.ns))
            return fail("NAMESPACEPATH without LOCALNAMESPACEPATH");
        Node inst = nsPath.nextElement();
        if (!inst || inst.name() != "INSTANCENAME" || inst.nextElement())
            return fail("INSTANCEPATH without INSTANCENAME");
        return instanceName(inst, p, depth);
    }

    bool param(Node n, Param& p) {
        std::string_view v;
        if (!n.attr("NAME", v))
            return fail("parameter without NAME");
        p.name.assign(v.data(), v.size());
        if (n.attr("PARAMTYPE", v))
            p.paramType.assign(v.data(), v.size());
        Node value = n.firstElement();
        if (!value)
            return true;
        if (value.nextElement())
            return fail("parameter " + p.name + " with two values");
        std::string_view name = value.name();
        if (name == "VALUE") {
            p.kind = ValueKind::Scalar;
            if (!value.text(p.scalar))
                return fail("VALUE holds more than text");
        } else if (name == "VALUE.ARRAY") {
            p.kind = ValueKind::Array;
            for (Node e = value.firstElement(); e; e = e.nextElement())
                if (e.name() != "VALUE" || !e.text(p.array.emplace_back()))
                    return fail("bad VALUE.ARRAY");
        } else if (name == "VALUE.REFERENCE") {
            p.kind = ValueKind::Reference;
            return reference(value, p.ref, 1);
        } else if (name == "INSTANCENAME") {
            p.kind = ValueKind::InstanceName;
            return instanceName(value, p.ref, 1);
        } else if (name == "CLASSNAME") {
            p.kind = ValueKind::ClassName;
            if (!value.attr("NAME", v))
                return fail("CLASSNAME without NAME");
            p.scalar.assign(v.data(), v.size());
        } else {
            return fail("unknown element " + std::string(name));
        }
        return true;
    }

    Request& req_;
    std::string error_;
};

} // namespace wbembench

#endif // DIAGCORE_BENCH_WBEM_CIMXML_H
