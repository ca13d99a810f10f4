// The providers on a machine that works against them: names an object path cannot carry, a mount
// that never answers, a mount point swapped for a symbolic link. Each scenario with a table of
// its own runs in a process of its own, since a provider reads its tables once per process.
#include "ProviderTestSupport.h"

#include "diag/DiagUser.h"
#include "diag/DiagnosticRecord.h"
#include "providers/common/TestOutcome.h"
#include "providers/filesystem/FSHealthService.h"
#include "providers/filesystem/FSWriteProbeService.h"
#include "providers/filesystem/MountedFileSystems.h"

#include "host/broker/LogSink.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <stdexcept>
#include <thread>

namespace {

using namespace zorqtest;
using namespace NQORVA20;
using namespace NQORVA20::providers;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::trunc) << text;
}

// A mounts-table line; blanks and backslashes written as the kernel escapes them.
std::string tableLine(const std::string& device, const std::string& mountPoint,
                      const std::string& type = "ext4", const std::string& options = "rw") {
    std::string field;
    for (char c : mountPoint) {
        if (c == ' ')
            field += "\\040";
        else if (c == '\\')
            field += "\\134";
        else
            field.push_back(c);
    }
    return device + " " + field + " " + type + " " + options + " 0 0\n";
}

void makeInterface(const std::string& sysfs, const std::string& name) {
    fs::create_directories(sysfs + "/" + name);
    writeFile(sysfs + "/" + name + "/type", "1\n");
}

// The checks of a scenario in its own process: failures are printed, and the process ends with
// status 1 if there was any.
struct Checks {
    int failures = 0;
    void operator()(bool ok, const std::string& what) {
        if (!ok) {
            std::cerr << "FAILED: " << what << std::endl;
            ++failures;
        }
    }
    [[noreturn]] void finish() {
        checkLeaksNow();
        std::exit(failures == 0 ? 0 : 1);
    }
};

std::string recordText(const RunOutcome& outcome, const char* property) {
    return outcome.record && outcome.record->count(property) ? outcome.record->at(property)
                                                             : "<none>";
}
std::string codeOf(const RunOutcome& outcome) {
    return recordText(outcome, "ErrorCode");
}
std::string dataOf(const RunOutcome& outcome) {
    return recordText(outcome, "RecordData");
}

RunOutcome runFS(Host& host, const char* service, const std::string& mountPoint) {
    return runDiagnostic(host, "ZORQ_FSDiagService", service, fileSystemPath(mountPoint),
                         "ZORQ_FSDiagRecord");
}

// Every association of the class names a published element, and each published element has
// exactly one per service: none names another element, none names one that is not there.
void checkAssociations(Host& host, Checks& check, const std::string& elementClass,
                       const std::string& associationClass) {
    std::multiset<std::string> expected;
    auto elements = host.enumerateInstances("root/cimv2", elementClass);
    for (const CMPIInstance* element : elements.instances()) {
        const std::string path = host.pathText(element->ft->getObjectPath(element, nullptr));
        expected.insert(path);
        expected.insert(path);
    }
    std::multiset<std::string> users;
    auto associations = host.enumerateInstances("root/cimv2", associationClass);
    for (const CMPIInstance* association : associations.instances())
        users.insert(host.propertyText(association, "UserOfService").value_or("<absent>"));
    std::string named;
    for (const std::string& user : users)
        named += "\n  " + user;
    check(users == expected,
          associationClass + ": each of " + std::to_string(expected.size() / 2) +
              " published elements is named twice, and nothing else; named:" + named);
}

