#include "providers/filesystem/FSServiceFactory.h"

#include "providers/filesystem/FSHealthService.h"
#include "providers/filesystem/FSWriteProbeService.h"

namespace NQORVA20::providers {

FSServiceFactory::FSServiceFactory(const MountedFileSystems& fileSystems)
    : fileSystems_(fileSystems) {}

DiagService** FSServiceFactory::makeServices(std::string dateTime, std::string systemName,
                                             unsigned int& count) {
    auto** table = new DiagService*[2];
    table[0] = new FSHealthService(dateTime, systemName, fileSystems_);
    table[1] = new FSWriteProbeService(dateTime, systemName, fileSystems_);
    count = 2;
    return table;
}

} // namespace NQORVA20::providers
