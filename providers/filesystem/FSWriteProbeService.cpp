#include "providers/filesystem/FSWriteProbeService.h"

#include "providers/common/SystemErrorText.h"
#include "providers/common/TestOutcome.h"
#include "providers/filesystem/FSDiag.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <vector>

namespace NQORVA20::providers {

namespace {

// Owns the probe file, a name in the mount point folder: closes and removes it when the probe
// leaves early.
class ProbeFile {
public:
    ProbeFile(int folder, int fd, std::string name)
        : folder_(folder), fd_(fd), name_(std::move(name)) {}
    ~ProbeFile() {
        if (fd_ >= 0)
            ::close(fd_);
        if (!name_.empty())
            ::unlinkat(folder_, name_.c_str(), 0);
    }
    ProbeFile(const ProbeFile&) = delete;
    ProbeFile& operator=(const ProbeFile&) = delete;

    int fd() const { return fd_; }
    // Closes and removes the file now; answers 0 or the errno of the step that failed.
    int remove() {
        int error = 0;
        if (::close(fd_) != 0)
            error = errno;
        fd_ = -1;
        if (::unlinkat(folder_, name_.c_str(), 0) != 0 && error == 0)
            error = errno;
        name_.clear();
        return error;
    }

private:
    int folder_;
    int fd_;
    std::string name_;
};

// Six characters for the probe file's name that differ between probes of this process and
// between processes.
std::string randomSuffix() {
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    static std::atomic<unsigned long long> counter{0};
    unsigned long long bits = static_cast<unsigned long long>(
                                  std::chrono::steady_clock::now().time_since_epoch().count()) ^
                              (static_cast<unsigned long long>(::getpid()) << 32) ^
                              (++counter * 0x9e3779b97f4a7c15ull);
    // A final mix (splitmix64) so that neighbouring inputs give unrelated names.
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9ull;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebull;
    bits ^= bits >> 31;
    std::string suffix;
    for (int i = 0; i < 6; ++i, bits /= sizeof alphabet - 1)
        suffix.push_back(alphabet[bits % (sizeof alphabet - 1)]);
    return suffix;
}

// Writes all of data, resuming after interruptions and short writes; 0 or an errno.
int writeAll(int fd, const std::vector<unsigned char>& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t wrote = ::write(fd, data.data() + done, data.size() - done);
        if (wrote < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (wrote == 0)
            return EIO;
        done += static_cast<std::size_t>(wrote);
    }
    return 0;
}

// Reads data.size() bytes from offset 0; 0 or an errno (EIO for a file that came back short).
int readAll(int fd, std::vector<unsigned char>& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t got =
            ::pread(fd, data.data() + done, data.size() - done, static_cast<off_t>(done));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (got == 0)
            return EIO;
        done += static_cast<std::size_t>(got);
    }
    return 0;
}

bool notOursToWrite(int error) {
    return error == EROFS || error == EACCES || error == EPERM;
}

} // namespace

FSWriteProbeService::FSWriteProbeService(std::string installDate, std::string systemName,
                                         const MountedFileSystems& fileSystems, Check work)
    : MountTestService(std::move(installDate), std::move(systemName), fileSystems,
                       {fsdiag::probeServiceName, "File system write probe",
                        "Writes, syncs, reads back and removes a small temporary file on a "
                        "writable mounted local file system",
                        fsdiag::notPublished, fsdiag::aborted},
                       std::move(work)) {}

MountFinding FSWriteProbeService::probe(MountPoint& point) {
    const MountTable::Entry& mount = point.entry();
    const std::string& where = mount.mountPoint;
    auto skipped = [&](const std::string& why) {
        return MountFinding{
            TestNotRun, {"FS_PROBE_SKIPPED"}, where + ": write probe skipped: " + why};
    };
    auto failed = [&](const char* code, const std::string& why) {
        return MountFinding{TestFailed, {code}, where + ": " + why};
    };

    if (mount.readOnly)
        return skipped("mounted read-only (options " + mount.options + ")");
    const MountPoint::Opened opened = point.open();
    if (!opened.folder) {
        if (opened.replaced)
            return failed(fsdiag::mountReplaced, opened.problem + "; nothing was written");
        return skipped(opened.problem);
    }
    const int folder = opened.folder.get();
    struct statvfs info;
    if (::fstatvfs(folder, &info) == 0 && (info.f_flag & ST_RDONLY) != 0)
        return skipped("mounted read-only");
    if (::faccessat(folder, ".", W_OK, 0) != 0)
        return skipped("not writable by this process: " + SystemErrorText::describe(errno));

    // A new file of our own in this folder: never an existing one, never through a link.
    std::string name;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        name = probePrefix + randomSuffix();
        fd = ::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      0600);
        if (fd < 0 && errno != EEXIST)
            break;
    }
    if (fd < 0) {
        const int error = errno;
        if (notOursToWrite(error))
            return skipped("cannot create a file: " + SystemErrorText::describe(error));
        return failed("FS_PROBE_CREATE",
                      "cannot create the probe file: " + SystemErrorText::describe(error));
    }
    ProbeFile file(folder, fd, name);
    const std::string path = (where.back() == '/' ? where : where + "/") + name;

    // A pattern that differs between runs, so stale data from an earlier probe cannot pass.
    const auto seed = static_cast<unsigned long>(
        std::chrono::steady_clock::now().time_since_epoch().count() ^ ::getpid());
    std::vector<unsigned char> pattern(probeSize);
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = static_cast<unsigned char>((seed >> (i % 4 * 8)) + i * 131u);

    if (const int error = writeAll(file.fd(), pattern))
        return failed("FS_PROBE_WRITE",
                      "writing " + path + " failed: " + SystemErrorText::describe(error));
    if (::fsync(file.fd()) != 0)
        return failed("FS_PROBE_SYNC",
                      "syncing " + path + " failed: " + SystemErrorText::describe(errno));
    std::vector<unsigned char> readBack(probeSize);
    if (const int error = readAll(file.fd(), readBack))
        return failed("FS_PROBE_READ",
                      "reading " + path + " back failed: " + SystemErrorText::describe(error));
    for (std::size_t i = 0; i < probeSize; ++i)
        if (readBack[i] != pattern[i])
            return failed("FS_PROBE_MISMATCH",
                          path + " read back different data at byte " + std::to_string(i));
    if (const int error = file.remove())
        return failed("FS_PROBE_REMOVE",
                      "removing " + path + " failed: " + SystemErrorText::describe(error));
    return {TestPassed,
            {},
            where + ": wrote, synced, read back and removed " + std::to_string(probeSize) +
                " bytes in " + path};
}

} // namespace NQORVA20::providers
