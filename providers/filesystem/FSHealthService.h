// FileSystemHealth: whether a published mount can be opened and listed, and whether its free
// space and free inodes stay above the operator's thresholds (ZORQ_FS_MIN_FREE_PERCENT,
// ZORQ_FS_MIN_FREE_INODES_PERCENT, default 5, read at every run). A read-only mount is noted in
// the record, not failed. Return values and error codes: FSDiag.h.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_FSHEALTHSERVICE_H
#define ZORQ_PROVIDERS_FILESYSTEM_FSHEALTHSERVICE_H

#include "providers/common/ElementDiagService.h"
#include "providers/filesystem/MountedFileSystems.h"

namespace NQORVA20::providers {

class FSHealthService : public ElementDiagService {
public:
    FSHealthService(std::string installDate, std::string systemName,
                    const MountedFileSystems& fileSystems);

protected:
    unsigned int runOnElement(std::size_t index, DiagnosticRecord& record) override;
    std::string elementName(std::size_t index) const override;

private:
    const MountedFileSystems& fileSystems_;
};

} // namespace NQORVA20::providers

#endif
