#include "host/providers/StaticInstanceProvider.h"

#include "host/broker/Broker.h"
#include "host/broker/CimValueCodec.h"
#include "host/broker/CimValueMatch.h"
#include "host/broker/CimValueText.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"
#include "host/text/LiteralText.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <set>

namespace diaghost {

namespace {

std::string statusText(const CMPIStatus& st) {
    std::string out = rcName(st.rc);
    if (!CimValueText::text(st.msg).empty())
        out += ": " + CimValueText::text(st.msg);
    return out;
}

// The literal kind a class default of this type is written as.
MofValue::Kind defaultKind(CimTypeCode type, const std::string& value) {
    switch (type) {
    case CMPI_boolean:
        return MofValue::Kind::Boolean;
    case CMPI_char16:
        return MofValue::Kind::Char;
    case CMPI_real32:
    case CMPI_real64: {
        bool negative = false;
        unsigned long long mag = 0;
        return LiteralText::parseInteger(value, negative, mag) ? MofValue::Kind::Integer
                                                               : MofValue::Kind::Real;
    }
    case CMPI_ref:
        return MofValue::Kind::Reference;
    case CMPI_string:
    case CMPI_dateTime:
        return MofValue::Kind::String;
    default:
        return MofValue::Kind::Integer;
    }
}

OperationStatus failed(const std::string& message) {
    return OperationStatus::make(CMPI_RC_ERR_FAILED, message);
}

// Hands an instance, or only its path, to a provider result.
OperationStatus returnOne(const CMPIResult* rslt, CMPIInstance* inst, bool namesOnly) {
    CMPIStatus st{CMPI_RC_OK, nullptr};
    if (namesOnly) {
        CMPIObjectPath* op = inst->ft->getObjectPath(inst, &st);
        if (!op)
            return failed("getObjectPath: " + statusText(st));
        st = rslt->ft->returnObjectPath(rslt, op);
    } else {
        st = rslt->ft->returnInstance(rslt, inst);
    }
    return OperationStatus::fromCmpi(st);
}

} // namespace

StaticInstanceProvider::StaticInstanceProvider(Broker& broker) : broker_(broker) {}

std::vector<std::string> StaticInstanceProvider::classesWithInstances(const std::string& ns) const {
    std::vector<std::string> out;
    std::set<std::string> seen;
    for (const CimInstanceDecl& decl : broker_.classes().instances(ns))
        if (seen.insert(lowerName(decl.className)).second)
            out.push_back(decl.className);
    return out;
}

OperationStatus StaticInstanceProvider::build(const std::string& ns, const std::string& className,
                                              std::vector<CMPIInstance*>& out) const {
    const ClassRepository& classes = broker_.classes();
    const CMPIBroker* mb = broker_.cmpi();
    for (const CimInstanceDecl& decl : classes.instances(ns)) {
        if (!sameName(decl.className, className))
            continue;
        const CimClass* cls = classes.findClass(ns, decl.className);
        std::string who = "instance of " + decl.className;
        if (!cls)
            return OperationStatus::make(CMPI_RC_ERR_INVALID_CLASS, who + ": class not known");
        // Every value the instance will carry, by property: the declared ones, else defaults.
        std::vector<std::pair<const CimProperty*, CMPIData>> values;
        try {
            for (const auto& [name, value] : decl.values) {
                const CimProperty* prop = cls->findProperty(name);
                if (!prop)
                    return OperationStatus::make(CMPI_RC_ERR_NO_SUCH_PROPERTY,
                                                 who + ": class has no property " + name);
                values.emplace_back(prop, CimValueCodec::fromMof(broker_, value, prop->type, ns));
            }
            for (const CimProperty& prop : cls->properties) {
                bool given = std::any_of(values.begin(), values.end(),
                                         [&](const auto& v) { return v.first == &prop; });
                if (given || !prop.hasDefault || (prop.type & CMPI_ARRAY))
                    continue;
                values.emplace_back(&prop, CimValueCodec::fromLiteral(
                                               broker_, defaultKind(prop.type, prop.defaultText),
                                               prop.defaultText, prop.type, ns));
            }
        } catch (const CimValueCodec::Error& e) {
            return failed(who + ": " + e.what());
        }

        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIObjectPath* op = mb->eft->newObjectPath(mb, ns.c_str(), cls->name.c_str(), &st);
        if (!op)
            return failed(who + ": newObjectPath: " + statusText(st));
        for (const CimProperty& prop : cls->properties) {
            if (!prop.key)
                continue;
            for (const auto& [p, data] : values) {
                if (p != &prop || (data.state & CMPI_nullValue))
                    continue;
                st = op->ft->addKey(op, prop.name.c_str(), &data.value, data.type);
                if (st.rc != CMPI_RC_OK)
                    return failed(who + ": key " + prop.name + ": " + statusText(st));
            }
        }
        CMPIInstance* inst = mb->eft->newInstance(mb, op, &st);
        if (!inst)
            return failed(who + ": newInstance: " + statusText(st));
        for (const auto& [prop, data] : values) {
            bool null = (data.state & CMPI_nullValue) != 0;
            st = inst->ft->setProperty(inst, prop->name.c_str(), null ? nullptr : &data.value,
                                       data.type);
            if (st.rc != CMPI_RC_OK)
                return failed(who + ": property " + prop->name + ": " + statusText(st));
        }
        out.push_back(inst);
    }
    return OperationStatus::make(CMPI_RC_OK);
}

OperationStatus StaticInstanceProvider::enumerate(const std::string& ns,
                                                  const std::string& className, bool namesOnly,
                                                  ResultSink& out) const {
    std::vector<CMPIInstance*> instances;
    OperationStatus status = build(ns, className, instances);
    if (!status.ok())
        return status;
    const CMPIResult* rslt = out.cmpi();
    for (CMPIInstance* inst : instances) {
        OperationStatus returned = returnOne(rslt, inst, namesOnly);
        if (!returned.ok())
            return returned;
    }
    return status;
}

OperationStatus StaticInstanceProvider::getInstance(const std::string& ns,
                                                    const CMPIObjectPath* path,
                                                    ResultSink& out) const {
    std::string className = CimValueText::text(path->ft->getClassName(path, nullptr));
    std::vector<CMPIInstance*> instances;
    OperationStatus status = build(ns, className, instances);
    if (!status.ok())
        return status;
    for (CMPIInstance* inst : instances) {
        CMPIObjectPath* op = inst->ft->getObjectPath(inst, nullptr);
        if (op && CimValueMatch::samePath(op, path)) {
            const CMPIResult* rslt = out.cmpi();
            return OperationStatus::fromCmpi(rslt->ft->returnInstance(rslt, inst));
        }
    }
    return OperationStatus::make(CMPI_RC_ERR_NOT_FOUND,
                                 "no instance of " + className + " has the keys asked for");
}

OperationStatus StaticInstanceProvider::references(const std::string& ns,
                                                   const std::string& assocClass,
                                                   const CMPIObjectPath* source, const char* role,
                                                   bool namesOnly, ResultSink& out) const {
    const CimClass* cls = broker_.classes().findClass(ns, assocClass);
    if (!cls)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_CLASS,
                                     "class " + assocClass + " not known");
    std::vector<CMPIInstance*> instances;
    OperationStatus status = build(ns, assocClass, instances);
    if (!status.ok())
        return status;
    const CMPIResult* rslt = out.cmpi();
    for (CMPIInstance* inst : instances) {
        bool refers = false;
        for (const CimProperty& prop : cls->properties) {
            if (prop.type != CMPI_ref || (role && *role && !sameName(role, prop.name)))
                continue;
            CMPIData d = inst->ft->getProperty(inst, prop.name.c_str(), nullptr);
            if (!(d.state & CMPI_nullValue) && CimValueMatch::samePath(d.value.ref, source))
                refers = true;
        }
        if (!refers)
            continue;
        OperationStatus returned = returnOne(rslt, inst, namesOnly);
        if (!returned.ok())
            return returned;
    }
    return status;
}

