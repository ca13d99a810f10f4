// The host's CMPIArgs: method arguments by name, in the order added; a missing argument reads
// as CMPI_null in the null and not-found state with CMPI_RC_ERR_NOT_FOUND.
#ifndef DIAGHOST_BROKER_HOSTARGS_H
#define DIAGHOST_BROKER_HOSTARGS_H

#include "host/broker/HostObject.h"
#include "host/broker/NamedValues.h"

#include <cmpift.h>

namespace diaghost {

class HostArgs final : public HostObject {
public:
    // Empty, owned by nobody.
    static HostArgs* create(Broker& broker);
    static HostArgs* from(const CMPIArgs* args);
    static CMPIArgsFT* table();

    CMPIArgs* cmpi() { return &cmpi_; }
    NamedValues& values() { return values_; }
    const NamedValues& values() const { return values_; }

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }

private:
    explicit HostArgs(Broker& broker);

    CMPIArgs cmpi_;
    NamedValues values_;
};

} // namespace diaghost

#endif
