// RunDiagnostic on the file-system family through the object manager: passing and failing
// health checks, the write probe on writable and read-only mounts, refused elements, and the
// records the runs leave behind.
#include "ProviderTestSupport.h"

#include "host/broker/CallScope.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace {

using namespace zorqtest;

class FileSystemDiagnosticsTest : public ::testing::Test {
protected:
    RunOutcome run(const std::string& service, const std::string& elementPath) {
        return runDiagnostic(host, "ZORQ_FSDiagService", service, elementPath, "ZORQ_FSDiagRecord");
    }
    RunOutcome health(const std::string& mount) {
        return run("FileSystemHealth", fileSystemPath(fake.mountPoint(mount)));
    }
    RunOutcome probe(const std::string& mount) {
        return run("FileSystemWriteProbe", fileSystemPath(fake.mountPoint(mount)));
    }

    Host& host = sharedHost();
    FakeSystem& fake = FakeSystem::instance();
};

TEST_F(FileSystemDiagnosticsTest, HealthPassesOnAListableMountAndSaysWhatItChecked) {
    for (const char* mount : {"rw", "with space"}) {
        auto outcome = health(mount);
        EXPECT_RECORD(outcome, 0u, "");
        Properties& record = *outcome.record;
        EXPECT_EQ("1", record["LoopsPassed"]);
        EXPECT_EQ("0", record["LoopsFailed"]);
        const std::string& data = record["RecordData"];
        EXPECT_EQ(0u, data.find("Test Passed: " + fake.mountPoint(mount))) << data;
        EXPECT_NE(std::string::npos, data.find("free space")) << data;
        EXPECT_NE(std::string::npos, data.find("mounted read-write")) << data;
    }
}

TEST_F(FileSystemDiagnosticsTest, HealthFailsBelowTheThresholdsReadAtEachRun) {
    {
        ScopedEnvironment space("ZORQ_FS_MIN_FREE_PERCENT", "100");
        auto outcome = health("rw");
        EXPECT_RECORD(outcome, 1u, "{FS_LOW_SPACE}");
        EXPECT_EQ("{1}", (*outcome.record)["ErrorCount"]);
        EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("minimum 100.0%"));
    }
    {
        ScopedEnvironment space("ZORQ_FS_MIN_FREE_PERCENT", "100");
        ScopedEnvironment inodes("ZORQ_FS_MIN_FREE_INODES_PERCENT", "100");
        auto outcome = health("rw");
        EXPECT_RECORD(outcome, 1u, "{FS_LOW_SPACE, FS_LOW_INODES}");
        EXPECT_EQ("{1, 1}", (*outcome.record)["ErrorCount"]);
    }
    {
        ScopedEnvironment garbage("ZORQ_FS_MIN_FREE_PERCENT", "plenty");
        auto outcome = health("rw");
        EXPECT_RECORD(outcome, 0u, "");
        EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("using the default"));
    }
    EXPECT_EQ(0u, health("rw").returnValue) << "the defaults apply again";
}

TEST_F(FileSystemDiagnosticsTest, HealthReportsReadOnlyMountsWithoutFailingThem) {
    auto outcome = health("ro");
    EXPECT_RECORD(outcome, 0u, "");
    EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("mounted read-only"));
}

TEST_F(FileSystemDiagnosticsTest, HealthFailsWhenThePublishedMountPointIsGone) {
    enumerate(host, "ZORQ_LocalFileSystem"); // the provider has started with the folder present
    std::filesystem::remove(fake.mountPoint("vanishing"));
    auto outcome = health("vanishing");
    EXPECT_RECORD(outcome, 1u, "{FS_UNREADABLE}");
    EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("No such file or directory"))
        << (*outcome.record)["RecordData"];
}

TEST_F(FileSystemDiagnosticsTest, WriteProbePassesAndLeavesNothingBehind) {
    const auto before = folderListing(fake.mountPoint("rw"));
    auto outcome = probe("rw");
    EXPECT_RECORD(outcome, 0u, "");
    EXPECT_NE(std::string::npos,
              (*outcome.record)["RecordData"].find("wrote, synced, read back and removed 4096"));
    EXPECT_EQ(before, folderListing(fake.mountPoint("rw")));
}

