#include "host/broker/HostContext.h"

#include "host/broker/NamedValueCalls.h"

#include <memory>

namespace diaghost {

namespace {

using Calls = NamedValueCalls<HostContext, CMPIContext>;

CMPIContextFT contextTable = {CMPIVersion200, CmpiCall::release<HostContext, CMPIContext>,
                              Calls::clone,   Calls::get,
                              Calls::getAt,   Calls::count,
                              Calls::add};

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

} // namespace diaghost
