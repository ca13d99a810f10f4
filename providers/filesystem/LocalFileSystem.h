// One mounted local file system as a ZORQ_LocalFileSystem instance object: its keys (the
// hosting system and the mount point as Name) and the facts the mount table gives. Nothing is
// asked of the file system itself.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_LOCALFILESYSTEM_H
#define ZORQ_PROVIDERS_FILESYSTEM_LOCALFILESYSTEM_H

#include "instance/InstanceImpl.h"
#include "providers/filesystem/MountTable.h"

#include <string>

namespace NQORVA20::providers {

class LocalFileSystem : public InstanceImpl {
public:
    LocalFileSystem(MountTable::Entry mount, std::string systemName);
    ~LocalFileSystem() override;
    // Sets every property the mount table gives (overwriting).
    void init() override;

private:
    MountTable::Entry mount_;
    std::string systemName_;
};

} // namespace NQORVA20::providers

#endif
