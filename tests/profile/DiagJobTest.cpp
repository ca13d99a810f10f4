// Jobs of RunDiagnosticService runs: their states, what a stop request does to them, and how long
// the table keeps them.
#include "profile/DiagJob.h"
#include "profile/JobTable.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using NQORVA20::profile::DiagJob;
using NQORVA20::profile::JobTable;
using NQORVA20::profile::ObjectName;
using NQORVA20::profile::ProfileClock;
using State = DiagJob::State;

class DiagJobTest : public ::testing::Test {
protected:
    DiagJobTest() { clock.set(1795599000LL * ProfileClock::second); }

    DiagJob::Identity identity(bool deleteOnCompletion = true) {
        DiagJob::Identity id;
        id.instanceId = "ZORQ:Job:1";
        id.service = ObjectName{"ZORQ_NetDiagService", {{"Name", "NetworkPortLink"}}, {}};
        id.element = ObjectName{"ZORQ_NetworkPort", {{"DeviceID", "lo"}}, {}};
        id.deleteOnCompletion = deleteOnCompletion;
        id.timeBeforeRemoval = 60 * ProfileClock::second;
        return id;
    }

    ProfileClock clock;
};

TEST_F(DiagJobTest, ARunGoesFromNewThroughRunningToItsEnd) {
    struct Case {
        const char* error;
        std::uint16_t stop; // 0: none
        State end;
    };
    for (const Case& c :
         {Case{"", 0, State::Completed}, Case{"no such device", 0, State::Exception},
          Case{"", 4, State::Terminated}, Case{"", 5, State::Killed}}) {
        DiagJob job(identity(), clock);
        EXPECT_EQ(State::New, job.state());
        job.started();
        EXPECT_EQ(State::Running, job.state());
        job.progress(40);
        if (c.stop != 0) {
            EXPECT_EQ(4096u, job.requestStateChange(c.stop));
            EXPECT_EQ(State::ShuttingDown, job.state());
            EXPECT_EQ(c.stop == 5 ? DiagJob::Stop::Kill : DiagJob::Stop::Terminate,
                      job.stopRequested());
        }
        clock.advance(3 * ProfileClock::second);
        job.finished(c.error);
        EXPECT_EQ(c.end, job.state());
        EXPECT_TRUE(job.ended());
        // An ended job takes no more state changes, and its end stays.
        EXPECT_EQ(4097u, job.requestStateChange(5));
        job.finished("later");
        EXPECT_EQ(c.end, job.state());
        // Without a broker there is no instance to make.
        EXPECT_EQ(nullptr, job.toObject("ZORQ_NetDiagJob").toInstance(nullptr, "root/cimv2"));
    }
}

TEST_F(DiagJobTest, TransitionsJobsDoNotTakeAreRefused) {
    DiagJob job(identity(), clock);
    EXPECT_EQ(1u, job.requestStateChange(2)); // Start
    EXPECT_EQ(1u, job.requestStateChange(3)); // Suspend
    EXPECT_EQ(1u, job.requestStateChange(6)); // Service
    EXPECT_EQ(5u, job.requestStateChange(0));
    EXPECT_EQ(5u, job.requestStateChange(99));
    EXPECT_EQ(DiagJob::Stop::None, job.stopRequested());
    // A stop asked for before the worker starts is what the worker finds.
    EXPECT_EQ(4096u, job.requestStateChange(4));
    job.started();
    EXPECT_EQ(State::ShuttingDown, job.state());
    job.finished();
    EXPECT_EQ(State::Terminated, job.state());
}

TEST_F(DiagJobTest, AJobIsKeptItsTimeBeforeRemovalAfterItEnds) {
    JobTable table(clock);
    auto kept = table.add("ZORQ:Job:", identity(false));
    auto removed = table.add("ZORQ:Job:", identity(true));
    EXPECT_NE(kept->identity().instanceId, removed->identity().instanceId);
    EXPECT_EQ(removed, table.find(removed->identity().instanceId));
    removed->started();
    clock.advance(600 * ProfileClock::second); // a running job is never removed
    EXPECT_EQ(2u, table.size());
    removed->finished();
    kept->started();
    kept->finished();
    clock.advance(59 * ProfileClock::second);
    EXPECT_EQ(2u, table.size());
    clock.advance(1 * ProfileClock::second);
    EXPECT_EQ(nullptr, table.find(removed->identity().instanceId));
    EXPECT_EQ(kept, table.find(kept->identity().instanceId));
}

TEST_F(DiagJobTest, TheTableKeepsABoundedNumberOfEndedJobs) {
    JobTable table(clock, 3);
    std::vector<std::shared_ptr<DiagJob>> jobs;
    for (int i = 0; i < 10; ++i) {
        jobs.push_back(table.add("J", identity(false)));
        jobs.back()->started();
        clock.advance(ProfileClock::second);
        if (i != 0) // the first stays running
            jobs.back()->finished();
    }
    auto left = table.all();
    ASSERT_EQ(4u, left.size());
    EXPECT_EQ(jobs[0], left[0]);
    EXPECT_EQ(jobs[7], left[1]);
    EXPECT_EQ(jobs[9], left[3]);
}

TEST_F(DiagJobTest, StopsProgressAndReadsMayComeFromOtherThreads) {
    JobTable table(clock);
    auto job = table.add("J", identity());
    std::thread worker([&] {
        job->started();
        for (unsigned p = 0; p <= 100 && job->stopRequested() == DiagJob::Stop::None; ++p) {
            job->progress(p);
            std::this_thread::yield();
        }
        job->finished();
    });
    for (int i = 0; i < 50; ++i)
        (void)job->toObject("ZORQ_NetDiagJob");
    job->requestStateChange(5);
    worker.join();
    EXPECT_TRUE(job->state() == State::Killed || job->state() == State::Completed);
}

} // namespace
