#include "host/broker/HostEnumeration.h"

#include "host/broker/Broker.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/DataCopy.h"
#include "host/broker/HostArray.h"

#include <memory>

namespace diaghost {

namespace {

HostEnumeration* checked(const CMPIEnumeration* en, CMPIStatus* rc) {
    HostEnumeration* self = HostEnumeration::from(en);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIEnumeration* enumerationClone(const CMPIEnumeration* en, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIEnumeration*>(nullptr), [&]() -> CMPIEnumeration* {
        HostEnumeration* self = checked(en, rc);
        return self ? CmpiCall::durableCopy(*self)->cmpi() : nullptr;
    });
}

CMPIData enumerationGetNext(const CMPIEnumeration* en, CMPIStatus* rc) {
    HostEnumeration* self = checked(en, rc);
    if (!self)
        return CmpiCall::notFound();
    const CMPIData* d = self->next();
    if (!d) {
        CmpiCall::set(rc, CMPI_RC_ERR_NOT_FOUND);
        return CmpiCall::notFound();
    }
    CMPIData out = *d;
    // A strict broker answers as an object manager whose enumerations mark a valid instance
    // null; the enumeration keeps owning it either way.
    if (out.type == CMPI_instance && self->broker().strict())
        out.state = CMPI_nullValue;
    return out;
}

CMPIBoolean enumerationHasNext(const CMPIEnumeration* en, CMPIStatus* rc) {
    HostEnumeration* self = checked(en, rc);
    return self && self->position() < self->items().size() ? 1 : 0;
}

CMPIArray* enumerationToArray(const CMPIEnumeration* en, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIArray*>(nullptr), [&]() -> CMPIArray* {
        HostEnumeration* self = checked(en, rc);
        if (!self)
            return nullptr;
        const auto& items = self->items();
        CMPIType type = items.empty() ? self->elementType() : items.front().type;
        if (!HostArray::validElementType(type)) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
            return nullptr;
        }
        std::unique_ptr<HostArray> array(
            HostArray::create(self->broker(), static_cast<CMPICount>(items.size()), type));
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (!(items[i].state & CMPI_nullValue))
                array->set(static_cast<CMPICount>(i), &items[i].value, items[i].type);
        }
        array->place(HostObject::Placement::Scope);
        return array.release()->cmpi();
    });
}

CMPIEnumerationFT enumerationTable = {
    CMPIVersion200,     CmpiCall::release<HostEnumeration, CMPIEnumeration>,
    enumerationClone,   enumerationGetNext,
    enumerationHasNext, enumerationToArray};

} // namespace

HostEnumeration::HostEnumeration(Broker& broker, std::vector<CMPIData> items, CMPIType elementType)
    : HostObject(Kind::Enumeration, broker), cmpi_{this, &enumerationTable},
      items_(std::move(items)), elementType_(elementType) {}

HostEnumeration::~HostEnumeration() {
    for (CMPIData& d : items_)
        DataCopy::destroy(d);
}

HostEnumeration* HostEnumeration::create(Broker& broker, std::vector<CMPIData> items,
                                         CMPIType elementType) {
    for (CMPIData& d : items) {
        if ((d.state & CMPI_nullValue) || !DataCopy::holdsObject(d.type))
            continue;
        HostObject* o = HostObject::fromCmpi(d.value.inst);
        if (o && o->owner() == HostObject::Owner::Nobody)
            o->place(HostObject::Placement::Parent);
    }
    return new HostEnumeration(broker, std::move(items), elementType);
}

HostEnumeration* HostEnumeration::from(const CMPIEnumeration* en) {
    if (!en || en->ft != &enumerationTable)
        return nullptr;
    return static_cast<HostEnumeration*>(en->hdl);
}

CMPIEnumerationFT* HostEnumeration::table() {
    return &enumerationTable;
}

const CMPIData* HostEnumeration::next() {
    if (next_ >= items_.size())
        return nullptr;
    return &items_[next_++];
}

HostObject* HostEnumeration::copy() const {
    std::unique_ptr<HostEnumeration> out(new HostEnumeration(broker(), {}, elementType_));
    out->items_.reserve(items_.size());
    for (const CMPIData& d : items_) {
        out->items_.push_back(DataCopy::null(d.type));
        CMPIrc rc = DataCopy::copy(broker(), d, Placement::Parent, out->items_.back());
        (void)rc; // the items are the host's own objects
    }
    out->next_ = next_;
    return out.release();
}

} // namespace diaghost