OperationStatus StaticInstanceProvider::associatedPaths(const std::string& ns,
                                                        const std::string& assocClass,
                                                        const CMPIObjectPath* source,
                                                        const char* resultClass, const char* role,
                                                        const char* resultRole,
                                                        std::vector<CMPIObjectPath*>& out) const {
    const ClassRepository& classes = broker_.classes();
    const CimClass* cls = classes.findClass(ns, assocClass);
    if (!cls)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_CLASS,
                                     "class " + assocClass + " not known");
    std::vector<CMPIInstance*> instances;
    OperationStatus status = build(ns, assocClass, instances);
    if (!status.ok())
        return status;
    for (CMPIInstance* inst : instances) {
        // Which REF property names the source; the others lead to the associated objects.
        const CimProperty* sourceEnd = nullptr;
        for (const CimProperty& prop : cls->properties) {
            if (prop.type != CMPI_ref || (role && *role && !sameName(role, prop.name)))
                continue;
            CMPIData d = inst->ft->getProperty(inst, prop.name.c_str(), nullptr);
            if (!(d.state & CMPI_nullValue) && CimValueMatch::samePath(d.value.ref, source)) {
                sourceEnd = &prop;
                break;
            }
        }
        if (!sourceEnd)
            continue;
        for (const CimProperty& prop : cls->properties) {
            if (prop.type != CMPI_ref || &prop == sourceEnd ||
                (resultRole && *resultRole && !sameName(resultRole, prop.name)))
                continue;
            CMPIData d = inst->ft->getProperty(inst, prop.name.c_str(), nullptr);
            if ((d.state & CMPI_nullValue) || !d.value.ref)
                continue;
            std::string farClass =
                CimValueText::text(d.value.ref->ft->getClassName(d.value.ref, nullptr));
            if (resultClass && *resultClass && !classes.isA(ns, farClass, resultClass))
                continue;
            out.push_back(d.value.ref);
        }
    }
    return status;
}

} // namespace diaghost
