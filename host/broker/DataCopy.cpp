#include "host/broker/DataCopy.h"

#include "host/broker/HostArray.h"
#include "host/broker/HostString.h"
#include "host/broker/StringTable.h"
#include "host/memory/ScopeMemory.h"

#include <cmpift.h>

#include <cstring>
#include <memory>

namespace diaghost {

namespace {

void* objectOf(const CMPIData& d) {
    if (d.type & CMPI_ARRAY)
        return d.value.array;
    switch (d.type) {
    case CMPI_instance:
        return d.value.inst;
    case CMPI_ref:
        return d.value.ref;
    case CMPI_args:
        return d.value.args;
    case CMPI_string:
        return d.value.string;
    case CMPI_dateTime:
        return d.value.dateTime;
    case CMPI_enumeration:
        return d.value.Enum;
    default:
        return nullptr;
    }
}

void setObject(CMPIData& d, void* object) {
    if (d.type & CMPI_ARRAY) {
        d.value.array = static_cast<CMPIArray*>(object);
        return;
    }
    switch (d.type) {
    case CMPI_instance:
        d.value.inst = static_cast<CMPIInstance*>(object);
        break;
    case CMPI_ref:
        d.value.ref = static_cast<CMPIObjectPath*>(object);
        break;
    case CMPI_args:
        d.value.args = static_cast<CMPIArgs*>(object);
        break;
    case CMPI_string:
        d.value.string = static_cast<CMPIString*>(object);
        break;
    case CMPI_dateTime:
        d.value.dateTime = static_cast<CMPIDateTime*>(object);
        break;
    case CMPI_enumeration:
        d.value.Enum = static_cast<CMPIEnumeration*>(object);
        break;
    default:
        break;
    }
}

HostObject::Kind kindOf(CMPIType type) {
    switch (type) {
    case CMPI_instance:
        return HostObject::Kind::Instance;
    case CMPI_ref:
        return HostObject::Kind::ObjectPath;
    case CMPI_args:
        return HostObject::Kind::Args;
    case CMPI_dateTime:
        return HostObject::Kind::DateTime;
    case CMPI_enumeration:
        return HostObject::Kind::Enumeration;
    case CMPI_string:
        return HostObject::Kind::String;
    default:
        return HostObject::Kind::Array;
    }
}

// Gives the copy its owner and puts it into out.
void store(HostObject* copy, HostObject::Placement where, CMPIData& out) {
    std::unique_ptr<HostObject> holder(copy);
    copy->place(where);
    holder.release();
    setObject(out, copy->cmpiObject());
    out.state = CMPI_goodValue;
}

// A text for a part of an object that outlives its call is the table's shared string; any other
// copy is a string of its own, made by the broker the copy is for.
void storeText(Broker& broker, const char* text, std::size_t length, HostObject::Placement where,
               CMPIData& out) {
    if (text && where == HostObject::Placement::Parent && !ScopeMemory::active()) {
        out.value.string = StringTable::acquire(broker, text, length)->cmpi();
        out.state = CMPI_goodValue;
        return;
    }
    store(HostString::create(broker, text, length), where, out);
}

} // namespace

CMPIType DataCopy::storedType(CMPIType type) {
    if (type == CMPI_chars)
        return CMPI_string;
    if (type == CMPI_charsA)
        return CMPI_stringA;
    return type;
}

bool DataCopy::holdsObject(CMPIType type) {
    if (type & CMPI_ARRAY)
        return true;
    switch (type) {
    case CMPI_instance:
    case CMPI_ref:
    case CMPI_args:
    case CMPI_string:
    case CMPI_dateTime:
    case CMPI_enumeration:
        return true;
    default:
        return false;
    }
}

bool DataCopy::knownType(CMPIType type) {
    CMPIType base = type & ~CMPI_ARRAY;
    switch (base) {
    case CMPI_boolean:
    case CMPI_char16:
    case CMPI_real32:
    case CMPI_real64:
    case CMPI_uint8:
    case CMPI_uint16:
    case CMPI_uint32:
    case CMPI_uint64:
    case CMPI_sint8:
    case CMPI_sint16:
    case CMPI_sint32:
    case CMPI_sint64:
    case CMPI_instance:
    case CMPI_ref:
    case CMPI_string:
    case CMPI_chars:
    case CMPI_dateTime:
        return true;
    case CMPI_args:
    case CMPI_filter:
    case CMPI_enumeration:
    case CMPI_ptr:
    case CMPI_charsptr:
        return (type & CMPI_ARRAY) == 0;
    default:
        return false;
    }
}

CMPIrc DataCopy::copy(Broker& broker, const CMPIValue* value, CMPIType type, Placement where,
                      CMPIData& out) {
    out = null(storedType(type));
    if (type == CMPI_null)
        return CMPI_RC_OK;
    if (!knownType(type))
        return CMPI_RC_ERR_INVALID_DATA_TYPE;
    if (!value)
        return CMPI_RC_OK;

    if (type & CMPI_ARRAY) {
        if (!member<decltype(CMPIValue::array)>(value))
            return CMPI_RC_OK;
        HostArray* a = HostArray::from(member<decltype(CMPIValue::array)>(value));
        if (!a)
            return CMPI_RC_ERR_INVALID_HANDLE;
        store(a->copy(), where, out);
        return CMPI_RC_OK;
    }

    switch (type) {
    case CMPI_boolean:
        out.value.boolean = member<decltype(CMPIValue::boolean)>(value);
        break;
    case CMPI_char16:
        out.value.char16 = member<decltype(CMPIValue::char16)>(value);
        break;
    case CMPI_real32:
        out.value.real32 = member<decltype(CMPIValue::real32)>(value);
        break;
    case CMPI_real64:
        out.value.real64 = member<decltype(CMPIValue::real64)>(value);
        break;
    case CMPI_uint8:
        out.value.uint8 = member<decltype(CMPIValue::uint8)>(value);
        break;
    case CMPI_uint16:
        out.value.uint16 = member<decltype(CMPIValue::uint16)>(value);
        break;
    case CMPI_uint32:
        out.value.uint32 = member<decltype(CMPIValue::uint32)>(value);
        break;
    case CMPI_uint64:
        out.value.uint64 = member<decltype(CMPIValue::uint64)>(value);
        break;
    case CMPI_sint8:
        out.value.sint8 = member<decltype(CMPIValue::sint8)>(value);
        break;
    case CMPI_sint16:
        out.value.sint16 = member<decltype(CMPIValue::sint16)>(value);
        break;
    case CMPI_sint32:
        out.value.sint32 = member<decltype(CMPIValue::sint32)>(value);
        break;
    case CMPI_sint64:
        out.value.sint64 = member<decltype(CMPIValue::sint64)>(value);
        break;
    case CMPI_ptr:
    case CMPI_charsptr:
        out.value.dataPtr = member<decltype(CMPIValue::dataPtr)>(value);
        break;
    case CMPI_filter:
        out.value.filter = member<decltype(CMPIValue::filter)>(value);
        break;
    case CMPI_chars: {
        // For chars the value pointer is the text itself, as providers write
        // CMSetProperty(inst, "Name", "text", CMPI_chars).
        const char* text = reinterpret_cast<const char*>(value);
        storeText(broker, text, std::strlen(text), where, out);
        return CMPI_RC_OK;
    }
    case CMPI_string: {
        const CMPIString* in = member<decltype(CMPIValue::string)>(value);
        if (!in)
            return CMPI_RC_OK;
        if (HostString* s = HostString::from(in)) {
            if (s->shared() && where == Placement::Parent) {
                out.value.string = StringTable::retain(s)->cmpi();
                out.state = CMPI_goodValue;
                return CMPI_RC_OK;
            }
            storeText(broker, s->text(), s->length(), where, out);
            return CMPI_RC_OK;
        }
        if (!in->ft)
            return CMPI_RC_ERR_INVALID_HANDLE;
        const char* text = HostString::textOf(in);
        storeText(broker, text, text ? std::strlen(text) : 0, where, out);
        return CMPI_RC_OK;
    }
    default: {
        // The remaining encapsulated types: instance, ref, args, dateTime, enumeration.
        // Only the pointer is read: callers pass the address of a plain pointer variable.
        void* object = nullptr;
        switch (type) {
        case CMPI_instance:
            object = member<decltype(CMPIValue::inst)>(value);
            break;
        case CMPI_ref:
            object = member<decltype(CMPIValue::ref)>(value);
            break;
        case CMPI_args:
            object = member<decltype(CMPIValue::args)>(value);
            break;
        case CMPI_dateTime:
            object = member<decltype(CMPIValue::dateTime)>(value);
            break;
        case CMPI_enumeration:
            object = member<decltype(CMPIValue::Enum)>(value);
            break;
        default:
            break;
        }
        if (!object)
            return CMPI_RC_OK;
        HostObject* o = HostObject::fromCmpi(object);
        if (!o || o->kind() != kindOf(type))
            return CMPI_RC_ERR_INVALID_HANDLE;
        store(o->copy(), where, out);
        return CMPI_RC_OK;
    }
    }
    out.state = CMPI_goodValue;
    return CMPI_RC_OK;
}

CMPIrc DataCopy::copy(Broker& broker, const CMPIData& in, Placement where, CMPIData& out) {
    if (in.state & CMPI_nullValue) {
        out = null(storedType(in.type));
        return CMPI_RC_OK;
    }
    if (in.type == CMPI_chars)
        return copy(broker, reinterpret_cast<const CMPIValue*>(in.value.chars), in.type, where,
                    out);
    return copy(broker, &in.value, in.type, where, out);
}

bool DataCopy::inScopeMemory(const CMPIData& data) noexcept {
    return !(data.state & CMPI_nullValue) && holdsObject(data.type) &&
           ScopeMemory::owns(HostObject::fromCmpi(objectOf(data)));
}

void DataCopy::destroy(CMPIData& data) noexcept {
    if (!(data.state & CMPI_nullValue) && holdsObject(data.type)) {
        HostObject* o = HostObject::fromCmpi(objectOf(data));
        if (o && o->owner() == HostObject::Owner::Parent) {
            // A shared string is a part of every object holding it.
            if (o->kind() == HostObject::Kind::String && static_cast<HostString*>(o)->shared())
                StringTable::release(static_cast<HostString*>(o));
            else
                delete o;
        }
    }
    data = null(data.type);
}

} // namespace diaghost