// Names whose quotes or backslashes an object path cannot carry are not published, one warning
// names each, and no association names anything but its own element.
void unquotableNamesScenario() {
    Checks check;
    ScratchFolder scratch("zorq-unquotable");
    const std::string mnt = scratch.path() + "/mnt/";
    const std::string sysfs = scratch.path() + "/net";
    fs::create_directories(mnt + "rw");
    const std::vector<std::string> hostileMounts = {
        mnt + "x\",Name=\"" + mnt + "rw", // its path would name rw
        mnt + "quo\"te",                  // its path would name ".../quo"
        mnt + "back\\slash",
    };
    std::string table = tableLine("/dev/zorqa", mnt + "rw");
    for (const std::string& mount : hostileMounts)
        table += tableLine("/dev/zorqx", mount);
    writeFile(scratch.path() + "/mounts", table);
    const std::vector<std::string> hostilePorts = {"q\"uote", "back\\slash"};
    for (const std::string& name : {std::string("eth0"), hostilePorts[0], hostilePorts[1]})
        makeInterface(sysfs, name);
    ::setenv("ZORQ_FS_MOUNTS", (scratch.path() + "/mounts").c_str(), 1);
    ::setenv("ZORQ_NET_SYSFS", sysfs.c_str(), 1);

    Host& host = *makeHost().release();
    std::vector<std::string> mounts, ports;
    for (Properties& element : enumerate(host, "ZORQ_LocalFileSystem"))
        mounts.push_back(element["Name"]);
    for (Properties& element : enumerate(host, "ZORQ_NetworkPort"))
        ports.push_back(element["DeviceID"]);
    check(mounts == std::vector<std::string>{mnt + "rw"}, "only the rw mount is published");
    check(ports == std::vector<std::string>{"eth0"}, "only eth0 is published");

    std::vector<std::string> warnings;
    for (const diaghost::LogEntry& entry : host.log().entries())
        if (entry.id == "zorq" && entry.severity == 3)
            warnings.push_back(entry.text);
    auto warnedOnce = [&](const std::string& element) {
        return std::count_if(warnings.begin(), warnings.end(), [&](const std::string& text) {
                   return text.find(element + " is not published") != std::string::npos;
               }) == 1;
    };
    for (const std::string& name : hostileMounts)
        check(warnedOnce("ZORQ_LocalFileSystem " + name), "one warning names the mount " + name);
    for (const std::string& name : hostilePorts)
        check(warnedOnce("ZORQ_NetworkPort " + name), "one warning names the interface " + name);

    checkAssociations(host, check, "ZORQ_LocalFileSystem", "ZORQ_FSAvailableDiagService");
    checkAssociations(host, check, "ZORQ_NetworkPort", "ZORQ_NetAvailableDiagService");
    check(host.associators(fileSystemPath(mnt + "rw"), "ZORQ_FSAvailableDiagService")
                  .instances()
                  .size() == 2,
          "the rw mount has its two services and no more");
    auto refused = runFS(host, "FileSystemHealth", hostileMounts[1]);
    check(refused.ok && refused.returnValue == TestElementRefused,
          "a test of an unpublished hostile mount is refused");
    check(runFS(host, "FileSystemHealth", mnt + "rw").returnValue == TestPassed,
          "the rw mount is tested as before");
    fs::remove_all(scratch.path());
    check.finish();
}

TEST(UnquotableNamesTest, ElementsWithQuotesOrBackslashesAreNotPublishedAndWarnedAbout) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(unquotableNamesScenario(), ::testing::ExitedWithCode(0), "");
}

// A mount point replaced by a symbolic link after start-up: the tests refuse to follow it and
// nothing is created where it leads.
void swappedMountPointScenario() {
    Checks check;
    ScratchFolder scratch("zorq-swapped");
    const std::string mnt = scratch.path() + "/mnt/";
    const std::string elsewhere = scratch.path() + "/elsewhere";
    for (const char* name : {"before-any-test", "after-a-test", "steady"})
        fs::create_directories(mnt + name);
    fs::create_directories(elsewhere);
    writeFile(scratch.path() + "/mounts", tableLine("/dev/zorqa", mnt + "before-any-test") +
                                              tableLine("/dev/zorqb", mnt + "after-a-test") +
                                              tableLine("/dev/zorqc", mnt + "steady"));
    ::setenv("ZORQ_FS_MOUNTS", (scratch.path() + "/mounts").c_str(), 1);
    ::setenv("ZORQ_NET_SYSFS", (scratch.path() + "/net").c_str(), 1);

    Host& host = *makeHost().release();
    check(enumerate(host, "ZORQ_LocalFileSystem").size() == 3, "three mounts are published");
    auto first = runFS(host, "FileSystemWriteProbe", mnt + "after-a-test");
    check(first.returnValue == TestPassed, "the probe passes before the swap: " + dataOf(first));

    for (const char* name : {"before-any-test", "after-a-test"}) {
        const std::string mount = mnt + name;
        fs::remove(mount);
        fs::create_directory_symlink(elsewhere, mount);
        for (const char* service : {"FileSystemWriteProbe", "FileSystemHealth"}) {
            auto outcome = runFS(host, service, mount);
            check(outcome.ok && outcome.returnValue == TestFailed &&
                      codeOf(outcome) == "{FS_MOUNT_REPLACED}",
                  std::string(service) + " on " + name +
                      " fails as a replaced mount point: " + std::to_string(outcome.returnValue) +
                      " " + codeOf(outcome) + " " + dataOf(outcome));
            check(dataOf(outcome).find("symbolic link") != std::string::npos,
                  "the record says why: " + dataOf(outcome));
        }
        check(folderListing(elsewhere).empty(), "nothing was created through the link");
    }
    check(runFS(host, "FileSystemWriteProbe", mnt + "steady").returnValue == TestPassed,
          "the other mounts are probed as before");
    fs::remove_all(scratch.path());
    check.finish();
}

