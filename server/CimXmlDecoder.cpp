#include "server/CimXmlDecoder.h"

#include "host/text/CimNames.h"
#include "host/text/LiteralText.h"

namespace diagserver {

namespace {

using diaghost::ObjectPathText;
using Value = CimRequest::Value;

constexpr std::size_t maxKeys = 256;

[[noreturn]] void invalid(const std::string& message) {
    throw DecodeError("request-not-valid", message);
}

const XmlElement& only(const XmlElement& parent, std::string_view name) {
    const XmlElement* c = parent.child(name);
    if (!c)
        invalid(parent.name + " holds no " + std::string(name));
    return *c;
}

const std::string& required(const XmlElement& e, std::string_view attribute) {
    const std::string* v = e.attribute(attribute);
    if (!v)
        invalid(e.name + " has no " + std::string(attribute));
    return *v;
}

bool versionOf(const std::string* version, char major) {
    return version && !version->empty() && (*version)[0] == major &&
           (version->size() == 1 || (*version)[1] == '.');
}

std::string localNamespace(const XmlElement& localNamespacePath) {
    std::string ns;
    for (const auto& part : localNamespacePath.children) {
        if (part->name != "NAMESPACE")
            invalid("LOCALNAMESPACEPATH holds " + part->name);
        const std::string& name = required(*part, "NAME");
        if (name.empty())
            invalid("a NAMESPACE has an empty NAME");
        if (!ns.empty())
            ns += '/';
        ns += name;
    }
    if (ns.empty())
        invalid("LOCALNAMESPACEPATH names no namespace");
    return ns;
}

ObjectPathText instanceName(const XmlElement& e);

// VALUE.REFERENCE: a full, local or bare instance path.
ObjectPathText reference(const XmlElement& valueReference) {
    if (valueReference.children.size() != 1)
        invalid("VALUE.REFERENCE holds one path");
    const XmlElement& path = *valueReference.children.front();
    if (path.name == "INSTANCENAME")
        return instanceName(path);
    if (path.name == "LOCALINSTANCEPATH") {
        ObjectPathText out = instanceName(only(path, "INSTANCENAME"));
        out.nameSpace = localNamespace(only(path, "LOCALNAMESPACEPATH"));
        return out;
    }
    if (path.name == "INSTANCEPATH") {
        const XmlElement& nsPath = only(path, "NAMESPACEPATH");
        ObjectPathText out = instanceName(only(path, "INSTANCENAME"));
        out.host = only(nsPath, "HOST").text;
        out.nameSpace = localNamespace(only(nsPath, "LOCALNAMESPACEPATH"));
        return out;
    }
    invalid("a reference to " + path.name + " is not served");
}

ObjectPathText instanceName(const XmlElement& e) {
    ObjectPathText out;
    out.className = required(e, "CLASSNAME");
    for (const auto& binding : e.children) {
        if (binding->name != "KEYBINDING")
            invalid("INSTANCENAME holds " + binding->name + "; keys must be named");
        ObjectPathText::Key key;
        key.name = required(*binding, "NAME");
        if (binding->children.size() != 1)
            invalid("KEYBINDING " + key.name + " holds one value");
        const XmlElement& value = *binding->children.front();
        if (value.name == "KEYVALUE") {
            const std::string* valueType = value.attribute("VALUETYPE");
            key.text = value.text;
            if (!valueType || *valueType == "string") {
                key.kind = diaghost::LiteralKind::String;
            } else if (*valueType == "boolean") {
                key.kind = diaghost::LiteralKind::Boolean;
            } else if (*valueType == "numeric") {
                bool negative = false;
                unsigned long long magnitude = 0;
                key.kind = diaghost::LiteralText::parseInteger(key.text, negative, magnitude)
                               ? diaghost::LiteralKind::Integer
                               : diaghost::LiteralKind::Real;
            } else {
                invalid("KEYVALUE VALUETYPE " + *valueType + " is not known");
            }
        } else if (value.name == "VALUE.REFERENCE") {
            key.kind = diaghost::LiteralKind::Reference;
            key.reference = std::make_shared<const ObjectPathText>(reference(value));
        } else {
            invalid("KEYBINDING " + key.name + " holds " + value.name);
        }
        // Bounded (the providers refuse a path of more keys anyway), which also keeps this check
        // short.
        if (out.keys.size() == maxKeys)
            invalid("an instance name holds more than " + std::to_string(maxKeys) + " keys");
        for (const ObjectPathText::Key& earlier : out.keys)
            if (diaghost::sameName(earlier.name, key.name))
                invalid("key " + key.name + " is given twice");
        out.keys.push_back(std::move(key));
    }
    return out;
}

// The value of an IPARAMVALUE or PARAMVALUE.
Value parameterValue(const XmlElement& param) {
    Value v;
    if (const std::string* type = param.attribute("PARAMTYPE"))
        v.type = *type;
    if (const std::string* embedded = param.attribute("EmbeddedObject"))
        v.embeddedInstance = *embedded == "instance" || *embedded == "object";
    if (param.children.empty())
        return v; // no value: NULL
    if (param.children.size() != 1)
        invalid(param.name + " " + required(param, "NAME") + " holds more than one value");
    const XmlElement& e = *param.children.front();
    if (e.name == "VALUE") {
        v.kind = Value::Kind::Text;
        v.text = e.text;
    } else if (e.name == "VALUE.ARRAY") {
        v.kind = Value::Kind::TextArray;
        for (const auto& element : e.children) {
            if (element->name != "VALUE")
                invalid("an array of " + element->name + " is not served");
            v.texts.push_back(element->text);
        }
    } else if (e.name == "CLASSNAME") {
        v.kind = Value::Kind::ClassName;
        v.text = required(e, "NAME");
    } else if (e.name == "INSTANCENAME") {
        v.kind = Value::Kind::InstanceName;
        v.path = instanceName(e);
    } else if (e.name == "VALUE.REFERENCE") {
        v.kind = Value::Kind::InstanceName;
        v.path = reference(e);
    } else if (e.name == "VALUE.REFARRAY") {
        v.kind = Value::Kind::ReferenceArray;
        for (const auto& element : e.children) {
            if (element->name != "VALUE.REFERENCE")
                invalid("VALUE.REFARRAY holds " + element->name);
            v.paths.push_back(reference(*element));
        }
    } else if (e.name == "VALUE.NULL") {
        v.kind = Value::Kind::Null;
    } else {
        v.kind = Value::Kind::Other;
    }
    return v;
}

} // namespace

int DecodeError::httpStatus() const {
    return cimError_.rfind("unsupported", 0) == 0 || cimError_ == "multiple-requests-unsupported"
               ? 501
               : 400;
}

CimRequest CimXmlDecoder::decode(const XmlElement& root) {
    if (root.name != "CIM")
        invalid("the document is not a CIM message");
    // A version that is missing makes the message invalid; one that is there and not served is
    // unsupported.
    if (!root.attribute("CIMVERSION") || !root.attribute("DTDVERSION"))
        invalid("the CIM element lacks CIMVERSION or DTDVERSION");
    if (!versionOf(root.attribute("CIMVERSION"), '2'))
        throw DecodeError("unsupported-cim-version", "CIMVERSION 2.x is served");
    if (!versionOf(root.attribute("DTDVERSION"), '2'))
        throw DecodeError("unsupported-dtd-version", "DTDVERSION 2.x is served");
    const XmlElement& message = only(root, "MESSAGE");
    if (!message.attribute("PROTOCOLVERSION"))
        invalid("the MESSAGE element lacks PROTOCOLVERSION");
    if (!versionOf(message.attribute("PROTOCOLVERSION"), '1'))
        throw DecodeError("unsupported-protocol-version", "PROTOCOLVERSION 1.x is served");
    if (message.child("MULTIREQ"))
        throw DecodeError("multiple-requests-unsupported", "multiple requests are not served");
    CimRequest request;
    request.messageId = required(message, "ID");
    const XmlElement& simple = only(message, "SIMPLEREQ");
    if (message.children.size() != 1)
        invalid("MESSAGE holds more than its request");
    if (simple.children.empty())
        invalid("SIMPLEREQ holds no call");
    const XmlElement& call = *simple.children.back(); // a CORRELATOR may come first
    request.method = required(call, "NAME");
    if (call.name == "IMETHODCALL") {
        request.intrinsic = true;
        request.nameSpace = localNamespace(only(call, "LOCALNAMESPACEPATH"));
        for (const auto& p : call.children) {
            if (p->name == "IPARAMVALUE")
                request.params.emplace_back(required(*p, "NAME"), parameterValue(*p));
            else if (p->name != "LOCALNAMESPACEPATH")
                invalid("IMETHODCALL holds " + p->name);
        }
    } else if (call.name == "METHODCALL") {
        request.intrinsic = false;
        if (const XmlElement* instance = call.child("LOCALINSTANCEPATH")) {
            request.target = instanceName(only(*instance, "INSTANCENAME"));
            request.nameSpace = localNamespace(only(*instance, "LOCALNAMESPACEPATH"));
        } else if (const XmlElement* cls = call.child("LOCALCLASSPATH")) {
            request.target.className = required(only(*cls, "CLASSNAME"), "NAME");
            request.nameSpace = localNamespace(only(*cls, "LOCALNAMESPACEPATH"));
            request.classTarget = true;
        } else {
            invalid("METHODCALL names no object");
        }
        request.target.nameSpace = request.nameSpace;
        for (const auto& p : call.children) {
            if (p->name == "PARAMVALUE")
                request.params.emplace_back(required(*p, "NAME"), parameterValue(*p));
            else if (p->name != "LOCALINSTANCEPATH" && p->name != "LOCALCLASSPATH")
                invalid("METHODCALL holds " + p->name);
        }
    } else {
        invalid("SIMPLEREQ holds " + call.name);
    }
    return request;
}

CimRequest CimXmlDecoder::decode(std::string_view message, XmlReader::Limits limits) {
    std::unique_ptr<XmlElement> root;
    try {
        root = XmlReader::read(message, limits);
    } catch (const XmlRefused& e) {
        throw DecodeError("request-not-well-formed", e.what());
    }
    return decode(*root);
}

} // namespace diagserver
