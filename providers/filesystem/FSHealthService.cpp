#include "providers/filesystem/FSHealthService.h"

#include "providers/common/EnvironmentSetting.h"
#include "providers/common/SystemErrorText.h"
#include "providers/common/TestOutcome.h"
#include "providers/filesystem/FSDiag.h"

#include <dirent.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

namespace NQORVA20::providers {

namespace {

constexpr double defaultMinimumPercent = 5;
// Listing stops after this many entries: the question is whether the folder can be read, not
// how large it is.
constexpr unsigned long listingLimit = 100000;

std::string percentText(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.1f%%", value);
    return buffer;
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

} // namespace

FSHealthService::FSHealthService(std::string installDate, std::string systemName,
                                 const MountedFileSystems& fileSystems, Check work)
    : MountTestService(std::move(installDate), std::move(systemName), fileSystems,
                       {fsdiag::healthServiceName, "File system health",
                        "Checks that a mounted local file system can be listed and has free "
                        "space and free inodes above the configured thresholds",
                        fsdiag::notPublished, fsdiag::aborted},
                       std::move(work)) {}

MountFinding FSHealthService::check(MountPoint& point) {
    const MountTable::Entry& mount = point.entry();
    const std::string subject = mount.mountPoint + " (" + mount.type + " on " + mount.device + ")";
    auto failed = [&](const char* code, const std::string& why) {
        return MountFinding{TestFailed, {code}, subject + ": " + why};
    };

    MountPoint::Opened opened = point.open();
    if (!opened.folder)
        return failed(opened.replaced ? fsdiag::mountReplaced : "FS_UNREADABLE", opened.problem);
    // The descriptor belongs to the stream from here on; closedir closes both.
    std::unique_ptr<DIR, DirCloser> dir(::fdopendir(opened.folder.get()));
    if (!dir)
        return failed("FS_UNREADABLE",
                      "cannot list the mount point: " + SystemErrorText::describe(errno));
    opened.folder.release();
    unsigned long entries = 0;
    errno = 0;
    while (entries < listingLimit && ::readdir(dir.get()) != nullptr) {
        ++entries;
        errno = 0;
    }
    if (errno != 0)
        return failed("FS_UNREADABLE",
                      "listing the mount point failed: " + SystemErrorText::describe(errno));

    struct statvfs info;
    if (::fstatvfs(::dirfd(dir.get()), &info) != 0)
        return failed("FS_STATFS_FAILED", "statvfs failed: " + SystemErrorText::describe(errno));

    const EnvironmentSetting::Percent minSpace =
        EnvironmentSetting::percent("ZORQ_FS_MIN_FREE_PERCENT", defaultMinimumPercent);
    const EnvironmentSetting::Percent minInodes =
        EnvironmentSetting::percent("ZORQ_FS_MIN_FREE_INODES_PERCENT", defaultMinimumPercent);

    std::vector<std::string> failures;
    std::string details = subject + ": listed " + std::to_string(entries) + " entries";
    if (info.f_blocks > 0) {
        const double free =
            100.0 * static_cast<double>(info.f_bavail) / static_cast<double>(info.f_blocks);
        details +=
            "; free space " + percentText(free) + " (minimum " + percentText(minSpace.value) + ")";
        if (free < minSpace.value)
            failures.push_back("FS_LOW_SPACE");
    } else {
        details += "; free space not reported";
    }
    if (info.f_files > 0) {
        const double free =
            100.0 * static_cast<double>(info.f_favail) / static_cast<double>(info.f_files);
        details += "; free inodes " + percentText(free) + " (minimum " +
                   percentText(minInodes.value) + ")";
        if (free < minInodes.value)
            failures.push_back("FS_LOW_INODES");
    } else {
        details += "; free inodes not reported";
    }
    const bool readOnly = mount.readOnly || (info.f_flag & ST_RDONLY) != 0;
    details += readOnly ? "; mounted read-only" : "; mounted read-write";
    for (const std::string& note : {minSpace.note, minInodes.note})
        if (!note.empty())
            details += "; " + note;

    return {failures.empty() ? TestPassed : TestFailed, failures, details};
}

} // namespace NQORVA20::providers
