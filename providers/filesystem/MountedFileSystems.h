// The file systems the family published: each mount's table entry beside the catalog of
// their keys. Filled once by publish() at start-up, read by the tests afterwards; it lives as
// long as the process, like the registry that serves its instances.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_MOUNTEDFILESYSTEMS_H
#define ZORQ_PROVIDERS_FILESYSTEM_MOUNTEDFILESYSTEMS_H

#include "providers/common/ElementCatalog.h"
#include "providers/filesystem/MountTable.h"

#include <cmpidt.h>

#include <cstddef>
#include <string>
#include <vector>

namespace NQORVA20::providers {

class MountedFileSystems {
public:
    MountedFileSystems();

    // Registers one ZORQ_LocalFileSystem per mount; only those the registry accepted join the
    // catalog. Answers how many were published.
    std::size_t publish(const CMPIBroker* broker, const CMPIContext* ctx,
                        const std::vector<MountTable::Entry>& mounts,
                        const std::string& systemName);

    const ElementCatalog& catalog() const { return catalog_; }
    // The mount of the catalog's element at index.
    const MountTable::Entry& mount(std::size_t index) const { return mounts_.at(index); }

private:
    ElementCatalog catalog_;
    std::vector<MountTable::Entry> mounts_;
};

} // namespace NQORVA20::providers

#endif
