#include "host/HostContext.h"

#include "host/CmpiCall.h"
#include "host/HostString.h"

#include <memory>

namespace NQORVA20::host {

namespace {

HostContext* checked(const CMPIContext* ctx, CMPIStatus* rc) {
    HostContext* self = HostContext::from(ctx);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIStatus contextRelease(CMPIContext* ctx) {
    return CmpiCall::guardStatus([&] {
        HostContext* self = HostContext::from(ctx);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        self->release();
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIContext* contextClone(const CMPIContext* ctx, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIContext*>(nullptr), [&]() -> CMPIContext* {
        HostContext* self = checked(ctx, rc);
        return self ? static_cast<HostContext*>(self->copy())->cmpi() : nullptr;
    });
}

CMPIData contextGetEntry(const CMPIContext* ctx, const char* name, CMPIStatus* rc) {
    HostContext* self = checked(ctx, rc);
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

CMPIData contextGetEntryAt(const CMPIContext* ctx, CMPICount index, CMPIString** name,
                           CMPIStatus* rc) {
    return CmpiCall::guard(rc, CmpiCall::notFound(), [&]() -> CMPIData {
        if (name)
            *name = nullptr;
        HostContext* self = checked(ctx, rc);
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

CMPICount contextGetEntryCount(const CMPIContext* ctx, CMPIStatus* rc) {
    HostContext* self = checked(ctx, rc);
    return self ? static_cast<CMPICount>(self->values().size()) : 0;
}

CMPIStatus contextAddEntry(const CMPIContext* ctx, const char* name, const CMPIValue* value,
                           CMPIType type) {
    return CmpiCall::guardStatus([&] {
        HostContext* self = HostContext::from(ctx);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!name)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        return CmpiCall::status(self->values().add(self->broker(), name, value, type));
    });
}

CMPIContextFT contextTable = {CMPIVersion200,  contextRelease,    contextClone,
                              contextGetEntry, contextGetEntryAt, contextGetEntryCount,
                              contextAddEntry};

} // namespace

HostContext::HostContext(Broker& broker)
    : HostObject(Kind::Context, broker), cmpi_{this, &contextTable} {}

HostContext* HostContext::create(Broker& broker) {
    return new HostContext(broker);
}

HostContext* HostContext::from(const CMPIContext* ctx) {
    if (!ctx || ctx->ft != &contextTable)
        return nullptr;
    return static_cast<HostContext*>(ctx->hdl);
}

CMPIContextFT* HostContext::table() {
    return &contextTable;
}

HostObject* HostContext::copy() const {
    std::unique_ptr<HostContext> out(new HostContext(broker()));
    out->values_.copyFrom(broker(), values_);
    return out.release();
}

} // namespace NQORVA20::host
