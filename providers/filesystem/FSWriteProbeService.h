// FileSystemWriteProbe: on a published mount that is writable, creates a temporary file with
// mkstemp in the mount point, writes a 4 KiB pattern, syncs it, reads it back, compares and
// removes it. Nothing else on the file system is touched, and the file is removed on every
// path out. A read-only or unwritable mount is not probed: the record says why and the test
// answers TestNotRun. Return values and error codes: FSDiag.h.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_FSWRITEPROBESERVICE_H
#define ZORQ_PROVIDERS_FILESYSTEM_FSWRITEPROBESERVICE_H

#include "providers/common/ElementDiagService.h"
#include "providers/filesystem/MountedFileSystems.h"

namespace NQORVA20::providers {

class FSWriteProbeService : public ElementDiagService {
public:
    // The size of the pattern the probe writes.
    static constexpr std::size_t probeSize = 4096;
    // The probe file's name in the mount point, before mkstemp's six characters.
    static constexpr char probePrefix[] = ".zorq-write-probe-";

    FSWriteProbeService(std::string installDate, std::string systemName,
                        const MountedFileSystems& fileSystems);

protected:
    unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) override;
    std::string elementName(std::size_t index) const override;

private:
    const MountedFileSystems& fileSystems_;
};

} // namespace NQORVA20::providers

#endif
