#include "providers/filesystem/MountPoint.h"

#include "providers/common/SystemErrorText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

namespace NQORVA20::providers {

namespace {

std::string deviceText(dev_t device) {
    return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

} // namespace

UniqueFd::~UniqueFd() {
    if (fd_ >= 0)
        ::close(fd_);
}

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = other.release();
    }
    return *this;
}

MountPoint::Opened MountPoint::open() {
    Opened opened;
    const std::string& path = entry_.mountPoint;
    opened.folder = UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened.folder) {
        opened.error = errno;
        struct stat link;
        if ((opened.error == ELOOP || opened.error == ENOTDIR) &&
            ::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
            opened.replaced = true;
            opened.problem = "the mount point is a symbolic link now, not the mount";
        } else {
            opened.problem =
                "cannot open the mount point: " + SystemErrorText::describe(opened.error);
        }
        return opened;
    }
    struct stat info;
    if (::fstat(opened.folder.get(), &info) != 0) {
        opened.error = errno;
        opened.problem =
            "cannot examine the mount point: " + SystemErrorText::describe(opened.error);
        opened.folder = UniqueFd();
        return opened;
    }
    std::lock_guard<std::mutex> lock(deviceMutex_);
    if (!device_)
        device_ = info.st_dev;
    if (*device_ != info.st_dev) {
        opened.error = EXDEV;
        opened.replaced = true;
        opened.problem = "the mount point is on device " + deviceText(info.st_dev) +
                         " now, not on the mount's device " + deviceText(*device_);
        opened.folder = UniqueFd();
    }
    return opened;
}

} // namespace NQORVA20::providers
