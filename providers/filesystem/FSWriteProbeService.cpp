#include "providers/filesystem/FSWriteProbeService.h"

#include "providers/common/SystemErrorText.h"
#include "providers/common/TestOutcome.h"
#include "providers/filesystem/FSDiag.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <vector>

namespace NQORVA20::providers {

namespace {

// Owns the probe file: closes and removes it when the probe leaves early.
class ProbeFile {
public:
    ProbeFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
    ~ProbeFile() {
        if (fd_ >= 0)
            ::close(fd_);
        if (!path_.empty())
            ::unlink(path_.c_str());
    }
    ProbeFile(const ProbeFile&) = delete;
    ProbeFile& operator=(const ProbeFile&) = delete;

    int fd() const { return fd_; }
    const std::string& path() const { return path_; }
    // Closes and removes the file now; answers 0 or the errno of the step that failed.
    int remove() {
        int error = 0;
        if (::close(fd_) != 0)
            error = errno;
        fd_ = -1;
        if (::unlink(path_.c_str()) != 0 && error == 0)
            error = errno;
        path_.clear();
        return error;
    }

private:
    int fd_;
    std::string path_;
};

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
                                         const MountedFileSystems& fileSystems)
    : ElementDiagService(fsdiag::serviceClass, fsdiag::recordClass, std::move(installDate),
                         std::move(systemName), fileSystems.catalog(),
                         {fsdiag::probeServiceName, "File system write probe",
                          "Writes, syncs, reads back and removes a small temporary file on a "
                          "writable mounted local file system",
                          fsdiag::notPublished, fsdiag::aborted}),
      fileSystems_(fileSystems) {}

std::string FSWriteProbeService::elementName(std::size_t index) const {
    return fileSystems_.mount(index).mountPoint;
}

unsigned int FSWriteProbeService::runOnElement(std::size_t index, DiagnosticRecord& record) {
    const MountTable::Entry& mount = fileSystems_.mount(index);
    const std::string& where = mount.mountPoint;
    auto skipped = [&](const std::string& why) {
        failWith(record, {"FS_PROBE_SKIPPED"}, where + ": write probe skipped: " + why);
        return TestNotRun;
    };

    if (mount.readOnly)
        return skipped("mounted read-only (options " + mount.options + ")");
    struct statvfs info;
    if (::statvfs(where.c_str(), &info) == 0 && (info.f_flag & ST_RDONLY) != 0)
        return skipped("mounted read-only");
    if (::access(where.c_str(), W_OK) != 0)
        return skipped("not writable by this process: " + SystemErrorText::describe(errno));

    std::string name = where;
    if (name.back() != '/')
        name += '/';
    name += probePrefix;
    name += "XXXXXX";
    std::vector<char> pathBuffer(name.begin(), name.end());
    pathBuffer.push_back('\0');
    const int fd = ::mkstemp(pathBuffer.data());
    if (fd < 0) {
        const int error = errno;
        if (notOursToWrite(error))
            return skipped("cannot create a file: " + SystemErrorText::describe(error));
        failWith(record, {"FS_PROBE_CREATE"},
                 where + ": cannot create the probe file: " + SystemErrorText::describe(error));
        return TestFailed;
    }
    ProbeFile probe(fd, pathBuffer.data());

    // A pattern that differs between runs, so stale data from an earlier probe cannot pass.
    const auto seed = static_cast<unsigned long>(
        std::chrono::steady_clock::now().time_since_epoch().count() ^ ::getpid());
    std::vector<unsigned char> pattern(probeSize);
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = static_cast<unsigned char>((seed >> (i % 4 * 8)) + i * 131u);

    if (const int error = writeAll(probe.fd(), pattern)) {
        failWith(record, {"FS_PROBE_WRITE"},
                 where + ": writing " + probe.path() +
                     " failed: " + SystemErrorText::describe(error));
        return TestFailed;
    }
    if (::fsync(probe.fd()) != 0) {
        failWith(record, {"FS_PROBE_SYNC"},
                 where + ": syncing " + probe.path() +
                     " failed: " + SystemErrorText::describe(errno));
        return TestFailed;
    }
    std::vector<unsigned char> readBack(probeSize);
    if (const int error = readAll(probe.fd(), readBack)) {
        failWith(record, {"FS_PROBE_READ"},
                 where + ": reading " + probe.path() +
                     " back failed: " + SystemErrorText::describe(error));
        return TestFailed;
    }
    for (std::size_t i = 0; i < probeSize; ++i) {
        if (readBack[i] != pattern[i]) {
            failWith(record, {"FS_PROBE_MISMATCH"},
                     where + ": " + probe.path() + " read back different data at byte " +
                         std::to_string(i));
            return TestFailed;
        }
    }
    const std::string path = probe.path();
    if (const int error = probe.remove()) {
        failWith(record, {"FS_PROBE_REMOVE"},
                 where + ": removing " + path + " failed: " + SystemErrorText::describe(error));
        return TestFailed;
    }
    passWith(record, where + ": wrote, synced, read back and removed " + std::to_string(probeSize) +
                         " bytes in " + path);
    return TestPassed;
}

} // namespace NQORVA20::providers
