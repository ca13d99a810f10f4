#include "host/broker/ObjectFactory.h"

#include "host/broker/Broker.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/HostArgs.h"
#include "host/broker/HostArray.h"
#include "host/broker/HostContext.h"
#include "host/broker/HostDateTime.h"
#include "host/broker/HostEnumeration.h"
#include "host/broker/HostError.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"
#include "host/broker/LogSink.h"
#include "host/broker/PathRenderer.h"
#include "host/mof/CimClass.h"
#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <charconv>
#include <memory>
#include <vector>

namespace diaghost {

namespace {

using Placement = HostObject::Placement;

constexpr const char* defaultNameSpace = "root/cimv2";

Broker* brokerOf(const CMPIBroker* mb, CMPIStatus* rc) {
    Broker* b = Broker::from(mb);
    CmpiCall::set(rc, b ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return b;
}

// Places a new object in the caller's scope and answers its CMPI face.
template <class T>
auto scoped(T* object) -> decltype(object->cmpi()) {
    std::unique_ptr<T> holder(object);
    object->place(Placement::Scope);
    return holder.release()->cmpi();
}

// The class of a path, looked up in its namespace (root/cimv2 when it has none) without
// building strings on every call.
const CimClass* classOf(const Broker& b, const std::string& ns, const char* className) {
    thread_local std::string nsBuffer;
    thread_local std::string classBuffer;
    nsBuffer.assign(ns.empty() ? defaultNameSpace : ns);
    classBuffer.assign(className);
    return b.classes().findClass(nsBuffer, classBuffer);
}

CMPIInstance* newInstance(const CMPIBroker* mb, const CMPIObjectPath* op, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIInstance*>(nullptr), [&]() -> CMPIInstance* {
        Broker* b = brokerOf(mb, rc);
        if (!b || b->injectFault(FaultHook::Function::NewInstance, rc))
            return nullptr;
        if (!op) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        HostObjectPath* path = HostObjectPath::from(op);
        if (!path) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return nullptr;
        }
        const CimClass* cls = classOf(*b, path->nameSpace(), path->className());
        if (!cls) {
            CmpiCall::set(rc, *b, CMPI_RC_ERR_INVALID_CLASS,
                          std::string("no class ") + path->className() + " in namespace " +
                              (path->nameSpace().empty() ? defaultNameSpace : path->nameSpace()));
            return nullptr;
        }
        std::unique_ptr<HostInstance> inst(
            HostInstance::create(*b, *cls, path->nameSpace(), path->host()));
        inst->takeKeys(*path);
        return scoped(inst.release());
    });
}

CMPIObjectPath* newObjectPath(const CMPIBroker* mb, const char* ns, const char* className,
                              CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIObjectPath*>(nullptr), [&]() -> CMPIObjectPath* {
        Broker* b = brokerOf(mb, rc);
        if (!b || b->injectFault(FaultHook::Function::NewObjectPath, rc))
            return nullptr;
        return scoped(HostObjectPath::create(*b, ns, className));
    });
}

CMPIArgs* newArgs(const CMPIBroker* mb, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIArgs*>(nullptr), [&]() -> CMPIArgs* {
        Broker* b = brokerOf(mb, rc);
        return b ? scoped(HostArgs::create(*b)) : nullptr;
    });
}

CMPIString* newString(const CMPIBroker* mb, const char* data, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        Broker* b = brokerOf(mb, rc);
        if (!b || b->injectFault(FaultHook::Function::NewString, rc))
            return nullptr;
        return HostString::make(*b, data, Placement::Scope);
    });
}

CMPIArray* newArray(const CMPIBroker* mb, CMPICount size, CMPIType type, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIArray*>(nullptr), [&]() -> CMPIArray* {
        Broker* b = brokerOf(mb, rc);
        if (!b || b->injectFault(FaultHook::Function::NewArray, rc))
            return nullptr;
        if (!HostArray::validElementType(static_cast<CMPIType>(type & ~CMPI_ARRAY))) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
            return nullptr;
        }
        if (size > HostArray::maxSize) {
            CmpiCall::set(rc, *b, CMPI_RC_ERR_INVALID_PARAMETER, "array size too large");
            return nullptr;
        }
        return scoped(HostArray::create(*b, size, type));
    });
}

