#include "host/broker/HostInstance.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueCodec.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/DataCopy.h"
#include "host/broker/HostArray.h"
#include "host/broker/HostDateTime.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"
#include "host/mof/CimClass.h"
#include "host/text/CimNames.h"
#include "host/text/PathDialect.h"

#include <atomic>
#include <limits>
#include <memory>
#include <new>

namespace diaghost {

namespace {

using Placement = HostObject::Placement;

bool isUnsignedType(CMPIType t) {
    return t >= CMPI_uint8 && t <= CMPI_uint64;
}
bool isSignedType(CMPIType t) {
    return t >= CMPI_sint8 && t <= CMPI_sint64;
}

// A string property that carries an embedded object or instance; it takes CMPI_instance too.
bool embedsObjects(const CimProperty& p) {
    CMPIType base = p.type & ~CMPI_ARRAY;
    if (base == CMPI_instance)
        return true;
    return base == CMPI_string && (p.qualifiers.count("embeddedinstance") != 0 ||
                                   p.qualifiers.count("embeddedobject") != 0);
}

bool accepts(const CimProperty& p, CMPIType stored) {
    if (stored == p.type)
        return true;
    if (!embedsObjects(p) || (stored & CMPI_ARRAY) != (p.type & CMPI_ARRAY))
        return false;
    CMPIType base = stored & ~CMPI_ARRAY;
    return base == CMPI_string || base == CMPI_instance;
}

// An integer key of one width as a value of another; false when it does not fit.
bool convertInteger(const CMPIData& in, CMPIType to, CMPIValue& out) {
    bool negative = false;
    unsigned long long magnitude = 0;
    switch (in.type) {
    case CMPI_uint8:
        magnitude = in.value.uint8;
        break;
    case CMPI_uint16:
        magnitude = in.value.uint16;
        break;
    case CMPI_uint32:
        magnitude = in.value.uint32;
        break;
    case CMPI_uint64:
        magnitude = in.value.uint64;
        break;
    default: {
        long long v = in.type == CMPI_sint8    ? in.value.sint8
                      : in.type == CMPI_sint16 ? in.value.sint16
                      : in.type == CMPI_sint32 ? in.value.sint32
                                               : in.value.sint64;
        negative = v < 0;
        magnitude = negative ? 0ULL - static_cast<unsigned long long>(v)
                             : static_cast<unsigned long long>(v);
        break;
    }
    }
    const int bits = 8 << ((to >> 4) & 3);
    if (isUnsignedType(to)) {
        if (negative || (bits < 64 && magnitude >> bits))
            return false;
        switch (to) {
        case CMPI_uint8:
            out.uint8 = static_cast<CMPIUint8>(magnitude);
            break;
        case CMPI_uint16:
            out.uint16 = static_cast<CMPIUint16>(magnitude);
            break;
        case CMPI_uint32:
            out.uint32 = static_cast<CMPIUint32>(magnitude);
            break;
        default:
            out.uint64 = magnitude;
            break;
        }
        return true;
    }
    const unsigned long long limit = 1ULL << (bits - 1); // |min|; max is limit - 1
    if (negative ? magnitude > limit : magnitude >= limit)
        return false;
    const long long v =
        negative ? static_cast<long long>(0ULL - magnitude) : static_cast<long long>(magnitude);
    switch (to) {
    case CMPI_sint8:
        out.sint8 = static_cast<CMPISint8>(v);
        break;
    case CMPI_sint16:
        out.sint16 = static_cast<CMPISint16>(v);
        break;
    case CMPI_sint32:
        out.sint32 = static_cast<CMPISint32>(v);
        break;
    default:
        out.sint64 = v;
        break;
    }
    return true;
}

// One element of a MOF initializer as a value set() takes: strings as the text itself
// (CMPI_chars), datetimes and references as objects `made` keeps until the value is copied.
// Made without the broker's function table, so a default counts as no provider call (and no
// injected fault hits it); a reference, made through the path parser, is the exception.
struct DefaultElement {
    CMPIValue value{};
    const CMPIValue* at = &value;
    CMPIType type = CMPI_null;
    std::unique_ptr<HostObject> made;
};

// False when the text is no value of the type (a class added by hand may carry such a default).
bool defaultElement(Broker& broker, MofValue::Kind kind, const std::string& text, CMPIType type,
                    const std::string& ns, DefaultElement& out) {
    out.type = type;
    try {
        switch (type) {
        case CMPI_string:
            out.at = reinterpret_cast<const CMPIValue*>(text.c_str());
            out.type = CMPI_chars;
            return true;
        case CMPI_dateTime: {
            CMPIUint64 binary = 0;
            bool interval = false;
            int offset = 0;
            if (!HostDateTime::parse(text.c_str(), binary, interval, offset))
                return false;
            HostDateTime* dt = HostDateTime::create(broker, binary, interval, offset);
            out.made.reset(dt);
            out.value.dateTime = dt->cmpi();
            return true;
        }
        case CMPI_ref: {
            CallScope scope(broker);
            CMPIData d = CimValueCodec::fromLiteral(broker, kind, text, type, ns);
            HostObject* path = HostObject::fromCmpi(d.value.ref);
            if (!path)
                return false;
            out.made.reset(path->copy());
            out.value.ref = static_cast<CMPIObjectPath*>(out.made->cmpiObject());
            return true;
        }
        default:
            // Numbers, booleans and chars: plain values, no objects.
            out.value = CimValueCodec::fromLiteral(broker, kind, text, type, ns).value;
            return true;
        }
    } catch (const CimValueCodec::Error&) {
        return false;
    }
}

HostInstance* checked(const CMPIInstance* inst, CMPIStatus* rc) {
    HostInstance* self = HostInstance::from(inst);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIInstance* instanceClone(const CMPIInstance* inst, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIInstance*>(nullptr), [&]() -> CMPIInstance* {
        HostInstance* self = checked(inst, rc);
        if (!self || self->broker().injectFault(FaultHook::Function::Clone, rc))
            return nullptr;
        return CmpiCall::durableCopy(*self)->cmpi();
    });
}

CMPIData instanceGetProperty(const CMPIInstance* inst, const char* name, CMPIStatus* rc) {
    HostInstance* self = checked(inst, rc);
    if (!self || self->broker().injectFault(FaultHook::Function::GetProperty, rc))
        return CmpiCall::notFound();
    if (!name) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
        return CmpiCall::notFound();
    }
    long index = self->find(name);
    if (index < 0) {
        CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        return CmpiCall::notFound();
    }
    return self->at(static_cast<std::size_t>(index));
}

CMPIData instanceGetPropertyAt(const CMPIInstance* inst, CMPICount index, CMPIString** name,
                               CMPIStatus* rc) {
    return CmpiCall::guard(rc, CmpiCall::notFound(), [&]() -> CMPIData {
        if (name)
            *name = nullptr;
        HostInstance* self = checked(inst, rc);
        if (!self)
            return CmpiCall::notFound();
        if (index >= self->propertyCount()) {
            CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return CmpiCall::notFound();
        }
        if (name)
            *name = HostString::make(self->broker(), self->propertyName(index), Placement::Scope);
        return self->at(index);
    });
}

CMPICount instanceGetPropertyCount(const CMPIInstance* inst, CMPIStatus* rc) {
    HostInstance* self = checked(inst, rc);
    return self ? static_cast<CMPICount>(self->propertyCount()) : 0;
}

CMPIStatus setNamedProperty(const CMPIInstance* inst, const char* name, const CMPIValue* value,
                            CMPIType type) {
    return CmpiCall::guardStatus([&] {
        HostInstance* self = HostInstance::from(inst);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!name)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        long index = self->find(name);
        if (index < 0)
            return CmpiCall::status(self->broker(), CMPI_RC_ERR_NO_SUCH_PROPERTY,
                                    std::string("class ") + self->cimClass().name +
                                        " has no property " + name);
        CMPIrc rc = self->set(static_cast<std::size_t>(index), value, type);
        if (rc == CMPI_RC_ERR_TYPE_MISMATCH)
            return CmpiCall::status(self->broker(), rc,
                                    std::string("wrong type for property ") + name);
        return CmpiCall::status(rc);
    });
}

