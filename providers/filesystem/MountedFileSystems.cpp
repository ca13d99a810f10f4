#include "providers/filesystem/MountedFileSystems.h"

#include "instance/InstanceRegistry.h"
#include "providers/filesystem/FSDiag.h"
#include "providers/filesystem/LocalFileSystem.h"

namespace NQORVA20::providers {

MountedFileSystems::MountedFileSystems()
    : catalog_(fsdiag::elementClass, {"CSCreationClassName", "CSName", "CreationClassName", "Name"},
               {"CSCreationClassName", "CSName", "CreationClassName"}) {}

std::size_t MountedFileSystems::publish(const CMPIBroker* broker, const CMPIContext* ctx,
                                        const std::vector<MountTable::Entry>& mounts,
                                        const std::string& systemName) {
    std::size_t published = 0;
    for (const MountTable::Entry& mount : mounts) {
        auto* element = new LocalFileSystem(mount, systemName);
        const ElementCatalog::Keys keys = {
            {"CSCreationClassName", element->get("CSCreationClassName")},
            {"CSName", element->get("CSName")},
            {"CreationClassName", element->get("CreationClassName")},
            {"Name", element->get("Name")},
        };
        InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, element);
        if (element->getObjectPath().empty())
            continue;
        catalog_.add(keys);
        mounts_.push_back(mount);
        ++published;
    }
    return published;
}

} // namespace NQORVA20::providers
