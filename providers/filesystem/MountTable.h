// Reads a mounts table in the kernel's /proc/self/mounts format (device, mount point, type,
// options, two numbers; blanks in fields written as octal escapes such as "\040") and picks
// out the local file systems worth testing: block-device file systems, overlay and tmpfs, not
// the kernel's pseudo file systems nor network file systems.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_MOUNTTABLE_H
#define ZORQ_PROVIDERS_FILESYSTEM_MOUNTTABLE_H

#include <string>
#include <vector>

namespace NQORVA20::providers {

class MountTable {
public:
    // One line of the table, its escapes undone.
    struct Entry {
        std::string device;
        std::string mountPoint;
        std::string type;
        std::string options;
        bool readOnly = false; // the options hold "ro"
    };

    // The table to read: the file ZORQ_FS_MOUNTS names, else /proc/self/mounts.
    static std::string sourcePath();
    // Every well-formed line of the text; lines with fewer than four fields or a mount point
    // that is not absolute are skipped.
    static std::vector<Entry> parse(const std::string& text);
    // Undoes the table's backslash-octal escapes; other backslashes stay as they are.
    static std::string unescape(const std::string& field);
    // Whether a file system of this type is local and real enough to test.
    static bool isLocalType(const std::string& type);
    // The local file systems of the table: filtered by type, one per mount point (the last
    // mount of a point wins, since it hides the earlier ones), in table order, without mount
    // points the kernel knows as something other than a folder (single bind-mounted files; the
    // kernel answers from what it holds, never asking the file system). Throws
    // std::runtime_error when the table cannot be read.
    static std::vector<Entry> localFileSystems(const std::string& path);
};

} // namespace NQORVA20::providers

#endif
