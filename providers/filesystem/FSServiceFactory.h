// Makes the file-system family's two services, FileSystemHealth and FileSystemWriteProbe, both
// testing the family's published mounts.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_FSSERVICEFACTORY_H
#define ZORQ_PROVIDERS_FILESYSTEM_FSSERVICEFACTORY_H

#include "factory/ServiceFactory.h"
#include "providers/filesystem/MountedFileSystems.h"

namespace NQORVA20::providers {

class FSServiceFactory : public ServiceFactory {
public:
    explicit FSServiceFactory(const MountedFileSystems& fileSystems);
    DiagService** makeServices(std::string dateTime, std::string systemName,
                               unsigned int& count) override;

private:
    const MountedFileSystems& fileSystems_;
};

} // namespace NQORVA20::providers

#endif
