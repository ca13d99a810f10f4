// The broker's memory function table: marks and releases over the calling thread's current
// call scope, memory blocks that belong to that scope unless freed before it closes, and early
// release of encapsulated objects.
#ifndef DIAGHOST_BROKER_MEMORYSERVICES_H
#define DIAGHOST_BROKER_MEMORYSERVICES_H

#include <cmpift.h>

namespace diaghost {

class MemoryServices {
public:
    static CMPIBrokerMemFT* table();
};

} // namespace diaghost

#endif
