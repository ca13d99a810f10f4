#include "host/broker/CimValueCodec.h"

#include "host/broker/Broker.h"
#include "host/mof/CimTypeCodes.h"
#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"
#include "host/text/LiteralText.h"

#include <cmpift.h>

#include <cctype>
#include <cmath>
#include <limits>

namespace diaghost {

namespace {

using Kind = LiteralKind;

[[noreturn]] void mismatch(Kind kind, const std::string& text, CimTypeCode type) {
    throw CimValueCodec::Error(std::string("a ") + LiteralText::kindName(kind) + " value (" + text +
                               ") cannot be " + cimtype::typeName(type));
}

std::string statusText(const CMPIStatus& st) {
    std::string out = "rc " + std::to_string(st.rc);
    if (st.msg && st.msg->ft) {
        const char* text = st.msg->ft->getCharPtr(st.msg, nullptr);
        if (text)
            out += ": " + std::string(text);
    }
    return out;
}

CMPIValue integerValue(const std::string& text, CimTypeCode type) {
    bool negative = false;
    unsigned long long mag = 0;
    if (!LiteralText::parseInteger(text, negative, mag))
        throw CimValueCodec::Error("\"" + text + "\" is not an integer");
    int bits = cimtype::integerBits(type);
    CMPIValue v{};
    if (cimtype::isUnsigned(type)) {
        unsigned long long max = bits == 64 ? ~0ull : (1ull << bits) - 1;
        if ((negative && mag != 0) || mag > max)
            throw CimValueCodec::Error(text + " is out of range for " + cimtype::typeName(type));
        switch (bits) {
        case 8:
            v.uint8 = static_cast<CMPIUint8>(mag);
            break;
        case 16:
            v.uint16 = static_cast<CMPIUint16>(mag);
            break;
        case 32:
            v.uint32 = static_cast<CMPIUint32>(mag);
            break;
        default:
            v.uint64 = mag;
        }
        return v;
    }
    unsigned long long limit = 1ull << (bits - 1); // magnitude of the most negative value
    if ((negative && mag > limit) || (!negative && mag >= limit))
        throw CimValueCodec::Error(text + " is out of range for " + cimtype::typeName(type));
    long long s = negative ? static_cast<long long>(0ull - mag) : static_cast<long long>(mag);
    switch (bits) {
    case 8:
        v.sint8 = static_cast<CMPISint8>(s);
        break;
    case 16:
        v.sint16 = static_cast<CMPISint16>(s);
        break;
    case 32:
        v.sint32 = static_cast<CMPISint32>(s);
        break;
    default:
        v.sint64 = s;
    }
    return v;
}

CMPIChar16 charValue(const std::string& text) {
    std::uint16_t unit = 0;
    if (!LiteralText::parseChar16(text, unit))
        throw CimValueCodec::Error("\"" + text + "\" is not a single char16 character");
    return unit;
}

CMPIString* makeString(Broker& broker, const std::string& text) {
    const CMPIBroker* mb = broker.cmpi();
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIString* s = mb->eft->newString(mb, text.c_str(), &st);
    if (!s || st.rc != CMPI_RC_OK)
        throw CimValueCodec::Error("newString failed: " + statusText(st));
    return s;
}

void check(const CMPIStatus& st, const char* what) {
    if (st.rc == CMPI_RC_OK)
        return;
    std::string message = std::string(what) + " failed with rc " + std::to_string(st.rc);
    if (st.msg && st.msg->ft) {
        const char* text = st.msg->ft->getCharPtr(st.msg, nullptr);
        if (text)
            message += ": " + std::string(text);
    }
    throw ObjectPathError(message);
}

} // namespace

LiteralKind CimValueCodec::literalKindFor(CMPIType type) {
    switch (type & ~CMPI_ARRAY) {
    case CMPI_boolean:
        return LiteralKind::Boolean;
    case CMPI_real32:
    case CMPI_real64:
        return LiteralKind::Real;
    case CMPI_uint8:
    case CMPI_uint16:
    case CMPI_uint32:
    case CMPI_uint64:
    case CMPI_sint8:
    case CMPI_sint16:
    case CMPI_sint32:
    case CMPI_sint64:
        return LiteralKind::Integer;
    default:
        return LiteralKind::String;
    }
}

CMPIData CimValueCodec::fromLiteral(Broker& broker, Kind kind, const std::string& text,
                                    CimTypeCode type, const std::string& ns) {
    CMPIData d{};
    d.type = type;
    d.state = CMPI_goodValue;
    if (type & CMPI_ARRAY)
        throw Error(std::string("a single ") + LiteralText::kindName(kind) +
                    " value cannot be an array");
    if (kind == Kind::Null) {
        d.state = CMPI_nullValue;
        return d;
    }
    switch (type) {
    case CMPI_boolean: {
        if (kind != Kind::Boolean)
            mismatch(kind, text, type);
        std::string t = lowerName(text);
        if (t != "true" && t != "false")
            throw Error("\"" + text + "\" is not TRUE or FALSE");
        d.value.boolean = t == "true";
        return d;
    }
    case CMPI_char16:
        if (kind != Kind::Char && kind != Kind::String)
            mismatch(kind, text, type);
        d.value.char16 = charValue(text);
        return d;
    case CMPI_real32:
    case CMPI_real64: {
        double v = 0;
        bool negative = false;
        unsigned long long mag = 0;
        bool ok = false;
        if (kind == Kind::Integer && LiteralText::parseInteger(text, negative, mag)) {
            v = negative ? -static_cast<double>(mag) : static_cast<double>(mag);
            ok = true;
        } else if (kind == Kind::Real) {
            ok = LiteralText::parseReal(text, v);
        }
        if (!ok)
            mismatch(kind, text, type);
        if (type == CMPI_real32) {
            if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max())
                throw Error(text + " is out of range for real32");
            d.value.real32 = static_cast<CMPIReal32>(v);
        } else {
            d.value.real64 = v;
        }
        return d;
    }
    case CMPI_uint8:
    case CMPI_uint16:
    case CMPI_uint32:
    case CMPI_uint64:
    case CMPI_sint8:
    case CMPI_sint16:
    case CMPI_sint32:
    case CMPI_sint64:
        if (kind != Kind::Integer)
            mismatch(kind, text, type);
        d.value = integerValue(text, type);
        return d;
    case CMPI_string:
        if (kind != Kind::String && kind != Kind::Char)
            mismatch(kind, text, type);
        d.value.string = makeString(broker, text);
        return d;
    case CMPI_dateTime: {
        if (kind != Kind::String)
            mismatch(kind, text, type);
        const CMPIBroker* mb = broker.cmpi();
        CMPIStatus st{CMPI_RC_OK, nullptr};
        d.value.dateTime = mb->eft->newDateTimeFromChars(mb, text.c_str(), &st);
        if (!d.value.dateTime || st.rc != CMPI_RC_OK)
            throw Error("\"" + text + "\" is not a CIM datetime");
        return d;
    }
    case CMPI_ref:
        if (kind != Kind::String && kind != Kind::Reference)
            mismatch(kind, text, type);
        try {
            d.value.ref = pathFromText(broker, text, ns);
        } catch (const ObjectPathError& e) {
            throw Error(e.what());
        }
        return d;
    default:
        throw Error("values of type code " + std::to_string(type) + " are not supported");
    }
}

