#include "host/broker/HostArray.h"

#include "host/broker/CmpiCall.h"
#include "host/broker/DataCopy.h"

#include <memory>

namespace diaghost {

namespace {

HostArray* checked(const CMPIArray* a, CMPIStatus* rc) {
    HostArray* self = HostArray::from(a);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIArray* arrayClone(const CMPIArray* a, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIArray*>(nullptr), [&]() -> CMPIArray* {
        HostArray* self = checked(a, rc);
        return self ? CmpiCall::durableCopy(*self)->cmpi() : nullptr;
    });
}

CMPICount arrayGetSize(const CMPIArray* a, CMPIStatus* rc) {
    HostArray* self = checked(a, rc);
    return self ? self->size() : 0;
}

CMPIType arrayGetSimpleType(const CMPIArray* a, CMPIStatus* rc) {
    HostArray* self = checked(a, rc);
    return self ? self->elementType() : CMPI_null;
}

CMPIData arrayGetElementAt(const CMPIArray* a, CMPICount index, CMPIStatus* rc) {
    HostArray* self = checked(a, rc);
    if (!self)
        return CmpiCall::notFound();
    if (index >= self->size()) {
        CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        return CmpiCall::notFound();
    }
    return self->at(index);
}

CMPIStatus arraySetElementAt(CMPIArray* a, CMPICount index, const CMPIValue* value, CMPIType type) {
    return CmpiCall::guardStatus([&] {
        HostArray* self = HostArray::from(a);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        return CmpiCall::status(self->set(index, value, type));
    });
}

CMPIArrayFT arrayTable = {CMPIVersion200,     CmpiCall::release<HostArray, CMPIArray>,
                          arrayClone,         arrayGetSize,
                          arrayGetSimpleType, arrayGetElementAt,
                          arraySetElementAt};

} // namespace

HostArray::HostArray(Broker& broker, CMPIType elementType, CMPICount size)
    : HostObject(Kind::Array, broker), cmpi_{this, &arrayTable}, elementType_(elementType),
      elements_(size, DataCopy::null(elementType)) {}

HostArray::~HostArray() {
    for (CMPIData& d : elements_)
        DataCopy::destroy(d);
}

bool HostArray::validElementType(CMPIType type) {
    return DataCopy::knownType(static_cast<CMPIType>(type | CMPI_ARRAY));
}

HostArray* HostArray::create(Broker& broker, CMPICount size, CMPIType elementType) {
    CMPIType element = DataCopy::storedType(static_cast<CMPIType>(elementType & ~CMPI_ARRAY));
    return new HostArray(broker, element, size);
}

HostArray* HostArray::from(const CMPIArray* a) {
    if (!a || a->ft != &arrayTable)
        return nullptr;
    return static_cast<HostArray*>(a->hdl);
}

CMPIArrayFT* HostArray::table() {
    return &arrayTable;
}

CMPIrc HostArray::set(CMPICount index, const CMPIValue* value, CMPIType type) {
    if (index >= size())
        return CMPI_RC_ERR_NO_SUCH_PROPERTY;
    if (type == CMPI_null || !value) {
        DataCopy::destroy(elements_[index]);
        elements_[index] = DataCopy::null(elementType_);
        return CMPI_RC_OK;
    }
    if (DataCopy::storedType(type) != elementType_)
        return CMPI_RC_ERR_TYPE_MISMATCH;
    CMPIData copy{};
    ScopeMemory::PartsOf parts(this);
    CMPIrc rc = DataCopy::copy(broker(), value, type, Placement::Parent, copy);
    if (rc != CMPI_RC_OK)
        return rc;
    DataCopy::destroy(elements_[index]);
    elements_[index] = copy;
    return CMPI_RC_OK;
}

HostObject* HostArray::copy() const {
    std::unique_ptr<HostArray> out(new HostArray(broker(), elementType_, size()));
    for (std::size_t i = 0; i < elements_.size(); ++i) {
        CMPIrc rc = DataCopy::copy(broker(), elements_[i], Placement::Parent, out->elements_[i]);
        (void)rc; // elements are always the host's own objects
    }
    return out.release();
}

} // namespace diaghost
