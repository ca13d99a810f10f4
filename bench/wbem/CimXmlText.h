// The parser benchmarks' requests: a writer that turns a request into CIM-XML text, and the three
// requests the benchmarks parse.
#ifndef DIAGCORE_BENCH_WBEM_CIMXMLTEXT_H
#define DIAGCORE_BENCH_WBEM_CIMXMLTEXT_H

#include "CimXmlModel.h"
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
// Writing CIM-XML.

class XmlWriter {
public:
    std::string text;

    void escaped(std::string_view s) {
        for (char c : s) {
            switch (c) {
            case '&':
                text += "&amp;";
                break;
            case '<':
                text += "&lt;";
                break;
            case '>':
                text += "&gt;";
                break;
            case '"':
                text += "&quot;";
                break;
            case '\'':
                text += "&apos;";
                break;
            default:
                text += c;
            }
        }
    }
    void open(const char* tag) {
        text += '<';
        text += tag;
        text += '>';
    }
    // <tag name="value" ...> (or .../> when empty); attributes with an empty value are left out.
    void open(const char* tag,
              std::initializer_list<std::pair<const char*, std::string_view>> attrs,
              bool empty = false) {
        text += '<';
        text += tag;
        for (const auto& a : attrs) {
            if (a.second.empty())
                continue;
            text += ' ';
            text += a.first;
            text += "=\"";
            escaped(a.second);
            text += '"';
        }
        text += empty ? "/>" : ">";
    }
    void close(const char* tag) {
        text += "</";
        text += tag;
        text += ">\n";
    }
    void element(const char* tag, std::string_view content) {
        open(tag);
        escaped(content);
        close(tag);
    }
};

inline void writeLocalNamespace(XmlWriter& w, std::string_view ns) {
    w.open("LOCALNAMESPACEPATH");
    while (!ns.empty()) {
        std::size_t slash = ns.find('/');
        w.open("NAMESPACE", {{"NAME", ns.substr(0, slash)}}, true);
        ns = slash == std::string_view::npos ? std::string_view() : ns.substr(slash + 1);
    }
    w.close("LOCALNAMESPACEPATH");
}

void writeInstanceName(XmlWriter& w, const ObjectPath& p);

// The body of a VALUE.REFERENCE: INSTANCEPATH, LOCALINSTANCEPATH or INSTANCENAME.
inline void writeReference(XmlWriter& w, const ObjectPath& p) {
    w.open("VALUE.REFERENCE");
    if (!p.host.empty()) {
        w.open("INSTANCEPATH");
        w.open("NAMESPACEPATH");
        w.element("HOST", p.host);
        writeLocalNamespace(w, p.ns);
        w.close("NAMESPACEPATH");
        writeInstanceName(w, p);
        w.close("INSTANCEPATH");
    } else if (!p.ns.empty()) {
        w.open("LOCALINSTANCEPATH");
        writeLocalNamespace(w, p.ns);
        writeInstanceName(w, p);
        w.close("LOCALINSTANCEPATH");
    } else {
        writeInstanceName(w, p);
    }
    w.close("VALUE.REFERENCE");
}

inline void writeInstanceName(XmlWriter& w, const ObjectPath& p) {
    w.open("INSTANCENAME", {{"CLASSNAME", p.className}});
    for (const KeyBinding& k : p.keys) {
        w.open("KEYBINDING", {{"NAME", k.name}});
        if (k.ref) {
            writeReference(w, *k.ref);
        } else {
            w.open("KEYVALUE", {{"VALUETYPE", k.type}});
            w.escaped(k.value);
            w.close("KEYVALUE");
        }
        w.close("KEYBINDING");
    }
    w.close("INSTANCENAME");
}

