// The entry symbols of libzorqfsdiag.so and its start-up: publish the mounted local file
// systems, then the two services with everything that belongs to them.
#include "entry/DiagProvider.h"
#include "providers/common/FamilyStartup.h"
#include "providers/common/ProviderLog.h"
#include "providers/filesystem/FSDiag.h"
#include "providers/filesystem/FSServiceFactory.h"
#include "providers/filesystem/MountedFileSystems.h"

#include <exception>

namespace {

using namespace NQORVA20::providers;

void startFileSystemFamily(const CMPIBroker* broker, const CMPIContext* ctx) {
    // Read by every later test run; it lives as long as the registry that serves its mounts.
    static MountedFileSystems* fileSystems = new MountedFileSystems;
    const std::string system = FamilyStartup::systemName(broker, ctx);
    std::vector<MountTable::Entry> mounts;
    const std::string table = MountTable::sourcePath();
    try {
        mounts = MountTable::localFileSystems(table);
    } catch (const std::exception& e) {
        ProviderLog::write(broker, ProviderLog::Error, e.what());
    }
    const std::size_t published = fileSystems->publish(broker, ctx, mounts, system);
    ProviderLog::write(broker, ProviderLog::Info,
                       "published " + std::to_string(published) + " local file systems of " +
                           table);

    FSServiceFactory factory(*fileSystems);
    FamilyStartup({fsdiag::elementClass, fsdiag::availableClass, fsdiag::settingClass,
                   fsdiag::capabilitiesClass, fsdiag::logClass, fsdiag::useOfLogClass})
        .run(broker, ctx, factory);
}

} // namespace

DIAGCORE_PROVIDER(ZORQ_FSDiagProvider, startFileSystemFamily)
