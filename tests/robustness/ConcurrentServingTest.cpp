// Four client threads against the same services of the real provider libraries at once:
// enumerations, gets, associators and RunDiagnostic calls, for a few seconds (a minute in the
// long variant). Nothing fails, nothing hangs, and every run leaves exactly one record.
#include "RobustnessSupport.h"

#include "host/broker/LogSink.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <map>
#include <thread>

namespace {

using namespace robusttest;

struct ThreadTally {
    std::map<std::string, std::size_t> runsPerRecordClass;
    std::size_t calls = 0;
    std::size_t failures = 0;
    std::string firstFailure;
};

class ConcurrentServingTest : public ::testing::Test {
protected:
    void SetUp() override { targets = serviceTargets(host); }

    void note(ThreadTally& tally, const OperationResult& result, const char* what) {
        ++tally.calls;
        if (result.ok())
            return;
        if (tally.failures++ == 0)
            tally.firstFailure = std::string(what) + ": " + result.status.message;
    }

    // Reads everything of every service, and runs the diagnostic of its own service (runs of one
    // service are timestamped to the microsecond, so two threads running the same one could be
    // given the same record identity).
    void client(std::size_t index, std::chrono::steady_clock::time_point until,
                ThreadTally& tally) {
        const ServiceTarget& own = targets[index % targets.size()];
        for (std::size_t round = 0; std::chrono::steady_clock::now() < until; ++round) {
            const ServiceTarget& other = targets[(index + round) % targets.size()];
            note(tally, host.enumerateInstances("root/cimv2", other.serviceClass), "enumerate");
            note(tally, host.enumerateInstanceNames("root/cimv2", other.availableClass),
                 "enumerate names");
            note(tally, host.getInstance(other.servicePath), "get");
            note(tally, host.associators(other.servicePath, other.availableClass), "associators");
            note(tally, host.associatorNames(other.servicePath, other.availableClass),
                 "associator names");
            OperationResult run = runOnce(host, own);
            note(tally, run, "RunDiagnostic");
            if (run.ok())
                ++tally.runsPerRecordClass[own.recordClass];
            if (round % 64 == 63)
                host.log().clear(); // the host's log for tests would only grow
        }
    }

    Host& host = zorqtest::sharedHost();
    std::vector<ServiceTarget> targets;
};

TEST_F(ConcurrentServingTest, EveryRunUnderFourThreadsLeavesExactlyOneRecord) {
    ASSERT_EQ(targets.size(), 4u);
    const auto duration = longRun() ? std::chrono::seconds(60) : std::chrono::seconds(3);
    std::map<std::string, std::size_t> before;
    for (const ServiceTarget& t : targets)
        before[t.recordClass] = servedCount(t.recordClass);

    constexpr std::size_t threadCount = 4;
    std::vector<ThreadTally> tallies(threadCount);
    const auto until = std::chrono::steady_clock::now() + duration;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < threadCount; ++i)
        threads.emplace_back([&, i] { client(i, until, tallies[i]); });
    for (std::thread& t : threads)
        t.join();

    std::map<std::string, std::size_t> runs;
    for (std::size_t i = 0; i < threadCount; ++i) {
        EXPECT_EQ(tallies[i].failures, 0u) << "thread " << i << ": " << tallies[i].firstFailure;
        EXPECT_GT(tallies[i].runsPerRecordClass.size(), 0u) << "thread " << i << " never ran";
        std::size_t threadRuns = 0;
        for (const auto& [recordClass, count] : tallies[i].runsPerRecordClass) {
            runs[recordClass] += count;
            threadRuns += count;
        }
        std::cout << "thread " << i << ": " << tallies[i].calls << " calls, " << threadRuns
                  << " RunDiagnostic\n";
    }
    for (const auto& [recordClass, count] : before) {
        const std::size_t after = servedCount(recordClass);
        std::cout << recordClass << ": " << runs[recordClass] << " runs, " << after - count
                  << " new records\n";
        EXPECT_EQ(after, count + runs[recordClass]) << recordClass;
        // The object manager's own enumeration sees the same records.
        EXPECT_EQ(host.enumerateInstanceNames("root/cimv2", recordClass).paths().size(), after)
            << recordClass;
    }
}

} // namespace
