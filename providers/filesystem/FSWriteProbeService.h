// FileSystemWriteProbe: on a published mount that is writable, creates a temporary file in the
// mount point, writes a 4 KiB pattern, syncs it, reads it back, compares and removes it. The
// probe works only inside the mount: it opens the mount point folder itself (never a symbolic
// link put in its place, and only on the mount's device), then creates the file relative to
// that folder, new (O_EXCL) and not through a link (O_NOFOLLOW), and removes it there. Nothing
// else on the file system is touched, and the file is removed on every path out. A read-only or
// unwritable mount is not probed: the record says why and the test answers TestNotRun. The
// probe runs under the deadline of MountTestService. Return values and error codes: FSDiag.h.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_FSWRITEPROBESERVICE_H
#define ZORQ_PROVIDERS_FILESYSTEM_FSWRITEPROBESERVICE_H

#include "providers/filesystem/MountTestService.h"

namespace NQORVA20::providers {

class FSWriteProbeService : public MountTestService {
public:
    // The size of the pattern the probe writes.
    static constexpr std::size_t probeSize = 4096;
    // The probe file's name in the mount point, before six random characters.
    static constexpr char probePrefix[] = ".zorq-write-probe-";

    // work: what the test does on one mount; the real probe unless a test of the service puts
    // another.
    FSWriteProbeService(std::string installDate, std::string systemName,
                        const MountedFileSystems& fileSystems,
                        Check work = &FSWriteProbeService::probe);

    // The write probe of one mount.
    static MountFinding probe(MountPoint& mount);
};

} // namespace NQORVA20::providers

#endif
