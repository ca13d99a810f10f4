// The CMPI functions of an object that is a list of named values (method arguments, an
// invocation context), written once for both function tables. Owner provides from(const Cmpi*),
// values(), broker(), release() and copy() (an Owner* with cmpi()). No exception leaves them.
#ifndef DIAGHOST_BROKER_NAMEDVALUECALLS_H
#define DIAGHOST_BROKER_NAMEDVALUECALLS_H

#include "host/broker/CmpiCall.h"
#include "host/broker/HostString.h"
#include "host/broker/NamedValues.h"

#include <cmpift.h>

namespace diaghost {

template <class Owner, class Cmpi>
struct NamedValueCalls {
    static Owner* checked(const Cmpi* object, CMPIStatus* rc) {
        Owner* self = Owner::from(object);
        CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
        return self;
    }

    static Cmpi* clone(const Cmpi* object, CMPIStatus* rc) {
        return CmpiCall::guard(rc, static_cast<Cmpi*>(nullptr), [&]() -> Cmpi* {
            Owner* self = checked(object, rc);
            return self ? CmpiCall::durableCopy(*self)->cmpi() : nullptr;
        });
    }

    static CMPIStatus add(const Cmpi* object, const char* name, const CMPIValue* value,
                          CMPIType type) {
        return CmpiCall::guardStatus([&] {
            Owner* self = Owner::from(object);
            if (!self)
                return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
            if (!name)
                return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
            return CmpiCall::status(self->values().add(self->broker(), name, value, type));
        });
    }

    static CMPIData get(const Cmpi* object, const char* name, CMPIStatus* rc) {
        Owner* self = checked(object, rc);
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

    static CMPIData getAt(const Cmpi* object, CMPICount index, CMPIString** name, CMPIStatus* rc) {
        return CmpiCall::guard(rc, CmpiCall::notFound(), [&]() -> CMPIData {
            if (name)
                *name = nullptr;
            Owner* self = checked(object, rc);
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

    static CMPICount count(const Cmpi* object, CMPIStatus* rc) {
        Owner* self = checked(object, rc);
        return self ? static_cast<CMPICount>(self->values().size()) : 0;
    }
};

} // namespace diaghost

#endif
