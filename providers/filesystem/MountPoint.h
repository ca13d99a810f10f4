// One published mount as the family's tests reach it: its table entry, the folder opened so that
// a test never leaves the mount, and the count of tests stuck on it. The family's services and
// the worker threads that run their tests share it (a worker stuck in the kernel may return long
// after its call did), so it lives as long as the last of them holds it.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_MOUNTPOINT_H
#define ZORQ_PROVIDERS_FILESYSTEM_MOUNTPOINT_H

#include "providers/filesystem/MountTable.h"

#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

namespace NQORVA20::providers {

// A file descriptor closed when its owner goes.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd();
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Hands the descriptor over; this owner keeps none.
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_ = -1;
};

class MountPoint {
public:
    explicit MountPoint(MountTable::Entry entry) : entry_(std::move(entry)) {}
    MountPoint(const MountPoint&) = delete;
    MountPoint& operator=(const MountPoint&) = delete;

    const MountTable::Entry& entry() const { return entry_; }

    // The mount point folder, opened for a test, or why it was not.
    struct Opened {
        UniqueFd folder;
        int error = 0;         // the errno of the step that failed
        bool replaced = false; // the path no longer leads to the mount
        std::string problem;   // a sentence for the record when folder is not open
    };
    // Opens the mount point folder itself: never through a symbolic link put in its place
    // (O_NOFOLLOW), and only while it stays on the device the first test that opened it found it
    // on. Start-up never opens it, so the device is learnt by that first test. A test works
    // relative to the folder it gets, so a path changed meanwhile cannot lead it elsewhere.
    Opened open();

    // Tests on this mount that ran past their deadline and have not returned yet.
    unsigned int stuck() const { return stuck_.load(); }
    void addStuck() { ++stuck_; }
    void removeStuck() { --stuck_; }

private:
    const MountTable::Entry entry_;
    std::atomic<unsigned int> stuck_{0};
    std::mutex deviceMutex_;
    std::optional<dev_t> device_;
};

} // namespace NQORVA20::providers

#endif
