#include "providers/filesystem/LocalFileSystem.h"

#include "providers/filesystem/FSDiag.h"

#include <sys/statvfs.h>

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

    struct statvfs info;
    if (::statvfs(mount_.mountPoint.c_str(), &info) == 0) {
        get("BlockSize") = std::to_string(info.f_frsize);
        get("FileSystemSize") =
            std::to_string(static_cast<unsigned long long>(info.f_blocks) * info.f_frsize);
        get("MaxFileNameLength") = std::to_string(info.f_namemax);
    }
}

} // namespace NQORVA20::providers
