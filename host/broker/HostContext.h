// The host's CMPIContext: the named entries of one provider call (namespace, invocation flags,
// principal, ...). A context made for a thread to attach to remembers that, so that detaching
// frees it.
#ifndef DIAGHOST_BROKER_HOSTCONTEXT_H
#define DIAGHOST_BROKER_HOSTCONTEXT_H

#include "host/broker/HostObject.h"
#include "host/broker/NamedValues.h"

#include <cmpift.h>

namespace diaghost {

class HostContext final : public HostObject {
public:
    // Empty, owned by nobody.
    static HostContext* create(Broker& broker);
    static HostContext* from(const CMPIContext* ctx);
    static CMPIContextFT* table();

    CMPIContext* cmpi() { return &cmpi_; }
    NamedValues& values() { return values_; }
    const NamedValues& values() const { return values_; }

    bool forAttachedThread() const { return forAttachedThread_; }
    void setForAttachedThread() { forAttachedThread_ = true; }

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }

private:
    explicit HostContext(Broker& broker);

    CMPIContext cmpi_;
    NamedValues values_;
    bool forAttachedThread_ = false;
};

} // namespace diaghost

#endif
