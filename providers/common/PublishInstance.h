// Publishing one instance object and learning whether it was filed. The registry takes the
// object for good either way; it is filed, and served, only when the object manager could build
// its CMPIInstance (a class missing from its repository, or a failing broker, leaves it unfiled
// and its object path empty).
#ifndef ZORQ_PROVIDERS_COMMON_PUBLISHINSTANCE_H
#define ZORQ_PROVIDERS_COMMON_PUBLISHINSTANCE_H

#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20::providers {

// Registers the object; true when it was filed.
bool publishInstance(const CMPIBroker* broker, const CMPIContext* ctx, InstanceImpl* object);
// The same, logging the error "could not publish <what>" when it was not filed.
bool publishInstance(const CMPIBroker* broker, const CMPIContext* ctx, InstanceImpl* object,
                     const std::string& what);

} // namespace NQORVA20::providers

#endif
