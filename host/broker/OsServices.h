// The broker's operating-system function table over POSIX threads: library file names,
// threads, once-initialisation, thread-specific keys, mutexes and conditions. Functions
// answering int follow pthread: 0 on success, an errno value otherwise.
#ifndef DIAGHOST_BROKER_OSSERVICES_H
#define DIAGHOST_BROKER_OSSERVICES_H

#include <cmpift.h>

namespace diaghost {

class OsServices {
public:
    static CMPIBrokerExtFT* table();
};

} // namespace diaghost

#endif