CMPIStatus instanceSetProperty(const CMPIInstance* inst, const char* name, const CMPIValue* value,
                               CMPIType type) {
    return setNamedProperty(inst, name, value, type);
}

CMPIObjectPath* instanceGetObjectPath(const CMPIInstance* inst, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIObjectPath*>(nullptr), [&]() -> CMPIObjectPath* {
        HostInstance* self = checked(inst, rc);
        if (!self)
            return nullptr;
        std::unique_ptr<HostObjectPath> path(self->makePath());
        path->place(Placement::Scope);
        return path.release()->cmpi();
    });
}

CMPIStatus instanceSetPropertyFilter(CMPIInstance* inst, const char** properties,
                                     const char** keys) {
    return CmpiCall::guardStatus([&] {
        HostInstance* self = HostInstance::from(inst);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        self->setFilter(properties, keys);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIStatus instanceSetObjectPath(CMPIInstance* inst, const CMPIObjectPath* op) {
    return CmpiCall::guardStatus([&] {
        HostInstance* self = HostInstance::from(inst);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!op)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        HostObjectPath* path = HostObjectPath::from(op);
        if (!path)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (*path->className() && !sameName(path->className(), self->cimClass().name))
            return CmpiCall::status(self->broker(), CMPI_RC_ERR_INVALID_PARAMETER,
                                    std::string("path of class ") + path->className() +
                                        " given to an instance of " + self->cimClass().name);
        self->setLocation(path->nameSpace(), path->host());
        self->takeKeys(*path);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIStatus instanceSetPropertyWithOrigin(const CMPIInstance* inst, const char* name,
                                         const CMPIValue* value, CMPIType type, const char*) {
    return setNamedProperty(inst, name, value, type);
}

CMPIInstanceFT instanceTable = {CMPIVersion200,
                                CmpiCall::release<HostInstance, CMPIInstance>,
                                instanceClone,
                                instanceGetProperty,
                                instanceGetPropertyAt,
                                instanceGetPropertyCount,
                                instanceSetProperty,
                                instanceGetObjectPath,
                                instanceSetPropertyFilter,
                                instanceSetObjectPath,
                                instanceSetPropertyWithOrigin};

} // namespace

HostInstance::HostInstance(Broker& broker, const CimClass& cls, std::string ns, std::string host)
    : HostObject(Kind::Instance, broker), cmpi_{this, &instanceTable}, class_(&cls),
      count_(cls.properties.size()), ns_(std::move(ns)), host_(std::move(host)) {
    CMPIData* slots = values();
    for (std::size_t i = 0; i < count_; ++i)
        new (&slots[i]) CMPIData(DataCopy::null(cls.properties[i].type));
}

HostInstance::~HostInstance() {
    CMPIData* slots = values();
    for (std::size_t i = 0; i < propertyCount(); ++i) {
        if (!(slots[i].state & CMPI_nullValue))
            DataCopy::destroy(slots[i]);
    }
}

HostInstance* HostInstance::allocate(Broker& broker, const CimClass& cls, std::string ns,
                                     std::string host) {
    void* block =
        ObjectPool::allocateBlock(valuesOffset() + cls.properties.size() * sizeof(CMPIData));
    try {
        return new (block) HostInstance(broker, cls, std::move(ns), std::move(host));
    } catch (...) {
        ObjectPool::deallocateBlock(block);
        throw;
    }
}

HostInstance* HostInstance::create(Broker& broker, const CimClass& cls, std::string ns,
                                   std::string host) {
    std::unique_ptr<HostInstance> inst(allocate(broker, cls, std::move(ns), std::move(host)));
    for (std::size_t i = 0; i < inst->count_; ++i) {
        if (cls.properties[i].hasDefault)
            inst->setDefault(i);
    }
    return inst.release();
}

void HostInstance::setDefault(std::size_t index) {
    const CimProperty& p = class_->properties[index];
    const MofValue& initial = p.defaultValue;
    const CMPIType type = p.type;
    if (!(type & CMPI_ARRAY)) {
        DefaultElement e;
        if (!initial.array && initial.elements.size() == 1 &&
            defaultElement(broker(), initial.kind, initial.elements[0], type, ns_, e))
            set(index, e.at, e.type);
        return;
    }
    if (!initial.array)
        return;
    const CMPIType elementType = type & ~CMPI_ARRAY;
    std::unique_ptr<HostArray> array(
        HostArray::create(broker(), static_cast<CMPICount>(initial.elements.size()), elementType));
    for (std::size_t i = 0; i < initial.elements.size(); ++i) {
        DefaultElement e;
        if (!defaultElement(broker(), initial.kind, initial.elements[i], elementType, ns_, e) ||
            array->set(static_cast<CMPICount>(i), e.at, e.type) != CMPI_RC_OK)
            return;
    }
    CMPIValue value{};
    value.array = array->cmpi();
    set(index, &value, type);
}

HostInstance* HostInstance::from(const CMPIInstance* inst) {
    if (!inst || inst->ft != &instanceTable)
        return nullptr;
    return static_cast<HostInstance*>(inst->hdl);
}

CMPIInstanceFT* HostInstance::table() {
    return &instanceTable;
}

const char* HostInstance::propertyName(std::size_t index) const {
    return class_->properties[index].name.c_str();
}

long HostInstance::find(std::string_view name) const {
    const long index = class_->propertyIndex(name);
    return index < static_cast<long>(count_) ? index : -1;
}

CMPIrc HostInstance::set(std::size_t index, const CMPIValue* value, CMPIType type) {
    const CimProperty& p = class_->properties[index];
    if (filter_ && !(*filter_)[index])
        return CMPI_RC_OK;
    if (p.key)
        std::atomic_store(&pathKeys_, std::shared_ptr<HostObjectPath::KeySet>());
    CMPIData& slot = values()[index];
    if (type == CMPI_null || !value) {
        DataCopy::destroy(slot);
        slot = DataCopy::null(p.type);
        return CMPI_RC_OK;
    }
    const CMPIType stored = DataCopy::storedType(type);
    if (!accepts(p, stored))
        return CMPI_RC_ERR_TYPE_MISMATCH;
    if ((stored & CMPI_ARRAY) && DataCopy::member<CMPIArray*>(value)) {
        HostArray* a = HostArray::from(DataCopy::member<CMPIArray*>(value));
        if (!a)
            return CMPI_RC_ERR_INVALID_HANDLE;
        if (a->elementType() != (stored & ~CMPI_ARRAY))
            return CMPI_RC_ERR_TYPE_MISMATCH;
    }
    CMPIData copy{};
    ScopeMemory::PartsOf parts(this);
    CMPIrc rc = DataCopy::copy(broker(), value, type, Placement::Parent, copy);
    if (rc != CMPI_RC_OK)
        return rc;
    DataCopy::destroy(slot);
    slot = copy;
    return CMPI_RC_OK;
}

void HostInstance::takeKeys(const HostObjectPath& path) {
    for (const HostObjectPath::Key& key : path.keys()) {
        long index = find(key.name);
        if (index < 0 || (key.value.state & CMPI_nullValue))
            continue;
        const CimProperty& p = class_->properties[static_cast<std::size_t>(index)];
        const CMPIType from = key.value.type;
        if (accepts(p, DataCopy::storedType(from))) {
            set(static_cast<std::size_t>(index), &key.value.value, from);
            continue;
        }
        const bool fromInteger = isUnsignedType(from) || isSignedType(from);
        const bool toInteger = isUnsignedType(p.type) || isSignedType(p.type);
        CMPIValue converted{};
        if (fromInteger && toInteger && convertInteger(key.value, p.type, converted))
            set(static_cast<std::size_t>(index), &converted, p.type);
    }
}

void HostInstance::setLocation(const std::string& ns, const std::string& host) {
    ns_ = ns;
    host_ = host;
}

void HostInstance::setFilter(const char** properties, const char** keyList) {
    if (!properties) {
        filter_.reset();
        return;
    }
    auto filter = std::make_unique<std::vector<bool>>(propertyCount(), false);
    for (std::size_t i = 0; i < propertyCount(); ++i) {
        if (class_->properties[i].key)
            (*filter)[i] = true;
    }
    const char** const lists[] = {properties, keyList};
    for (const char** list : lists) {
        for (; list && *list; ++list) {
            long index = find(*list);
            if (index >= 0)
                (*filter)[static_cast<std::size_t>(index)] = true;
        }
    }
    filter_ = std::move(filter);
}

namespace {

// Marks an instance that made one path since its keys last changed: the copies are kept for
// the second path on, so that an instance asked for its path only once (as registration does)
// keeps no second copy of its keys.
const std::shared_ptr<HostObjectPath::KeySet>& onePathMade() {
    static const auto* marker =
        new std::shared_ptr<HostObjectPath::KeySet>(std::make_shared<HostObjectPath::KeySet>());
    return *marker;
}

} // namespace

HostObjectPath* HostInstance::makePath() const {
    std::shared_ptr<HostObjectPath::KeySet> keys = std::atomic_load(&pathKeys_);
    const bool made = keys != nullptr;
    if (!keys || keys == onePathMade()) {
        ScopeMemory::PartsOf parts(this);
        keys = std::make_shared<HostObjectPath::KeySet>();
        for (std::size_t i : keyOrder()) {
            if (at(i).state & CMPI_nullValue)
                continue;
            CMPIData copy{};
            CMPIrc rc = DataCopy::copy(broker(), at(i), Placement::Parent, copy);
            (void)rc; // the values are the host's own objects
            keys->appendBorrowed(class_->properties[i].name.c_str(), copy);
        }
        std::atomic_store(&pathKeys_, made ? keys : onePathMade());
    }
    std::unique_ptr<HostObjectPath> path(HostObjectPath::create(broker(), nullptr, nullptr));
    path->setNameSpace(ns_.c_str());
    path->setHost(host_.c_str());
    path->setClassNameBorrowed(class_->name.c_str());
    if (!keys->keys.empty())
        path->shareKeys(std::move(keys));
    return path.release();
}

const std::string& HostInstance::className() const {
    return class_->name;
}

std::vector<std::size_t> HostInstance::keyOrder() const {
    std::vector<std::size_t> order;
    const auto& props = class_->properties;
    if (broker().dialect() == PathDialect::Sfcb) {
        // sfcb lists an instance's keys as its repository lists the class's properties.
        for (std::uint32_t i : class_->sfcbKeyOrder)
            if (i < count_ && props[i].key)
                order.push_back(i);
    } else {
        for (std::size_t i = 0; i < count_; ++i)
            if (props[i].key)
                order.push_back(i);
    }
    return order;
}

HostObject* HostInstance::copy() const {
    std::unique_ptr<HostInstance> out(allocate(broker(), *class_, ns_, host_));
    for (std::size_t i = 0; i < propertyCount(); ++i) {
        CMPIrc rc = DataCopy::copy(broker(), at(i), Placement::Parent, out->values()[i]);
        (void)rc; // the values are the host's own objects
    }
    if (filter_)
        out->filter_ = std::make_unique<std::vector<bool>>(*filter_);
    // The shared key copies are a cache: a copy that cannot share them makes its own when asked.
    auto keys = std::atomic_load(&pathKeys_);
    if (keys && !keys->unfitForCopy())
        out->pathKeys_ = std::move(keys);
    return out.release();
}

} // namespace diaghost
