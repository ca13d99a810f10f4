// The broker's memory function table: marks and releases over the calling thread's current
// call scope, memory blocks that belong to that scope unless freed before it closes, and early
// release of encapsulated objects.
#ifndef DIAGCORE_HOST_MEMORYSERVICES_H
#define DIAGCORE_HOST_MEMORYSERVICES_H

#include <cmpift.h>

namespace NQORVA20::host {

class MemoryServices {
public:
    static CMPIBrokerMemFT* table();
};

} // namespace NQORVA20::host

#endif
