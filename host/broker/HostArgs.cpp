#include "host/broker/HostArgs.h"

#include "host/broker/NamedValueCalls.h"

#include <memory>

namespace diaghost {

namespace {

using Calls = NamedValueCalls<HostArgs, CMPIArgs>;

CMPIArgsFT argsTable = {CMPIVersion200, CmpiCall::release<HostArgs, CMPIArgs>,
                        Calls::clone,   Calls::add,
                        Calls::get,     Calls::getAt,
                        Calls::count};

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

} // namespace diaghost