CMPIDateTime* newDateTime(const CMPIBroker* mb, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIDateTime*>(nullptr), [&]() -> CMPIDateTime* {
        Broker* b = brokerOf(mb, rc);
        return b ? scoped(HostDateTime::now(*b)) : nullptr;
    });
}

CMPIDateTime* newDateTimeFromBinary(const CMPIBroker* mb, CMPIUint64 binTime, CMPIBoolean interval,
                                    CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIDateTime*>(nullptr), [&]() -> CMPIDateTime* {
        Broker* b = brokerOf(mb, rc);
        if (!b)
            return nullptr;
        if (!HostDateTime::validBinary(binTime, interval != 0)) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        return scoped(HostDateTime::create(*b, binTime, interval != 0));
    });
}

CMPIDateTime* newDateTimeFromChars(const CMPIBroker* mb, const char* text, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIDateTime*>(nullptr), [&]() -> CMPIDateTime* {
        Broker* b = brokerOf(mb, rc);
        if (!b)
            return nullptr;
        CMPIUint64 binary = 0;
        bool interval = false;
        int offset = 0;
        if (!HostDateTime::parse(text, binary, interval, offset)) {
            CmpiCall::set(rc, *b, CMPI_RC_ERR_INVALID_PARAMETER,
                          std::string("not a CIM datetime: ") + (text ? text : "(null)"));
            return nullptr;
        }
        return scoped(HostDateTime::create(*b, binary, interval, offset));
    });
}

CMPISelectExp* newSelectExp(const CMPIBroker* mb, const char*, const char*, CMPIArray** projection,
                            CMPIStatus* rc) {
    if (projection)
        *projection = nullptr;
    if (brokerOf(mb, rc))
        CmpiCall::set(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIBoolean classPathIsA(const CMPIBroker* mb, const CMPIObjectPath* op, const char* className,
                         CMPIStatus* rc) {
    return CmpiCall::guard(rc, CMPIBoolean(0), [&]() -> CMPIBoolean {
        Broker* b = brokerOf(mb, rc);
        if (!b)
            return 0;
        if (!op || !className) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return 0;
        }
        HostObjectPath* path = HostObjectPath::from(op);
        if (!path) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return 0;
        }
        if (sameName(path->className(), className))
            return 1;
        const CimClass* cls = classOf(*b, path->nameSpace(), path->className());
        // Bounded walk: a broken hierarchy must not hang the caller.
        for (int depth = 0; cls && depth < 256; ++depth) {
            if (sameName(cls->name, className))
                return 1;
            if (cls->superclass.empty())
                break;
            cls = classOf(*b, path->nameSpace(), cls->superclass.c_str());
        }
        return 0;
    });
}

void appendNamedValues(std::string& out, const NamedValues& values, PathDialect dialect) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i)
            out += ',';
        out += values.nameAt(i);
        out += '=';
        PathRenderer::appendMofValue(out, values.at(i), dialect);
    }
}

std::string objectText(HostObject& o) {
    const PathDialect dialect = o.broker().dialect();
    std::string out;
    switch (o.kind()) {
    case HostObject::Kind::String: {
        const char* text = static_cast<HostString&>(o).text();
        return text ? text : "";
    }
    case HostObject::Kind::ObjectPath:
        return static_cast<HostObjectPath&>(o).toString();
    case HostObject::Kind::Instance:
        return PathRenderer::renderInstance(static_cast<HostInstance&>(o), dialect);
    case HostObject::Kind::DateTime:
        return static_cast<HostDateTime&>(o).text();
    case HostObject::Kind::Array: {
        auto& a = static_cast<HostArray&>(o);
        CMPIData d{};
        d.type = static_cast<CMPIType>(a.elementType() | CMPI_ARRAY);
        d.value.array = a.cmpi();
        PathRenderer::appendMofValue(out, d, dialect);
        return out;
    }
    case HostObject::Kind::Args:
        appendNamedValues(out, static_cast<HostArgs&>(o).values(), dialect);
        return out;
    case HostObject::Kind::Context:
        appendNamedValues(out, static_cast<HostContext&>(o).values(), dialect);
        return out;
    case HostObject::Kind::Enumeration: {
        const auto& items = static_cast<HostEnumeration&>(o).items();
        out += '{';
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (i)
                out += ", ";
            PathRenderer::appendMofValue(out, items[i], dialect);
        }
        out += '}';
        return out;
    }
    case HostObject::Kind::Error: {
        const auto& f = static_cast<HostError&>(o).fields();
        return f.message ? *f.message : std::string();
    }
    case HostObject::Kind::Block:
    case HostObject::Kind::Mark:
        break;
    }
    return out;
}

