#include "host/HostArgs.h"

#include "host/CmpiCall.h"
#include "host/HostString.h"

#include <memory>

namespace NQORVA20::host {

namespace {

HostArgs* checked(const CMPIArgs* as, CMPIStatus* rc) {
    HostArgs* self = HostArgs::from(as);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIStatus argsRelease(CMPIArgs* as) {
    return CmpiCall::guardStatus([&] {
        HostArgs* self = HostArgs::from(as);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        self->release();
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIArgs* argsClone(const CMPIArgs* as, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIArgs*>(nullptr), [&]() -> CMPIArgs* {
        HostArgs* self = checked(as, rc);
        return self ? static_cast<HostArgs*>(self->copy())->cmpi() : nullptr;
    });
}

CMPIStatus argsAddArg(const CMPIArgs* as, const char* name, const CMPIValue* value, CMPIType type) {
    return CmpiCall::guardStatus([&] {
        HostArgs* self = HostArgs::from(as);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!name)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        return CmpiCall::status(self->values().add(self->broker(), name, value, type));
    });
}

CMPIData argsGetArg(const CMPIArgs* as, const char* name, CMPIStatus* rc) {
    HostArgs* self = checked(as, rc);
    if (!self)
        return CmpiCall::notFound();
    if (!name) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
        return CmpiCall::notFound();
    }
    const CMPIData* d = self->values().find(name);
    if (!d) {
        CmpiCall::set(rc, CMPI_RC_ERR_NOT_FOUND);
        return CmpiCall::notFound();
    }
    return *d;
}

CMPIData argsGetArgAt(const CMPIArgs* as, CMPICount index, CMPIString** name, CMPIStatus* rc) {
    return CmpiCall::guard(rc, CmpiCall::notFound(), [&]() -> CMPIData {
        if (name)
            *name = nullptr;
        HostArgs* self = checked(as, rc);
        if (!self)
            return CmpiCall::notFound();
        if (index >= self->values().size()) {
            CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return CmpiCall::notFound();
        }
        if (name)
            *name = HostString::make(self->broker(), self->values().nameAt(index).c_str(),
                                     HostObject::Placement::Scope);
        return self->values().at(index);
    });
}

CMPICount argsGetArgCount(const CMPIArgs* as, CMPIStatus* rc) {
    HostArgs* self = checked(as, rc);
    return self ? static_cast<CMPICount>(self->values().size()) : 0;
}

CMPIArgsFT argsTable = {CMPIVersion200, argsRelease,  argsClone,      argsAddArg,
                        argsGetArg,     argsGetArgAt, argsGetArgCount};

} // namespace

HostArgs::HostArgs(Broker& broker) : HostObject(Kind::Args, broker), cmpi_{this, &argsTable} {}

HostArgs* HostArgs::create(Broker& broker) {
    return new HostArgs(broker);
}

HostArgs* HostArgs::from(const CMPIArgs* as) {
    if (!as || as->ft != &argsTable)
        return nullptr;
    return static_cast<HostArgs*>(as->hdl);
}

CMPIArgsFT* HostArgs::table() {
    return &argsTable;
}

HostObject* HostArgs::copy() const {
    std::unique_ptr<HostArgs> out(new HostArgs(broker()));
    out->values_.copyFrom(broker(), values_);
    return out.release();
}

} // namespace NQORVA20::host