inline std::string toXml(const Request& r) {
    XmlWriter w;
    w.text.reserve(4096);
    w.text += "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n";
    w.open("CIM", {{"CIMVERSION", "2.0"}, {"DTDVERSION", "2.0"}});
    w.text += '\n';
    w.open("MESSAGE", {{"ID", r.messageId}, {"PROTOCOLVERSION", r.protocolVersion}});
    w.text += '\n';
    w.open("SIMPLEREQ");
    w.text += '\n';
    const char* call = r.intrinsic ? "IMETHODCALL" : "METHODCALL";
    const char* param = r.intrinsic ? "IPARAMVALUE" : "PARAMVALUE";
    w.open(call, {{"NAME", r.method}});
    w.text += '\n';
    if (r.intrinsic) {
        writeLocalNamespace(w, r.ns);
    } else {
        w.open("LOCALINSTANCEPATH");
        writeLocalNamespace(w, r.target.ns);
        writeInstanceName(w, r.target);
        w.close("LOCALINSTANCEPATH");
    }
    for (const Param& p : r.params) {
        w.open(param, {{"NAME", p.name}, {"PARAMTYPE", p.paramType}});
        switch (p.kind) {
        case ValueKind::None:
            break;
        case ValueKind::Scalar:
            w.element("VALUE", p.scalar);
            break;
        case ValueKind::Array:
            w.open("VALUE.ARRAY");
            for (const std::string& v : p.array)
                w.element("VALUE", v);
            w.close("VALUE.ARRAY");
            break;
        case ValueKind::Reference:
            writeReference(w, p.ref);
            break;
        case ValueKind::InstanceName:
            writeInstanceName(w, p.ref);
            break;
        case ValueKind::ClassName:
            w.open("CLASSNAME", {{"NAME", p.scalar}}, true);
            break;
        }
        w.close(param);
    }
    w.close(call);
    w.close("SIMPLEREQ");
    w.close("MESSAGE");
    w.close("CIM");
    return w.text;
}

// ---------------------------------------------------------------------------------------------
// The requests.

inline KeyBinding key(std::string name, std::string value, std::string type = "string") {
    KeyBinding k;
    k.name = std::move(name);
    k.type = std::move(type);
    k.value = std::move(value);
    return k;
}

inline KeyBinding refKey(std::string name, ObjectPath path) {
    KeyBinding k;
    k.name = std::move(name);
    k.type = "reference";
    k.ref = std::make_unique<ObjectPath>(std::move(path));
    return k;
}

inline ObjectPath servicePath(std::string host, std::string ns) {
    ObjectPath p;
    p.host = std::move(host);
    p.ns = std::move(ns);
    p.className = "ZORQ_FSDiagService";
    p.keys.push_back(key("CreationClassName", "ZORQ_FSDiagService"));
    p.keys.push_back(key("Name", "ZORQ_FSDiagTest"));
    p.keys.push_back(key("SystemCreationClassName", "ZORQ_ComputerSystem"));
    p.keys.push_back(key("SystemName", "host.example"));
    return p;
}

inline ObjectPath fileSystemPath(std::string host, std::string ns, std::string name) {
    ObjectPath p;
    p.host = std::move(host);
    p.ns = std::move(ns);
    p.className = "ZORQ_LocalFileSystem";
    p.keys.push_back(key("CSCreationClassName", "ZORQ_ComputerSystem"));
    p.keys.push_back(key("CSName", "host.example"));
    p.keys.push_back(key("CreationClassName", "ZORQ_LocalFileSystem"));
    p.keys.push_back(key("Name", std::move(name)));
    return p;
}

inline Param scalarParam(std::string name, std::string value, std::string type = "") {
    Param p;
    p.name = std::move(name);
    p.paramType = std::move(type);
    p.kind = ValueKind::Scalar;
    p.scalar = std::move(value);
    return p;
}