// The host object behind `object`, or an answer in rc; the broker itself is recognised too.
HostObject* objectOf(const CMPIBroker* mb, const void* object, CMPIStatus* rc, Broker*& b,
                     bool& isBroker) {
    isBroker = false;
    b = brokerOf(mb, rc);
    if (!b)
        return nullptr;
    if (!object) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
        return nullptr;
    }
    if (HostObject* o = HostObject::fromCmpi(object))
        return o;
    if (Broker::from(static_cast<const CMPIBroker*>(object))) {
        isBroker = true;
        return nullptr;
    }
    CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
    return nullptr;
}

CMPIString* toString(const CMPIBroker* mb, const void* object, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        Broker* b = nullptr;
        bool isBroker = false;
        HostObject* o = objectOf(mb, object, rc, b, isBroker);
        if (isBroker)
            return HostString::make(*b, "CMPIBroker diaghost", Placement::Scope);
        if (!o)
            return nullptr;
        std::string text = objectText(*o);
        return HostString::make(*b, text.c_str(), text.size(), Placement::Scope);
    });
}

CMPIBoolean isOfType(const CMPIBroker* mb, const void* object, const char* type, CMPIStatus* rc) {
    return CmpiCall::guard(rc, CMPIBoolean(0), [&]() -> CMPIBoolean {
        Broker* b = nullptr;
        bool isBroker = false;
        HostObject* o = objectOf(mb, object, rc, b, isBroker);
        if (!o && !isBroker)
            return 0;
        if (!type) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return 0;
        }
        const char* actual = isBroker ? "CMPIBroker" : HostObject::typeName(o->kind());
        return std::string_view(actual) == type ? 1 : 0;
    });
}

CMPIString* getType(const CMPIBroker* mb, const void* object, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        Broker* b = nullptr;
        bool isBroker = false;
        HostObject* o = objectOf(mb, object, rc, b, isBroker);
        if (!o && !isBroker)
            return nullptr;
        return HostString::make(*b, isBroker ? "CMPIBroker" : HostObject::typeName(o->kind()),
                                Placement::Scope);
    });
}

CMPIString* formattedMessage(const CMPIBroker* mb, const char* defMsg, CMPIStatus* rc,
                             CMPICount count, va_list args) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        Broker* b = brokerOf(mb, rc);
        if (!b)
            return nullptr;
        std::string text = ObjectFactory::formatMessage(defMsg, count, args);
        return HostString::make(*b, text.c_str(), text.size(), Placement::Scope);
    });
}

CMPIString* getMessage(const CMPIBroker* mb, const char*, const char* defMsg, CMPIStatus* rc,
                       CMPICount count, ...) {
    va_list args;
    va_start(args, count);
    CMPIString* s = formattedMessage(mb, defMsg, rc, count, args);
    va_end(args);
    return s;
}

// The severity and level parameters are int in some header sets and CMPISeverity and CMPILevel
// in others; each is deduced from the slot of the function table it fills.
template <class Severity>
CMPIStatus logMessage(const CMPIBroker* mb, Severity severity, const char* id, const char* text,
                      const CMPIString* string) {
    return CmpiCall::guardStatus([&] {
        Broker* b = Broker::from(mb);
        if (!b)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        const char* line = text ? text : HostString::textOf(string);
        // sfcb implements no logMessage: the line is refused. The sink keeps it marked as
        // dropped, so tests still see what the provider sent, and never echoes it.
        const bool refused = b->dialect() == PathDialect::Sfcb;
        b->log().write(static_cast<int>(severity), id ? id : "", line ? line : "", false, refused);
        return CmpiCall::status(refused ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_OK);
    });
}

