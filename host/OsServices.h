// The broker's operating-system function table over POSIX threads: library file names,
// threads, once-initialisation, thread-specific keys, mutexes and conditions. Functions
// answering int follow pthread: 0 on success, an errno value otherwise.
#ifndef DIAGCORE_HOST_OSSERVICES_H
#define DIAGCORE_HOST_OSSERVICES_H

#include <cmpift.h>

namespace NQORVA20::host {

class OsServices {
public:
    static CMPIBrokerExtFT* table();
};

} // namespace NQORVA20::host

#endif
