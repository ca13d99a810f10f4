// Ties a diagnostic service to every managed element it can test: one registered
// AvailableDiagnosticService association per instance of the user class, numbered by "EnumOrder"
// in the order the object manager enumerates the users. Register the service first: each
// association carries its object-path text.
#ifndef DIAGCORE_FACTORY_AVAILSERVICEFACTORY_H
#define DIAGCORE_FACTORY_AVAILSERVICEFACTORY_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT AvailServiceFactory {
public:
    // The k-th user (from 0) gets "EnumOrder" firstEnumOrder + k * enumOrderStep, modulo 2^32.
    void CreateAvailableServices(const CMPIBroker* broker, const CMPIContext* ctx,
                                 InstanceImpl* service, std::string userClassName,
                                 std::string associationClassName, unsigned int firstEnumOrder,
                                 unsigned int enumOrderStep);
    // The users: the instances of className in root/cimv2, enumerated through the broker. An
    // override must return an enumeration (or null for none).
    virtual CMPIEnumeration* EnumerateUsers(const CMPIBroker* broker, const CMPIContext* ctx,
                                            std::string className);
};

} // namespace NQORVA20

#endif