TEST_F(FileSystemDiagnosticsTest, WriteProbeIsSkippedOnAReadOnlyMountWithItsOwnReturnValue) {
    const auto before = folderListing(fake.mountPoint("ro"));
    auto outcome = probe("ro");
    EXPECT_RECORD(outcome, 3u, "{FS_PROBE_SKIPPED}");
    EXPECT_NE(std::string::npos, (*outcome.record)["RecordData"].find("read-only"));
    EXPECT_EQ(before, folderListing(fake.mountPoint("ro")))
        << "the folder is writable, yet untouched";
}

TEST_F(FileSystemDiagnosticsTest, ConcurrentProbesOfOneMountAllPassAndLeaveNothingBehind) {
    const auto before = folderListing(fake.mountPoint("rw"));
    std::string probeService;
    auto services = host.enumerateInstances("root/cimv2", "ZORQ_FSDiagService");
    for (const CMPIInstance* service : services.instances())
        if (host.propertyText(service, "Name") == "FileSystemWriteProbe")
            probeService = host.pathText(service->ft->getObjectPath(service, nullptr));
    ASSERT_FALSE(probeService.empty());
    std::atomic<int> passed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i) {
                diaghost::CallScope scope(host.broker());
                CMPIData element{};
                element.type = CMPI_ref;
                element.value.ref = host.parsePath(fileSystemPath(fake.mountPoint("rw")));
                auto result =
                    host.invokeMethod(probeService, "RunDiagnostic", {{"ManagedElement", element}});
                if (result.ok() && result.returnValue().value.uint32 == 0)
                    ++passed;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(20, passed.load());
    EXPECT_EQ(before, folderListing(fake.mountPoint("rw")));
}

TEST_F(FileSystemDiagnosticsTest, ElementsTheProviderDidNotPublishAreRefusedAndUntouched) {
    const std::string unlisted = fake.mountPoint("unlisted");
    const std::string system = expectedSystemName();
    const std::string foreign[] = {
        fileSystemPath(unlisted),
        fileSystemPath("/etc/passwd"),
        fileSystemPath(fake.mountPoint("rw") + "/../unlisted"),
        fileSystemPath(fake.mountPoint("proc")), // in the table, but not a local file system
        pathText("ZORQ_LocalFileSystem", {{"Name", fake.mountPoint("rw")}}),
        networkPortPath("eth0"),
        pathText("ZORQ_LocalFileSystem", {{"CSCreationClassName", "ZORQ_ComputerSystem"},
                                          {"CSName", "another.machine"},
                                          {"CreationClassName", "ZORQ_LocalFileSystem"},
                                          {"Name", fake.mountPoint("rw")}}),
    };
    for (const std::string& element : foreign) {
        for (const char* service : {"FileSystemHealth", "FileSystemWriteProbe"}) {
            auto outcome = run(service, element);
            EXPECT_RECORD(outcome, 2u, "{FS_NOT_PUBLISHED}");
            if (outcome.record) {
                EXPECT_EQ(0u, (*outcome.record)["RecordData"].find("Refused: "))
                    << (*outcome.record)["RecordData"];
                EXPECT_NE(std::string::npos,
                          (*outcome.record)["RecordData"].find("nothing was tested"));
            }
        }
    }
    EXPECT_EQ(std::vector<std::string>{"canary"}, folderListing(unlisted));
}

TEST_F(FileSystemDiagnosticsTest, RecordsCarryTheIdentityRunDiagnosticGivesThem) {
    auto outcome = health("rw");
    ASSERT_TRUE(outcome.record);
    Properties& record = *outcome.record;
    for (const char* property : {"Caption", "Description", "ElementName", "ServiceName",
                                 "ManagedElementName", "InstanceID", "CreationTimeStamp"})
        EXPECT_TRUE(record.count(property) && !record[property].empty()) << property;
    EXPECT_EQ("FileSystemHealth", record["ServiceName"]);
    EXPECT_EQ(fake.mountPoint("rw"), record["ManagedElementName"]);
    EXPECT_EQ(0u, record["InstanceID"].find("ZORQ_FSDiagService:FileSystemHealth:"));
    EXPECT_EQ("Result for File system health", record["Caption"]);

    // Every run published a record of its own.
    const std::size_t records = enumerate(host, "ZORQ_FSDiagRecord").size();
    health("rw");
    EXPECT_EQ(records + 1, enumerate(host, "ZORQ_FSDiagRecord").size());
}

} // namespace
