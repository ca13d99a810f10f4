// How a provider library creates its diagnostic services when it starts serving. The provider
// derives a factory and implements makeServices; CreateServices fetches the two texts every
// service needs (the current CIM date-time text and the system name) and hands them over.
//
// makeServices allocates the table with new[] and each service with new, sets count, and returns
// the table. The caller registers every service (the registry keeps them for good) and then frees
// the table itself with delete[].
#ifndef DIAGCORE_FACTORY_SERVICEFACTORY_H
#define DIAGCORE_FACTORY_SERVICEFACTORY_H

#include "common/Export.h"
#include "diag/DiagService.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT ServiceFactory {
public:
    virtual DiagService** makeServices(std::string dateTime, std::string systemName,
                                       unsigned int& count) = 0;
    virtual ~ServiceFactory();

    // makeServices' table, unchanged; count is written only by makeServices. The system name is
    // the object manager's ZORQ_ComputerSystem's, else the one recorded in SystemIdentity.
    DiagService** CreateServices(const CMPIBroker* broker, const CMPIContext* ctx,
                                 unsigned int& count);
};

} // namespace NQORVA20

#endif