TEST(SwappedMountPointTest, ASymbolicLinkInPlaceOfAMountPointIsNeverFollowed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(swappedMountPointScenario(), ::testing::ExitedWithCode(0), "");
}

// The services on their own, with a test whose work on one mount blocks in the kernel (opening
// a FIFO that has no writer) until the test releases it.
class MountDeadlineTest : public ::testing::Test {
protected:
    MountDeadlineTest() {
        fs::create_directories(stuckMount());
        fs::create_directories(otherMount());
        ::mkfifo(fifo().c_str(), 0600);
        fileSystems.add({"/dev/zorqa", stuckMount(), "ext4", "rw", false}, "vm.example");
        fileSystems.add({"/dev/zorqb", otherMount(), "ext4", "rw", false}, "vm.example");
    }
    ~MountDeadlineTest() override {
        if (fileSystems.point(0)->stuck() > 0) {
            release();
            waitUntilNoneStuck();
        }
    }

    std::string stuckMount() const { return scratch.path() + "/stuck"; }
    std::string otherMount() const { return scratch.path() + "/other"; }
    std::string fifo() const { return scratch.path() + "/fifo"; }

    // A published element as RunDiagnostic hands it to the test.
    static void fill(DiagUser& user, const std::string& mountPoint) {
        user.setClassName("ZORQ_LocalFileSystem");
        user["CSCreationClassName"] = "ZORQ_ComputerSystem";
        user["CSName"] = "vm.example";
        user["CreationClassName"] = "ZORQ_LocalFileSystem";
        user["Name"] = mountPoint;
    }
    unsigned int run(MountTestService& service, const std::string& mountPoint,
                     DiagnosticRecord& record) {
        DiagUser user;
        fill(user, mountPoint);
        return service.runTest(&user, &record);
    }
    // Opens the FIFO for writing, which lets the blocked open of the stuck work return.
    void release() {
        for (auto until = Clock::now() + 5s; Clock::now() < until;
             std::this_thread::sleep_for(5ms)) {
            const int writer = ::open(fifo().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (writer >= 0) {
                ::close(writer);
                return;
            }
        }
    }
    bool waitUntilNoneStuck() {
        for (auto until = Clock::now() + 5s; Clock::now() < until; std::this_thread::sleep_for(5ms))
            if (fileSystems.point(0)->stuck() == 0)
                return true;
        return false;
    }

    ScratchFolder scratch{"zorq-deadline"};
    MountedFileSystems fileSystems;
    // Blocks on the stuck mount only; elsewhere, the real health check.
    FSHealthService blocking{"", "vm.example", fileSystems, [this](MountPoint& point) {
                                 if (point.entry().mountPoint != stuckMount())
                                     return FSHealthService::check(point);
                                 const int fd = ::open(fifo().c_str(), O_RDONLY | O_CLOEXEC);
                                 if (fd >= 0)
                                     ::close(fd);
                                 return MountFinding{TestPassed, {}, "released"};
                             }};
    FSHealthService health{"", "vm.example", fileSystems};
    FSWriteProbeService probe{"", "vm.example", fileSystems};
};

TEST_F(MountDeadlineTest,
       ATestPastItsDeadlineReturnsTimeoutAndNoTestStartsOnThatMountUntilItReturns) {
    ScopedEnvironment deadline("ZORQ_FS_TEST_TIMEOUT_SECONDS", "0.3");
    {
        DiagnosticRecord record("ZORQ_FSDiagRecord");
        const auto start = Clock::now();
        EXPECT_EQ(TestTimedOut, run(blocking, stuckMount(), record));
        const auto waited = Clock::now() - start;
        EXPECT_GE(waited, 300ms);
        EXPECT_LT(waited, 3s) << "the call came back soon after its deadline";
        EXPECT_EQ("FS_TIMEOUT", record["ErrorCode"]);
        EXPECT_NE(std::string::npos, record["RecordData"].find("did not finish within 0.3 s"))
            << record["RecordData"];
        // The record goes now: the worker, still blocked, must not write into it when it returns.
    }
    EXPECT_EQ(1u, fileSystems.point(0)->stuck());

    for (MountTestService* service :
         {static_cast<MountTestService*>(&blocking), static_cast<MountTestService*>(&probe)}) {
        DiagnosticRecord record("ZORQ_FSDiagRecord");
        const auto start = Clock::now();
        EXPECT_EQ(TestTimedOut, run(*service, stuckMount(), record));
        EXPECT_LT(Clock::now() - start, 300ms) << "refused at once, without a new worker";
        EXPECT_EQ("FS_MOUNT_STUCK", record["ErrorCode"]);
        EXPECT_NE(std::string::npos, record["RecordData"].find("1 earlier test on this mount"))
            << record["RecordData"];
    }
    EXPECT_EQ(1u, fileSystems.point(0)->stuck()) << "refused runs started nothing";
    EXPECT_TRUE(fs::is_empty(stuckMount())) << "the probe did not run";
    DiagnosticRecord elsewhere("ZORQ_FSDiagRecord");
    EXPECT_EQ(TestPassed, run(blocking, otherMount(), elsewhere)) << elsewhere["RecordData"];

    release();
    ASSERT_TRUE(waitUntilNoneStuck()) << "the worker returned and is no longer counted";
    DiagnosticRecord again("ZORQ_FSDiagRecord");
    EXPECT_EQ(TestPassed, run(health, stuckMount(), again)) << again["RecordData"];
}

TEST_F(MountDeadlineTest, AnUnusableDeadlineGivesTheDefaultWithANote) {
    for (const char* value : {"soon", "0", "-1", "1e9", "nan", " 2.5 "}) {
        ScopedEnvironment deadline("ZORQ_FS_TEST_TIMEOUT_SECONDS", value);
        DiagnosticRecord record("ZORQ_FSDiagRecord");
        EXPECT_EQ(TestPassed, run(health, otherMount(), record));
        EXPECT_EQ(std::string(value) != " 2.5 ",
                  record["RecordData"].find("using the default") != std::string::npos)
            << value << ": " << record["RecordData"];
    }
}

TEST_F(MountDeadlineTest, WhatTheWorkThrowsBecomesATestThatCouldNotRun) {
    FSHealthService throwing{"", "vm.example", fileSystems,
                             [](MountPoint&) -> MountFinding { throw std::runtime_error("boom"); }};
    DiagnosticRecord record("ZORQ_FSDiagRecord");
    EXPECT_EQ(TestNotRun, run(throwing, otherMount(), record));
    EXPECT_EQ("FS_TEST_ABORTED", record["ErrorCode"]);
    EXPECT_EQ("The test stopped: boom", record["RecordData"]);
}

// Whether this process may make a mount namespace of its own and mount in it (root, or the
// capability): tried in a child, so this process is left as it was.
bool canMountPrivately() {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool ok = ::unshare(CLONE_NEWNS) == 0 &&
                        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        ::mount("zorq", "/tmp", "tmpfs", 0, "size=64k") == 0 &&
                        ::access("/dev/fuse", R_OK | W_OK) == 0;
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

// A FUSE mount whose daemon never answers: every request to it waits until the connection is
// aborted (its device closed). Start-up must publish it without waiting, a test of it must come
// back at its deadline, and once the connection is gone the mount is tested again.
void unansweringMountScenario() {
    Checks check;
    alarm(60); // a start-up or call that waits on the mount ends the scenario, failed
    check(::unshare(CLONE_NEWNS) == 0 &&
              ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
          "a mount namespace of our own");
    ScratchFolder scratch("zorq-unanswering");
    const std::string stuck = scratch.path() + "/stuck";
    const std::string other = scratch.path() + "/other";
    const std::string rebound = scratch.path() + "/rebound";
    for (const std::string& folder : {stuck, other, rebound})
        fs::create_directories(folder);
    const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(fuse) + ",rootmode=40000,user_id=0,group_id=0";
    check(fuse >= 0 && ::mount("zorq", stuck.c_str(), "fuse.zorqstuck", MS_NOSUID | MS_NODEV,
                               options.c_str()) == 0,
          "an unanswering FUSE mount");
    writeFile(scratch.path() + "/mounts", tableLine("zorq", stuck, "fuse.zorqstuck") +
                                              tableLine("/dev/zorqa", other) +
                                              tableLine("/dev/zorqb", rebound));
    ::setenv("ZORQ_FS_MOUNTS", (scratch.path() + "/mounts").c_str(), 1);
    ::setenv("ZORQ_NET_SYSFS", (scratch.path() + "/net").c_str(), 1);
    ::setenv("ZORQ_FS_TEST_TIMEOUT_SECONDS", "1", 1);

    Host& host = *makeHost().release();
    check(enumerate(host, "ZORQ_LocalFileSystem").size() == 3,
          "start-up publishes all three mounts");

    auto start = Clock::now();
    auto health = runFS(host, "FileSystemHealth", stuck);
    const double waited = std::chrono::duration<double>(Clock::now() - start).count();
    check(health.ok && health.returnValue == TestTimedOut && codeOf(health) == "{FS_TIMEOUT}",
          "the health check times out: " + codeOf(health) + " " + dataOf(health));
    check(waited >= 1 && waited < 5, "it returns at its deadline");
    start = Clock::now();
    auto probe = runFS(host, "FileSystemWriteProbe", stuck);
    check(probe.ok && probe.returnValue == TestTimedOut && codeOf(probe) == "{FS_MOUNT_STUCK}",
          "the probe is refused while the health check is stuck: " + codeOf(probe));
    check(Clock::now() - start < 1s, "at once");
    check(runFS(host, "FileSystemHealth", other).returnValue == TestPassed,
          "another mount is tested meanwhile");

    // The device the first test found is the mount's; another file system mounted there later
    // is not.
    check(runFS(host, "FileSystemWriteProbe", rebound).returnValue == TestPassed,
          "the probe passes on the rebound mount before");
    check(::mount("zorq", rebound.c_str(), "tmpfs", 0, "size=64k") == 0, "a tmpfs over it");
    auto moved = runFS(host, "FileSystemWriteProbe", rebound);
    check(moved.returnValue == TestFailed && codeOf(moved) == "{FS_MOUNT_REPLACED}" &&
              dataOf(moved).find("not on the mount's device") != std::string::npos,
          "the probe refuses another device: " + codeOf(moved) + " " + dataOf(moved));
    check(folderListing(rebound).empty(), "and wrote nothing there");
    ::umount2(rebound.c_str(), MNT_DETACH);

    ::close(fuse); // aborts the connection: the stuck worker returns with an error
    RunOutcome after;
    for (auto until = Clock::now() + 10s; Clock::now() < until; std::this_thread::sleep_for(20ms)) {
        after = runFS(host, "FileSystemHealth", stuck);
        if (codeOf(after) != "{FS_MOUNT_STUCK}")
            break;
    }
    check(after.returnValue == TestFailed && codeOf(after) == "{FS_UNREADABLE}",
          "once the worker returned, the mount is tested again: " + codeOf(after) + " " +
              dataOf(after));
    ::umount2(stuck.c_str(), MNT_DETACH);
    fs::remove_all(scratch.path());
    check.finish();
}

TEST(UnansweringMountTest, StartupDoesNotWaitOnItAndATestOfItReturnsAtItsDeadline) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "forks a multi-threaded process, which ThreadSanitizer does not support";
#endif
    if (!canMountPrivately())
        GTEST_SKIP() << "needs to mount in a namespace of its own (root or CAP_SYS_ADMIN)";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(unansweringMountScenario(), ::testing::ExitedWithCode(0), "");
}

} // namespace