CMPIData CimValueCodec::fromMof(Broker& broker, const MofValue& value, CimTypeCode type,
                                const std::string& ns) {
    if (value.kind == Kind::Null) {
        CMPIData d{};
        d.type = type;
        d.state = CMPI_nullValue;
        return d;
    }
    bool arrayType = (type & CMPI_ARRAY) != 0;
    if (!arrayType) {
        if (value.array)
            throw Error(std::string("an array cannot be ") + cimtype::typeName(type));
        if (value.elements.size() != 1)
            throw Error("a single value holds exactly one element");
        return fromLiteral(broker, value.kind, value.elements[0], type, ns);
    }
    CimTypeCode elementType = type & ~CMPI_ARRAY;
    const CMPIBroker* mb = broker.cmpi();
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIArray* array =
        mb->eft->newArray(mb, static_cast<CMPICount>(value.elements.size()), elementType, &st);
    if (!array || st.rc != CMPI_RC_OK)
        throw Error("newArray failed: " + statusText(st));
    for (std::size_t i = 0; i < value.elements.size(); ++i) {
        CMPIData e = fromLiteral(broker, value.kind, value.elements[i], elementType, ns);
        CMPIStatus set =
            array->ft->setElementAt(array, static_cast<CMPICount>(i), &e.value, elementType);
        if (set.rc != CMPI_RC_OK)
            throw Error("setElementAt failed: " + statusText(set));
    }
    CMPIData d{};
    d.type = type;
    d.state = CMPI_goodValue;
    d.value.array = array;
    return d;
}

