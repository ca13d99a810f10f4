#include "providers/filesystem/MountTable.h"

#include "providers/common/EnvironmentSetting.h"
#include "providers/common/SmallTextFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace NQORVA20::providers {

namespace {

// The type lists are constant arrays: loading the library builds nothing that could fail.

// The kernel's own views and interfaces: nothing on them is stored on a device.
constexpr std::string_view pseudoTypes[] = {
    "proc",      "sysfs",      "devtmpfs",        "devpts",      "mqueue",     "debugfs",
    "tracefs",   "securityfs", "pstore",          "bpf",         "configfs",   "fusectl",
    "hugetlbfs", "autofs",     "binfmt_misc",     "nsfs",        "rpc_pipefs", "efivarfs",
    "selinuxfs", "cpuset",     "fuse.gvfsd-fuse", "fuse.portal", "ramfs"};
// File systems served by another machine.
constexpr std::string_view networkTypes[] = {"cifs",   "sshfs",     "fuse.sshfs",     "9p",
                                             "ceph",   "glusterfs", "fuse.glusterfs", "afs",
                                             "lustre", "davfs",     "fuse.davfs2",    "ncpfs"};
// Type families named by their beginning: cgroup and cgroup2; nfs, nfs4, nfsd; smbfs, smb3.
const char* const pseudoPrefixes[] = {"cgroup"};
const char* const networkPrefixes[] = {"nfs", "smb"};

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

template <std::size_t n>
bool listed(const std::string_view (&names)[n], const std::string& name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

// Whether the kernel already knows the path as something other than a folder (a single file
// bind-mounted onto a file). The type comes from what the kernel holds (AT_STATX_DONT_SYNC):
// no request reaches the file system, so a mount that does not answer cannot hold start-up
// here, as stat() or statvfs() would. Nothing known, or no statx: kept, a test will tell.
bool isKnownNonFolder(const std::string& path) {
    struct statx info;
    if (::statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW,
                STATX_TYPE, &info) != 0)
        return false;
    return (info.stx_mask & STATX_TYPE) != 0 && !S_ISDIR(info.stx_mode);
}

bool hasOption(const std::string& options, const std::string& wanted) {
    std::istringstream list(options);
    std::string option;
    while (std::getline(list, option, ','))
        if (option == wanted)
            return true;
    return false;
}

} // namespace

std::string MountTable::sourcePath() {
    const std::string fake = EnvironmentSetting::text("ZORQ_FS_MOUNTS");
    return fake.empty() ? "/proc/self/mounts" : fake;
}

std::string MountTable::unescape(const std::string& field) {
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() &&
            std::all_of(field.begin() + static_cast<long>(i) + 1,
                        field.begin() + static_cast<long>(i) + 4,
                        [](char c) { return c >= '0' && c <= '7'; })) {
            const int code =
                (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
            if (code > 0 && code < 256) {
                out.push_back(static_cast<char>(code));
                i += 3;
                continue;
            }
        }
        out.push_back(field[i]);
    }
    return out;
}

bool MountTable::isLocalType(const std::string& type) {
    if (type.empty() || listed(pseudoTypes, type) || listed(networkTypes, type))
        return false;
    for (const char* prefix : pseudoPrefixes)
        if (startsWith(type, prefix))
            return false;
    for (const char* prefix : networkPrefixes)
        if (startsWith(type, prefix))
            return false;
    return true;
}

std::vector<MountTable::Entry> MountTable::parse(const std::string& text) {
    std::vector<Entry> entries;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        Entry entry;
        if (!(fields >> entry.device >> entry.mountPoint >> entry.type >> entry.options))
            continue;
        entry.device = unescape(entry.device);
        entry.mountPoint = unescape(entry.mountPoint);
        entry.type = unescape(entry.type);
        entry.options = unescape(entry.options);
        if (entry.mountPoint.empty() || entry.mountPoint[0] != '/')
            continue;
        entry.readOnly = hasOption(entry.options, "ro");
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::vector<MountTable::Entry> MountTable::localFileSystems(const std::string& path) {
    std::string error;
    const std::optional<std::string> text = SmallTextFile::read(path, &error, 4 << 20);
    if (!text)
        throw std::runtime_error("cannot read the mounts table " + path + ": " + error);
    std::vector<Entry> local;
    for (Entry& entry : parse(*text)) {
        if (!isLocalType(entry.type))
            continue;
        if (isKnownNonFolder(entry.mountPoint))
            continue;
        local.erase(
            std::remove_if(local.begin(), local.end(),
                           [&](const Entry& e) { return e.mountPoint == entry.mountPoint; }),
            local.end());
        local.push_back(std::move(entry));
    }
    return local;
}

} // namespace NQORVA20::providers
