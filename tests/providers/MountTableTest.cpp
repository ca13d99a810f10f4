// Reading the mounts table: escapes, read-only mounts, which file systems count as local, and
// files that must not hang or break the reader.
#include "providers/filesystem/MountTable.h"
#include "providers/common/SmallTextFile.h"

#include "ProviderTestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

using NQORVA20::providers::MountTable;
using NQORVA20::providers::SmallTextFile;

class MountTableTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& text) {
        const std::string path = scratch.path() + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    static std::vector<std::string> mountPoints(const std::vector<MountTable::Entry>& entries) {
        std::vector<std::string> points;
        for (const auto& e : entries)
            points.push_back(e.mountPoint);
        return points;
    }

    zorqtest::ScratchFolder scratch{"zorq-mounttable"};
};

TEST_F(MountTableTest, ParseUndoesOctalEscapesAndReadsTheReadOnlyOption) {
    auto entries = MountTable::parse("/dev/sda1 /mnt/my\\040disk ext4 ro,relatime 0 0\n"
                                     "/dev/sda2 /data ext4 rw,errors=remount-ro 0 0\n"
                                     "/dev/sda3 /back\\134slash xfs rw 0 0\n");
    ASSERT_EQ(3u, entries.size());
    EXPECT_EQ("/mnt/my disk", entries[0].mountPoint);
    EXPECT_TRUE(entries[0].readOnly);
    EXPECT_FALSE(entries[1].readOnly) << "remount-ro is not ro";
    EXPECT_EQ("/back\\slash", entries[2].mountPoint);
    EXPECT_EQ("xfs", entries[2].type);
}

TEST_F(MountTableTest, ParseSkipsShortLinesAndRelativeMountPoints) {
    auto entries = MountTable::parse("garbage\n\n/dev/x relative ext4 rw 0 0\n"
                                     "/dev/y /ok ext4 rw\n/dev/z /short ext4\n");
    EXPECT_EQ(std::vector<std::string>{"/ok"}, mountPoints(entries));
}

TEST_F(MountTableTest, UnescapeLeavesIncompleteAndNulEscapesAlone) {
    EXPECT_EQ("a b", MountTable::unescape("a\\040b"));
    EXPECT_EQ("a\\04", MountTable::unescape("a\\04"));
    EXPECT_EQ("a\\", MountTable::unescape("a\\"));
    EXPECT_EQ("a\\000b", MountTable::unescape("a\\000b"));
    EXPECT_EQ("a\\9zz", MountTable::unescape("a\\9zz"));
}

TEST_F(MountTableTest, LocalTypesAreBlockOverlayAndTmpfsNotPseudoOrNetwork) {
    for (const char* local : {"ext4", "xfs", "btrfs", "vfat", "overlay", "tmpfs", "squashfs"})
        EXPECT_TRUE(MountTable::isLocalType(local)) << local;
    for (const char* other :
         {"proc",    "sysfs",       "cgroup", "cgroup2",    "devpts",     "mqueue",  "debugfs",
          "tracefs", "securityfs",  "pstore", "bpf",        "configfs",   "fusectl", "hugetlbfs",
          "autofs",  "binfmt_misc", "nsfs",   "rpc_pipefs", "devtmpfs",   "nfs",     "nfs4",
          "cifs",    "smb3",        "smbfs",  "sshfs",      "fuse.sshfs", "9p",      ""})
        EXPECT_FALSE(MountTable::isLocalType(other)) << other;
}

TEST_F(MountTableTest, LocalFileSystemsKeepTheLastMountOfAPointAndSkipFileMounts) {
    std::filesystem::create_directories(scratch.path() + "/a");
    write("single-file", "x");
    const std::string table =
        write("mounts", "/dev/old " + scratch.path() + "/a ext4 rw 0 0\n" +
                            "proc /proc proc rw 0 0\n" + "/dev/b " + scratch.path() +
                            "/single-file ext4 rw 0 0\n" + "overlay /merged overlay rw 0 0\n" +
                            "/dev/new " + scratch.path() + "/a xfs ro 0 0\n");
    auto entries = MountTable::localFileSystems(table);
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ("/merged", entries[0].mountPoint) << "a missing mount point is still listed";
    EXPECT_EQ(scratch.path() + "/a", entries[1].mountPoint);
    EXPECT_EQ("/dev/new", entries[1].device);
    EXPECT_TRUE(entries[1].readOnly);
}

TEST_F(MountTableTest, UnreadableTablesThrowAndAFifoDoesNotHang) {
    EXPECT_THROW(MountTable::localFileSystems(scratch.path() + "/missing"), std::runtime_error);
    EXPECT_THROW(MountTable::localFileSystems(scratch.path()), std::runtime_error);
    const std::string fifo = scratch.path() + "/fifo";
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    std::string error;
    EXPECT_FALSE(SmallTextFile::read(fifo, &error));
    EXPECT_EQ("not a regular file", error);
    EXPECT_THROW(MountTable::localFileSystems(fifo), std::runtime_error);
}

TEST_F(MountTableTest, SmallTextFileStopsAtItsLimitAndReadsOnlyPlainNumbers) {
    const std::string big = write("big", std::string(10000, 'x'));
    auto text = SmallTextFile::read(big, nullptr, 100);
    ASSERT_TRUE(text);
    EXPECT_EQ(100u, text->size());
    EXPECT_EQ(42u, SmallTextFile::readNumber(write("n", "42\n")).value_or(0));
    std::string error;
    EXPECT_FALSE(SmallTextFile::readNumber(write("neg", "-1\n"), &error));
    EXPECT_EQ("not an unsigned number", error);
    EXPECT_FALSE(SmallTextFile::readNumber(write("huge", "99999999999999999999999\n"), &error));
    EXPECT_EQ("number out of range", error);
}

TEST_F(MountTableTest, TheRealTableListsTheRootAndNoKernelPseudoFileSystems) {
    if (!std::filesystem::exists("/proc/self/mounts"))
        GTEST_SKIP() << "no /proc/self/mounts here";
    auto entries = MountTable::localFileSystems("/proc/self/mounts");
    EXPECT_NE(entries.end(), std::find_if(entries.begin(), entries.end(),
                                          [](const auto& e) { return e.mountPoint == "/"; }));
    for (const auto& e : entries) {
        EXPECT_TRUE(MountTable::isLocalType(e.type)) << e.mountPoint << " " << e.type;
        EXPECT_NE("/proc", e.mountPoint);
    }
}

} // namespace