CMPIData CimValueCodec::fromUntypedLiteral(Broker& broker, Kind kind, const std::string& text,
                                           const std::string& ns) {
    switch (kind) {
    case Kind::String:
        return fromLiteral(broker, kind, text, CMPI_string, ns);
    case Kind::Char:
        return fromLiteral(broker, kind, text, CMPI_char16, ns);
    case Kind::Boolean:
        return fromLiteral(broker, kind, text, CMPI_boolean, ns);
    case Kind::Real:
        return fromLiteral(broker, kind, text, CMPI_real64, ns);
    case Kind::Reference:
        return fromLiteral(broker, kind, text, CMPI_ref, ns);
    case Kind::Integer: {
        bool negative = false;
        unsigned long long mag = 0;
        if (!LiteralText::parseInteger(text, negative, mag))
            throw Error("\"" + text + "\" is not an integer");
        bool fitsSigned = negative ? mag <= (1ull << 63) : mag < (1ull << 63);
        return fromLiteral(broker, kind, text, fitsSigned ? CMPI_sint64 : CMPI_uint64, ns);
    }
    case Kind::Null:
        break;
    }
    CMPIData d{};
    d.type = CMPI_null;
    d.state = CMPI_nullValue;
    return d;
}

CMPIObjectPath* CimValueCodec::pathFromText(Broker& broker, const ObjectPathText& path,
                                            const std::string& defaultNs) {
    const CMPIBroker* mb = broker.cmpi();
    std::string ns = path.nameSpace.empty() ? defaultNs : path.nameSpace;
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIObjectPath* op =
        mb->eft->newObjectPath(mb, ns.empty() ? nullptr : ns.c_str(), path.className.c_str(), &st);
    check(st, "newObjectPath");
    if (!op)
        throw ObjectPathError("newObjectPath gave no path");
    if (!path.host.empty())
        check(op->ft->setHostname(op, path.host.c_str()), "setHostname");
    const CimClass* cls = ns.empty() ? nullptr : broker.classes().findClass(ns, path.className);
    for (const ObjectPathText::Key& key : path.keys) {
        const CimProperty* declared = cls ? cls->findProperty(key.name) : nullptr;
        CMPIData data{};
        try {
            bool asReference = key.reference && (!declared || declared->type == CMPI_ref);
            if (asReference) {
                data.type = CMPI_ref;
                data.state = CMPI_goodValue;
                data.value.ref = pathFromText(broker, *key.reference, ns);
            } else if (declared) {
                data = fromLiteral(broker, key.kind, key.text, declared->type, ns);
            } else {
                data = fromUntypedLiteral(broker, key.kind, key.text, ns);
            }
        } catch (const Error& e) {
            throw ObjectPathError("key \"" + key.name + "\" of class " + path.className + ": " +
                                  e.what());
        }
        check(op->ft->addKey(op, key.name.c_str(), &data.value, data.type), "addKey");
    }
    return op;
}

CMPIObjectPath* CimValueCodec::pathFromText(Broker& broker, const std::string& text,
                                            const std::string& defaultNs) {
    return pathFromText(broker, ObjectPathText::parse(text), defaultNs);
}

} // namespace diaghost
