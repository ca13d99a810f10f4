// FileSystemHealth: whether a published mount can be opened and listed, and whether its free
// space and free inodes stay above the operator's thresholds (ZORQ_FS_MIN_FREE_PERCENT,
// ZORQ_FS_MIN_FREE_INODES_PERCENT, default 5, read at every run). A read-only mount is noted in
// the record, not failed. The check runs under the deadline of MountTestService. Return values
// and error codes: FSDiag.h.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_FSHEALTHSERVICE_H
#define ZORQ_PROVIDERS_FILESYSTEM_FSHEALTHSERVICE_H

#include "providers/filesystem/MountTestService.h"

namespace NQORVA20::providers {

class FSHealthService : public MountTestService {
public:
    // work: what the test does on one mount; the real check unless a test of the service puts
    // another.
    FSHealthService(std::string installDate, std::string systemName,
                    const MountedFileSystems& fileSystems, Check work = &FSHealthService::check);

    // The health check of one mount.
    static MountFinding check(MountPoint& mount);
};

} // namespace NQORVA20::providers

#endif
