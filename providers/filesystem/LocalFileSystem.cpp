#include "providers/filesystem/LocalFileSystem.h"

#include "providers/filesystem/FSDiag.h"

namespace NQORVA20::providers {

LocalFileSystem::LocalFileSystem(MountTable::Entry mount, std::string systemName)
    : InstanceImpl(fsdiag::elementClass), mount_(std::move(mount)),
      systemName_(std::move(systemName)) {
    LocalFileSystem::init();
}

LocalFileSystem::~LocalFileSystem() = default;

void LocalFileSystem::init() {
    get("CSCreationClassName") = fsdiag::systemClass;
    get("CSName") = systemName_;
    get("CreationClassName") = fsdiag::elementClass;
    get("Name") = mount_.mountPoint;
    get("Root") = mount_.mountPoint;
    get("MountPoint") = mount_.mountPoint;
    get("DeviceName") = mount_.device;
    get("MountOptions") = mount_.options;
    get("FileSystemType") = mount_.type;
    get("ReadOnly") = mount_.readOnly ? "1" : "0";
    get("ElementName") = mount_.mountPoint;
    get("Caption") = "File system on " + mount_.mountPoint;
    get("Description") = mount_.device + " (" + mount_.type + ") mounted on " + mount_.mountPoint;
    // 2: persistent storage; 3: gone with the machine's memory.
    get("PersistenceType") = mount_.type == "tmpfs" ? "3" : "2";
    get("EnabledState") = "2";
    // Sizes are left out: statvfs would ask the file system, and a mount that does not answer
    // would hold start-up for good. FileSystemHealth reports the free space when it runs.
}

} // namespace NQORVA20::providers
