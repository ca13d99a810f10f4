#include "host/broker/HostObject.h"

#include "host/broker/CallArena.h"
#include "host/broker/CallScope.h"
#include "host/broker/HostArgs.h"
#include "host/broker/HostArray.h"
#include "host/broker/HostContext.h"
#include "host/broker/HostDateTime.h"
#include "host/broker/HostEnumeration.h"
#include "host/broker/HostError.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"

#include <cstring>

namespace diaghost {

void HostObject::place(Placement where) {
    switch (where) {
    case Placement::Scope:
        CallScope::arenaFor(*broker_).adopt(this);
        break;
    case Placement::Parent:
        owner_ = Owner::Parent;
        break;
    case Placement::Nobody:
        break;
    }
}

void HostObject::release() {
    switch (owner_) {
    case Owner::Nobody:
        delete this;
        break;
    case Owner::Arena:
        arena_->release(this);
        break;
    case Owner::Parent:
        break;
    }
}

HostObject* HostObject::fromCmpi(const void* object) {
    if (!object)
        return nullptr;
    // Every encapsulated type starts with {void* hdl; FT* ft;}.
    const void* ft = nullptr;
    std::memcpy(&ft, static_cast<const char*>(object) + sizeof(void*), sizeof ft);
    if (ft == HostString::table())
        return HostString::from(static_cast<const CMPIString*>(object));
    if (ft == HostInstance::table())
        return HostInstance::from(static_cast<const CMPIInstance*>(object));
    if (ft == HostObjectPath::table())
        return HostObjectPath::from(static_cast<const CMPIObjectPath*>(object));
    if (ft == HostArray::table())
        return HostArray::from(static_cast<const CMPIArray*>(object));
    if (ft == HostDateTime::table())
        return HostDateTime::from(static_cast<const CMPIDateTime*>(object));
    if (ft == HostArgs::table())
        return HostArgs::from(static_cast<const CMPIArgs*>(object));
    if (ft == HostEnumeration::table())
        return HostEnumeration::from(static_cast<const CMPIEnumeration*>(object));
    if (ft == HostContext::table())
        return HostContext::from(static_cast<const CMPIContext*>(object));
    if (ft == HostError::table())
        return HostError::from(static_cast<const CMPIError*>(object));
    return nullptr;
}

const char* HostObject::typeName(Kind kind) {
    switch (kind) {
    case Kind::String:
        return "CMPIString";
    case Kind::Array:
        return "CMPIArray";
    case Kind::DateTime:
        return "CMPIDateTime";
    case Kind::ObjectPath:
        return "CMPIObjectPath";
    case Kind::Instance:
        return "CMPIInstance";
    case Kind::Args:
        return "CMPIArgs";
    case Kind::Enumeration:
        return "CMPIEnumeration";
    case Kind::Context:
        return "CMPIContext";
    case Kind::Error:
        return "CMPIError";
    case Kind::Block:
    case Kind::Mark:
        break;
    }
    return "";
}

} // namespace diaghost
