// The entry symbols of libzorqfsdiag.so and its start-up: publish the mounted local file
// systems, then the two services with everything that belongs to them.
#include "profile/ProfileProvider.h"
#include "providers/common/ElementServiceFactory.h"
#include "providers/common/FamilyStartup.h"
#include "providers/filesystem/FSDiag.h"
#include "providers/filesystem/FSHealthService.h"
#include "providers/filesystem/FSWriteProbeService.h"
#include "providers/filesystem/MountTable.h"
#include "providers/filesystem/MountedFileSystems.h"

namespace {

using namespace NQORVA20::providers;

struct FileSystemFamily {
    using Services =
        ElementServiceFactory<MountedFileSystems, FSHealthService, FSWriteProbeService>;
    static constexpr char elementsNoun[] = "local file systems";
    static FamilyStartup::Classes classes() {
        return {fsdiag::elementClass,      fsdiag::availableClass, fsdiag::settingClass,
                fsdiag::capabilitiesClass, fsdiag::logClass,       fsdiag::useOfLogClass};
    }
    static std::string source() { return MountTable::sourcePath(); }
    static std::vector<MountTable::Entry> read(const std::string& table) {
        return MountTable::localFileSystems(table);
    }
};

NQORVA20::profile::ProfileClasses profileClasses() {
    return FamilyStartup::profileClasses("ZORQ_FS", FileSystemFamily::classes());
}

} // namespace

DIAGCORE_PROFILE_PROVIDER(ZORQ_FSDiagProvider, startFamily<FileSystemFamily>, profileClasses)
