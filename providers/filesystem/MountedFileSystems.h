// The file systems the family published: each mount, shared with the tests that run on it,
// beside the catalog of their keys. Filled once by publish() at start-up, read by the tests
// afterwards; it lives as long as the process, like the registry that serves its instances.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_MOUNTEDFILESYSTEMS_H
#define ZORQ_PROVIDERS_FILESYSTEM_MOUNTEDFILESYSTEMS_H

#include "providers/common/ElementCatalog.h"
#include "providers/filesystem/MountPoint.h"
#include "providers/filesystem/MountTable.h"

#include <cmpidt.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace NQORVA20::providers {

class MountedFileSystems {
public:
    MountedFileSystems();

    // Registers one ZORQ_LocalFileSystem per mount; only those the registry accepted join the
    // catalog. A mount whose key values hold a double quote or a backslash is neither
    // registered nor catalogued: an object path cannot carry them, so its path and every
    // association to it would name another element. Each such mount is named in one warning.
    // Answers how many were published. Nothing here touches the mounts themselves.
    std::size_t publish(const CMPIBroker* broker, const CMPIContext* ctx,
                        const std::vector<MountTable::Entry>& mounts,
                        const std::string& systemName);
    // Catalogues a mount without registering it: for a family that registers its instances
    // elsewhere, and for tests of the services on their own. Answers its index.
    std::size_t add(const MountTable::Entry& mount, const std::string& systemName);

    const ElementCatalog& catalog() const { return catalog_; }
    // The mount of the catalog's element at index.
    const MountTable::Entry& mount(std::size_t index) const { return points_.at(index)->entry(); }
    // The same mount as the tests share it.
    std::shared_ptr<MountPoint> point(std::size_t index) const { return points_.at(index); }

    // The key values of a ZORQ_LocalFileSystem for a mount.
    static ElementCatalog::Keys keys(const MountTable::Entry& mount, const std::string& systemName);

private:
    ElementCatalog catalog_;
    std::vector<std::shared_ptr<MountPoint>> points_;
};

} // namespace NQORVA20::providers

#endif