// GetInstance of an association instance: both keys are references (one INSTANCEPATH with a
// host, one LOCALINSTANCEPATH), a PropertyList and the usual flags.
inline Request getInstanceRequest() {
    Request r;
    r.messageId = "1001";
    r.protocolVersion = "1.0";
    r.intrinsic = true;
    r.method = "GetInstance";
    r.ns = "root/cimv2";
    Param name;
    name.name = "InstanceName";
    name.kind = ValueKind::InstanceName;
    name.ref.className = "ZORQ_FSAvailableDiagService";
    name.ref.keys.push_back(refKey("ServiceProvided", servicePath("host.example", "root/cimv2")));
    name.ref.keys.push_back(
        refKey("UserOfService", fileSystemPath("", "root/cimv2", "/srv/data \xc3\xa9t\xc3\xa9")));
    r.params.push_back(std::move(name));
    r.params.push_back(scalarParam("LocalOnly", "FALSE"));
    r.params.push_back(scalarParam("IncludeQualifiers", "FALSE"));
    r.params.push_back(scalarParam("IncludeClassOrigin", "FALSE"));
    Param list;
    list.name = "PropertyList";
    list.kind = ValueKind::Array;
    list.array = {"ServiceProvided", "UserOfService", "EstimatedDurationOfTest",
                  "EstimatedDurationOfTestUnits"};
    r.params.push_back(std::move(list));
    return r;
}

// RunDiagnostic on a service: two reference parameters, one with a host.
inline Request invokeMethodRequest() {
    Request r;
    r.messageId = "1002&retry=1"; // an attribute value that needs escaping
    r.protocolVersion = "1.0";
    r.intrinsic = false;
    r.method = "RunDiagnostic";
    r.target = servicePath("", "root/cimv2");
    Param element;
    element.name = "ManagedElement";
    element.paramType = "reference";
    element.kind = ValueKind::Reference;
    element.ref = fileSystemPath("host.example", "root/cimv2", "/var");
    r.params.push_back(std::move(element));
    Param setting;
    setting.name = "DiagSetting";
    setting.paramType = "reference";
    setting.kind = ValueKind::Reference;
    setting.ref.ns = "root/cimv2";
    setting.ref.className = "ZORQ_FSDiagSettingData";
    setting.ref.keys.push_back(key("InstanceID", "ZORQ:FSDiagSetting:default"));
    r.params.push_back(std::move(setting));
    return r;
}

// A METHODCALL of at least minBytes of text: PARAMVALUEs that are in turn a string with markup
// and non-ASCII letters, a number, an array of eight strings and a reference with a host.
inline Request largeRequest(std::size_t minBytes) {
    Request r;
    r.messageId = "1003";
    r.protocolVersion = "1.0";
    r.intrinsic = false;
    r.method = "ImportRecords";
    r.target = servicePath("", "root/cimv2");
    for (unsigned i = 0;; ++i) {
        if (i % 64 == 0 && toXml(r).size() >= minBytes)
            break;
        std::string n = std::to_string(i);
        switch (i % 4) {
        case 0:
            r.params.push_back(scalarParam("Text" + n,
                                           "record " + n +
                                               ": free space < 10 % & inodes > 90 % on "
                                               "\xc3\xa9t\xc3\xa9 volume \"data\"",
                                           "string"));
            break;
        case 1:
            r.params.push_back(scalarParam("Count" + n, std::to_string(1000003ULL * i), "uint64"));
            break;
        case 2: {
            Param p;
            p.name = "Messages" + n;
            p.paramType = "string";
            p.kind = ValueKind::Array;
            for (int j = 0; j < 8; ++j)
                p.array.push_back("message " + std::to_string(j) + " of parameter " + n);
            r.params.push_back(std::move(p));
            break;
        }
        default: {
            Param p;
            p.name = "Element" + n;
            p.paramType = "reference";
            p.kind = ValueKind::Reference;
            p.ref = fileSystemPath("host.example", "root/cimv2", "/mnt/volume" + n);
            r.params.push_back(std::move(p));
            break;
        }
        }
    }
    return r;
}

} // namespace wbembench

#endif // DIAGCORE_BENCH_WBEM_CIMXMLTEXT_H
