#include "providers/filesystem/MountedFileSystems.h"

#include "providers/common/PublishInstance.h"
#include "providers/filesystem/FSDiag.h"
#include "providers/filesystem/LocalFileSystem.h"

namespace NQORVA20::providers {

MountedFileSystems::MountedFileSystems()
    : catalog_(fsdiag::elementClass, {"CSCreationClassName", "CSName", "CreationClassName", "Name"},
               {"CSCreationClassName", "CSName", "CreationClassName"}) {}

ElementCatalog::Keys MountedFileSystems::keys(const MountTable::Entry& mount,
                                              const std::string& systemName) {
    return {
        {"CSCreationClassName", fsdiag::systemClass},
        {"CSName", systemName},
        {"CreationClassName", fsdiag::elementClass},
        {"Name", mount.mountPoint},
    };
}

std::size_t MountedFileSystems::add(const MountTable::Entry& mount, const std::string& systemName) {
    auto point = std::make_shared<MountPoint>(mount);
    points_.reserve(points_.size() + 1);
    const std::size_t index = catalog_.add(keys(mount, systemName));
    points_.push_back(std::move(point));
    return index;
}

std::size_t MountedFileSystems::publish(const CMPIBroker* broker, const CMPIContext* ctx,
                                        const std::vector<MountTable::Entry>& mounts,
                                        const std::string& systemName) {
    std::size_t published = 0;
    for (const MountTable::Entry& mount : mounts) {
        if (!catalog_.carriable(broker, mount.mountPoint, keys(mount, systemName)))
            continue;
        if (!publishInstance(broker, ctx, new LocalFileSystem(mount, systemName)))
            continue;
        add(mount, systemName);
        ++published;
    }
    return published;
}

} // namespace NQORVA20::providers
