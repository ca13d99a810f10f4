// The threads streamed operations run on: kept for the next job, bounded, and ended only once the
// jobs given have run.
#include "server/OperationThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

namespace {

using diagserver::OperationThreads;

TEST(OperationThreadsTest, JobsOneAfterAnotherRunOnOneKeptThread) {
    OperationThreads threads(8);
    std::set<std::thread::id> ran;
    for (int i = 0; i < 20; ++i) {
        auto done = threads.run([&] { ran.insert(std::this_thread::get_id()); });
        ASSERT_TRUE(done);
        done->wait();
    }
    EXPECT_EQ(1u, ran.size());
    EXPECT_EQ(1u, threads.size());
}

TEST(OperationThreadsTest, AJobFindingEveryThreadBusyAndNoneToStartIsRefused) {
    OperationThreads threads(2);
    std::atomic<bool> release{false};
    auto hold = [&] {
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    auto first = threads.run(hold);
    auto second = threads.run(hold);
    ASSERT_TRUE(first && second);
    bool ranThird = false;
    EXPECT_FALSE(threads.run([&] { ranThird = true; }));
    release = true;
    first->wait();
    second->wait();
    auto later = threads.run([] {});
    ASSERT_TRUE(later);
    later->wait();
    EXPECT_FALSE(ranThird);
    EXPECT_EQ(2u, threads.size());
}

TEST(OperationThreadsTest, EndingTheSetWaitsForTheJobsGivenAndAThrowingJobEndsNoThread) {
    std::atomic<int> finished{0};
    {
        OperationThreads threads(4);
        threads.run([] { throw 1; })->wait();
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(threads.run([&] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                ++finished;
            }));
    }
    EXPECT_EQ(3, finished.load());
}

} // namespace