template <class Level>
CMPIStatus trace(const CMPIBroker* mb, Level level, const char* component, const char* text,
                 const CMPIString* string) {
    return CmpiCall::guardStatus([&] {
        Broker* b = Broker::from(mb);
        if (!b)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        const char* line = text ? text : HostString::textOf(string);
        b->log().write(static_cast<int>(level), component ? component : "", line ? line : "", true,
                       false);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIError* newCMPIError(const CMPIBroker* mb, const char* owner, const char* msgID, const char* msg,
                        const CMPIErrorSeverity sev, const CMPIErrorProbableCause pc,
                        const CMPIrc cimStatusCode, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIError*>(nullptr), [&]() -> CMPIError* {
        Broker* b = brokerOf(mb, rc);
        if (!b)
            return nullptr;
        HostError::Fields f;
        if (owner)
            f.owningEntity = owner;
        if (msgID)
            f.messageId = msgID;
        if (msg)
            f.message = msg;
        f.severity = sev;
        f.probableCause = pc;
        f.statusCode = cimStatusCode;
        return scoped(HostError::create(*b, std::move(f)));
    });
}

CMPIStatus openMessageFile(const CMPIBroker* mb, const char*, CMPIMsgFileHandle* handle) {
    if (!Broker::from(mb))
        return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
    if (!handle)
        return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
    // No message files: the handle stays null and getMessage2 uses the default texts.
    *handle = nullptr;
    return CmpiCall::status(CMPI_RC_OK);
}

CMPIStatus closeMessageFile(const CMPIBroker* mb, const CMPIMsgFileHandle) {
    return CmpiCall::status(Broker::from(mb) ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
}

CMPIString* getMessage2(const CMPIBroker* mb, const char*, const CMPIMsgFileHandle,
                        const char* defMsg, CMPIStatus* rc, CMPICount count, ...) {
    va_list args;
    va_start(args, count);
    CMPIString* s = formattedMessage(mb, defMsg, rc, count, args);
    va_end(args);
    return s;
}

CMPIBrokerEncFT encTable = {CMPIVersion200,
                            newInstance,
                            newObjectPath,
                            newArgs,
                            newString,
                            newArray,
                            newDateTime,
                            newDateTimeFromBinary,
                            newDateTimeFromChars,
                            newSelectExp,
                            classPathIsA,
                            toString,
                            isOfType,
                            getType,
                            getMessage,
                            logMessage,
                            trace,
                            newCMPIError,
                            openMessageFile,
                            closeMessageFile,
                            getMessage2};

template <class T>
std::string numberText(T value) {
    char buf[40];
    auto result = std::to_chars(buf, buf + sizeof buf, value);
    return std::string(buf, result.ptr);
}

} // namespace

CMPIBrokerEncFT* ObjectFactory::table() {
    return &encTable;
}

std::string ObjectFactory::formatMessage(const char* defMsg, CMPICount count, va_list args) {
    constexpr CMPICount maxInserts = 10;
    std::vector<std::string> inserts;
    for (CMPICount i = 0; i < count && i < maxInserts; ++i) {
        const int type = va_arg(args, int);
        switch (type) {
        case CMPI_sint32:
            inserts.push_back(numberText(va_arg(args, long)));
            continue;
        case CMPI_uint32:
            inserts.push_back(numberText(va_arg(args, unsigned long)));
            continue;
        case CMPI_sint8:
        case CMPI_sint16:
            inserts.push_back(numberText(va_arg(args, int)));
            continue;
        case CMPI_uint8:
        case CMPI_uint16:
            inserts.push_back(numberText(va_arg(args, unsigned)));
            continue;
        case CMPI_sint64:
            inserts.push_back(numberText(va_arg(args, long long)));
            continue;
        case CMPI_uint64:
            inserts.push_back(numberText(va_arg(args, unsigned long long)));
            continue;
        case CMPI_real32:
        case CMPI_real64:
            inserts.push_back(numberText(va_arg(args, double)));
            continue;
        case CMPI_boolean:
            inserts.push_back(va_arg(args, int) ? "true" : "false");
            continue;
        case CMPI_chars: {
            const char* s = va_arg(args, const char*);
            inserts.push_back(s ? s : "");
            continue;
        }
        case CMPI_string: {
            const char* s = HostString::textOf(va_arg(args, CMPIString*));
            inserts.push_back(s ? s : "");
            continue;
        }
        default:
            break;
        }
        break; // an insert of unknown size: nothing after it can be read safely
    }
    std::string out;
    if (!defMsg)
        return out;
    for (const char* p = defMsg; *p; ++p) {
        if (p[0] == '$' && p[1] >= '0' && p[1] <= '9' &&
            static_cast<std::size_t>(p[1] - '0') < inserts.size()) {
            out += inserts[static_cast<std::size_t>(p[1] - '0')];
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

} // namespace diaghost
