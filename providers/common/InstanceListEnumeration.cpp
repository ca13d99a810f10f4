#include "providers/common/InstanceListEnumeration.h"

namespace NQORVA20::providers {

namespace {

void setStatus(CMPIStatus* rc, CMPIrc code) {
    if (rc != nullptr) {
        rc->rc = code;
        rc->msg = nullptr;
    }
}

} // namespace

InstanceListEnumeration::InstanceListEnumeration(std::vector<CMPIInstance*> instances)
    : cmpi_{this, table()}, instances_(std::move(instances)) {}

CMPIEnumerationFT* InstanceListEnumeration::table() {
    static CMPIEnumerationFT functions = {
        CMPICurrentVersion, release, clone, getNext, hasNext, toArray};
    return &functions;
}

InstanceListEnumeration* InstanceListEnumeration::from(const CMPIEnumeration* e) {
    if (e == nullptr || e->ft != table())
        return nullptr;
    return static_cast<InstanceListEnumeration*>(e->hdl);
}

CMPIStatus InstanceListEnumeration::release(CMPIEnumeration* e) {
    CMPIStatus s = {from(e) ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE, nullptr};
    return s;
}

CMPIEnumeration* InstanceListEnumeration::clone(const CMPIEnumeration* e, CMPIStatus* rc) {
    setStatus(rc, from(e) ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_ERR_INVALID_HANDLE);
    return nullptr;
}

CMPIData InstanceListEnumeration::getNext(const CMPIEnumeration* e, CMPIStatus* rc) {
    CMPIData data{};
    InstanceListEnumeration* self = from(e);
    if (self == nullptr) {
        setStatus(rc, CMPI_RC_ERR_INVALID_HANDLE);
        return data;
    }
    if (self->next_ >= self->instances_.size()) {
        data.state = CMPI_nullValue;
        setStatus(rc, CMPI_RC_ERR_NOT_FOUND);
        return data;
    }
    data.type = CMPI_instance;
    data.state = CMPI_goodValue;
    data.value.inst = self->instances_[self->next_++];
    setStatus(rc, CMPI_RC_OK);
    return data;
}

CMPIBoolean InstanceListEnumeration::hasNext(const CMPIEnumeration* e, CMPIStatus* rc) {
    InstanceListEnumeration* self = from(e);
    setStatus(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self != nullptr && self->next_ < self->instances_.size();
}

CMPIArray* InstanceListEnumeration::toArray(const CMPIEnumeration* e, CMPIStatus* rc) {
    setStatus(rc, from(e) ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_ERR_INVALID_HANDLE);
    return nullptr;
}

} // namespace NQORVA20::providers
