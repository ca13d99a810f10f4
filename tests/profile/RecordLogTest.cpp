// The log of a service's runs: how many entries it keeps and which go when it is full, when
// entries expire, and that it stays bounded and consistent under floods and concurrent callers.
#include "profile/RecordLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using NQORVA20::profile::ProfileClock;
using NQORVA20::profile::RecordLog;
using Overwrite = RecordLog::Overwrite;

constexpr ProfileClock::Micros second = ProfileClock::second;

class RecordLogTest : public ::testing::Test {
protected:
    RecordLogTest() { clock.set(start); }

    // An entry for the run `id`, expiring after `persistence` seconds from now.
    RecordLog::Entry entry(const std::string& id,
                           std::uint32_t persistence = RecordLog::keepUntilCleared) {
        RecordLog::Entry e;
        e.id = id;
        e.expires = RecordLog::expiryFor(persistence, clock.now());
        e.completion = {{"InstanceID", id}, {"CompletionState", "2"}};
        e.setting = {{"InstanceID", id + ":Setting"}, {"LoopControl", "1"}};
        e.elementPath = "ZORQ_NetworkPort.DeviceID=\"lo\"";
        e.jobId = "ZORQ:Job:" + id;
        return e;
    }

    static std::vector<std::string> ids(const RecordLog& log) {
        std::vector<std::string> out;
        for (const RecordLog::Entry& e : log.entries())
            out.push_back(e.id);
        return out;
    }

    static constexpr ProfileClock::Micros start = 1795599000LL * second;
    ProfileClock clock;
};

using Ids = std::vector<std::string>;

// --- Capacity and overwrite policy ---

TEST_F(RecordLogTest, AWrappingLogDropsItsOldestEntryToTakeANewOne) {
    RecordLog log(3, Overwrite::Wraps, clock);
    EXPECT_EQ(3u, log.maxEntries());
    EXPECT_EQ(Overwrite::Wraps, log.policy());
    for (const char* id : {"1", "2", "3"})
        EXPECT_TRUE(log.add(entry(id)));
    EXPECT_EQ((Ids{"1", "2", "3"}), ids(log));
    EXPECT_TRUE(log.hasRoom());
    EXPECT_TRUE(log.add(entry("4", 60)));
    EXPECT_TRUE(log.add(entry("5", 60)));
    EXPECT_TRUE(log.add(entry("6", 60)));
    EXPECT_TRUE(log.add(entry("7")));
    EXPECT_EQ((Ids{"5", "6", "7"}), ids(log));
    // Nothing of a dropped entry stays behind in the log's indexes.
    const RecordLog::Footprint f = log.footprint();
    EXPECT_EQ(3u, f.entries);
    EXPECT_EQ(3u, f.ids);
    EXPECT_EQ(2u, f.expiries);
    EXPECT_EQ(3u, log.size());
    EXPECT_FALSE(log.find("1"));
    EXPECT_FALSE(log.find("4"));
    ASSERT_TRUE(log.find("5"));
    EXPECT_EQ("ZORQ:Job:5", log.find("5")->jobId);
}

TEST_F(RecordLogTest, ANeverOverwritingLogRefusesWhenFullAndSaysSoBeforehand) {
    RecordLog log(2, Overwrite::Never, clock);
    EXPECT_TRUE(log.hasRoom());
    EXPECT_TRUE(log.add(entry("1")));
    EXPECT_TRUE(log.hasRoom());
    EXPECT_TRUE(log.add(entry("2")));
    EXPECT_FALSE(log.hasRoom());
    EXPECT_FALSE(log.add(entry("3")));
    // The refused entry left nothing behind and pushed nothing out.
    EXPECT_EQ((Ids{"1", "2"}), ids(log));
    EXPECT_FALSE(log.find("3"));
    const RecordLog::Footprint f = log.footprint();
    EXPECT_EQ(2u, f.entries);
    EXPECT_EQ(2u, f.ids);
    EXPECT_EQ(0u, f.expiries);
    log.clear();
    EXPECT_TRUE(log.hasRoom());
    EXPECT_TRUE(log.add(entry("3")));
}

TEST_F(RecordLogTest, AnExpiredEntryMakesRoomInANeverOverwritingLog) {
    RecordLog log(2, Overwrite::Never, clock);
    EXPECT_TRUE(log.add(entry("1", 10)));
    EXPECT_TRUE(log.add(entry("2")));
    EXPECT_FALSE(log.hasRoom());
    clock.advance(10 * second);
    EXPECT_TRUE(log.hasRoom());
    EXPECT_TRUE(log.add(entry("3")));
    EXPECT_EQ((Ids{"2", "3"}), ids(log));
}

TEST_F(RecordLogTest, AnEntryWithAnIdAlreadyHeldReplacesItAsTheNewest) {
    RecordLog log(3, Overwrite::Never, clock);
    EXPECT_TRUE(log.add(entry("1", 10)));
    EXPECT_TRUE(log.add(entry("2")));
    EXPECT_TRUE(log.add(entry("3")));
    RecordLog::Entry again = entry("1");
    again.jobId = "ZORQ:Job:again";
    // Full, but the replaced entry's place is taken, not a new one.
    EXPECT_TRUE(log.add(again));
    EXPECT_EQ((Ids{"2", "3", "1"}), ids(log));
    EXPECT_EQ("ZORQ:Job:again", log.find("1")->jobId);
    // The old entry's expiry went with it: the replacement, kept until cleared, stays.
    clock.advance(10 * second);
    EXPECT_EQ(3u, log.size());
    const RecordLog::Footprint f = log.footprint();
    EXPECT_EQ(3u, f.entries);
    EXPECT_EQ(3u, f.ids);
    EXPECT_EQ(0u, f.expiries);
}

TEST_F(RecordLogTest, ALogOfNoEntriesKeepsNothing) {
    RecordLog wraps(0, Overwrite::Wraps, clock);
    EXPECT_TRUE(wraps.hasRoom());
    EXPECT_TRUE(wraps.add(entry("1")));
    EXPECT_EQ(0u, wraps.size());
    RecordLog never(0, Overwrite::Never, clock);
    EXPECT_FALSE(never.hasRoom());
    EXPECT_FALSE(never.add(entry("1")));
    EXPECT_EQ(0u, never.size());
}

// --- Expiry ---

TEST_F(RecordLogTest, EntriesDisappearExactlyAtTheirExpiryWhileOthersStay) {
    RecordLog log(10, Overwrite::Wraps, clock);
    EXPECT_TRUE(log.add(entry("older", 10)));
    EXPECT_TRUE(log.add(entry("sooner", 5)));
    EXPECT_TRUE(log.add(entry("forever")));
    clock.advance(5 * second - 1);
    EXPECT_EQ((Ids{"older", "sooner", "forever"}), ids(log));
    EXPECT_TRUE(log.find("sooner"));
    clock.advance(1);
    EXPECT_FALSE(log.find("sooner"));
    EXPECT_EQ(2u, log.size());
    EXPECT_EQ((Ids{"older", "forever"}), ids(log));
    clock.advance(5 * second - 1);
    EXPECT_TRUE(log.find("older"));
    clock.advance(1);
    EXPECT_FALSE(log.find("older"));
    EXPECT_EQ((Ids{"forever"}), ids(log));
    clock.advance(10LL * 365 * 24 * 3600 * second);
    EXPECT_EQ((Ids{"forever"}), ids(log));
}

TEST_F(RecordLogTest, AClockSetPastSeveralExpiriesRemovesThemAllAtOnce) {
    RecordLog log(10, Overwrite::Wraps, clock);
    for (std::uint32_t s = 1; s <= 6; ++s)
        EXPECT_TRUE(log.add(entry(std::to_string(s), 7 - s))); // "6" expires first
    clock.set(start + 3 * second);
    EXPECT_EQ((Ids{"1", "2", "3"}), ids(log));
    EXPECT_EQ(3u, log.footprint().expiries);
}

TEST_F(RecordLogTest, PersistenceZeroKeepsNothingAndPushesNothingOut) {
    EXPECT_FALSE(RecordLog::kept(0));
    EXPECT_TRUE(RecordLog::kept(1));
    EXPECT_TRUE(RecordLog::kept(RecordLog::keepUntilCleared));
    ASSERT_TRUE(RecordLog::expiryFor(0, start));
    EXPECT_EQ(start, *RecordLog::expiryFor(0, start));

    RecordLog wraps(2, Overwrite::Wraps, clock);
    EXPECT_TRUE(wraps.add(entry("gone", 0)));
    EXPECT_EQ(0u, wraps.size());
    EXPECT_FALSE(wraps.find("gone"));
    EXPECT_TRUE(wraps.add(entry("1")));
    EXPECT_TRUE(wraps.add(entry("2")));
    EXPECT_TRUE(wraps.add(entry("gone", 0)));
    EXPECT_EQ((Ids{"1", "2"}), ids(wraps));

    RecordLog never(1, Overwrite::Never, clock);
    EXPECT_TRUE(never.add(entry("1")));
    EXPECT_TRUE(never.add(entry("gone", 0)));
    EXPECT_EQ((Ids{"1"}), ids(never));
    EXPECT_EQ(0u, never.footprint().expiries);
}

TEST_F(RecordLogTest, PersistenceAllOnesKeepsTheEntryUntilCleared) {
    EXPECT_FALSE(RecordLog::expiryFor(0xFFFFFFFFu, start));
    RecordLog log(4, Overwrite::Wraps, clock);
    EXPECT_TRUE(log.add(entry("1")));
    EXPECT_TRUE(log.add(entry("2", 60)));
    clock.advance(100LL * 365 * 24 * 3600 * second);
    EXPECT_EQ((Ids{"1"}), ids(log));
    log.clear();
    EXPECT_FALSE(log.find("1"));
    EXPECT_EQ(0u, log.size());
}

TEST_F(RecordLogTest, ExpiryIsNowPlusThePersistenceInSeconds) {
    EXPECT_EQ(start + second, RecordLog::expiryFor(1, start));
    EXPECT_EQ(start + 604800 * second, RecordLog::expiryFor(604800, start));
    EXPECT_EQ(start + 0xFFFFFFFELL * second, RecordLog::expiryFor(0xFFFFFFFEu, start));
    // A clock at the far end of its range does not wrap into the past.
    const ProfileClock::Micros last = std::numeric_limits<ProfileClock::Micros>::max();
    EXPECT_EQ(last, RecordLog::expiryFor(10, last - second));
}

// --- What entries hold and what reads return ---

TEST_F(RecordLogTest, AnEntryKeepsItsRecordsAndKeysAndIsStampedWhenFiled) {
    RecordLog log(2, Overwrite::Wraps, clock);
    EXPECT_TRUE(log.add(entry("1", 30)));
    RecordLog::Entry given = entry("2");
    given.created = start - 7 * second;
    EXPECT_TRUE(log.add(given));
    const std::optional<RecordLog::Entry> one = log.find("1");
    ASSERT_TRUE(one);
    EXPECT_EQ(start, one->created);
    EXPECT_EQ(start + 30 * second, one->expires);
    EXPECT_EQ("1", one->completion.at("InstanceID"));
    EXPECT_EQ("1:Setting", one->setting.at("InstanceID"));
    EXPECT_EQ("1", one->setting.at("LoopControl"));
    EXPECT_EQ("ZORQ_NetworkPort.DeviceID=\"lo\"", one->elementPath);
    EXPECT_EQ("ZORQ:Job:1", one->jobId);
    EXPECT_EQ(start - 7 * second, log.find("2")->created);
}

TEST_F(RecordLogTest, ReadsReturnCopiesTheLogDoesNotShare) {
    RecordLog log(2, Overwrite::Wraps, clock);
    EXPECT_TRUE(log.add(entry("1")));
    std::vector<RecordLog::Entry> all = log.entries();
    all.front().completion["InstanceID"] = "changed";
    std::optional<RecordLog::Entry> found = log.find("1");
    found->jobId = "changed";
    EXPECT_EQ("1", log.find("1")->completion.at("InstanceID"));
    EXPECT_EQ("ZORQ:Job:1", log.find("1")->jobId);
}

TEST_F(RecordLogTest, ClearEmptiesTheLogAndItsIndexes) {
    RecordLog log(5, Overwrite::Wraps, clock);
    for (const char* id : {"1", "2", "3"})
        EXPECT_TRUE(log.add(entry(id, 60)));
    log.clear();
    EXPECT_EQ(0u, log.size());
    EXPECT_TRUE(log.entries().empty());
    EXPECT_FALSE(log.find("2"));
    const RecordLog::Footprint f = log.footprint();
    EXPECT_EQ(0u, f.entries + f.ids + f.expiries);
    EXPECT_TRUE(log.add(entry("2")));
    EXPECT_EQ((Ids{"2"}), ids(log));
}

// --- Staying bounded ---

TEST_F(RecordLogTest, AMillionAddsToAHundredEntryLogStayBounded) {
    RecordLog log(100, Overwrite::Wraps, clock);
    constexpr int total = 1000000;
    for (int i = 0; i < total; ++i) {
        // Some kept until cleared, some expiring soon, most long after they are pushed out.
        const std::uint32_t persistence =
            i % 7 == 0 ? RecordLog::keepUntilCleared : (i % 3 == 0 ? 2 : 3600);
        RecordLog::Entry e;
        e.id = std::to_string(i);
        e.expires = RecordLog::expiryFor(persistence, clock.now());
        e.completion = {{"InstanceID", e.id}};
        ASSERT_TRUE(log.add(std::move(e)));
        clock.advance(second / 10);
        if (i % 10000 == 0) {
            const RecordLog::Footprint f = log.footprint();
            ASSERT_LE(f.entries, 100u);
            ASSERT_EQ(f.entries, f.ids);
            ASSERT_LE(f.expiries, f.entries);
        }
    }
    // What remains is a full log of the newest runs, oldest first: every run since the oldest one
    // kept, less those that expired after two seconds (the clock moved a tenth of a second a run).
    const auto expired = [](int i) { return i % 3 == 0 && i % 7 != 0 && i + 20 <= total; };
    const Ids kept = ids(log);
    ASSERT_EQ(100u, kept.size());
    Ids expected;
    for (int i = std::stoi(kept.front()); i < total; ++i)
        if (!expired(i))
            expected.push_back(std::to_string(i));
    EXPECT_EQ(expected, kept);
    const RecordLog::Footprint f = log.footprint();
    EXPECT_EQ(100u, f.entries);
    EXPECT_EQ(100u, f.ids);
}

// --- Concurrent callers ---

TEST_F(RecordLogTest, ConcurrentAddersAndReadersSeeAConsistentLog) {
    RecordLog log(50, Overwrite::Wraps, clock);
    constexpr int adders = 3;
    constexpr int perAdder = 2000;
    std::atomic<bool> done{false};
    std::atomic<int> faults{0};

    std::vector<std::thread> threads;
    for (int a = 0; a < adders; ++a)
        threads.emplace_back([&, a] {
            for (int i = 0; i < perAdder; ++i) {
                const std::string id = std::to_string(a) + ":" + std::to_string(i);
                if (!log.add(entry(id, i % 2 == 0 ? 1 : RecordLog::keepUntilCleared)))
                    faults.fetch_add(1);
                if (i % 500 == 0)
                    log.clear();
            }
        });
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r)
        readers.emplace_back([&] {
            while (!done.load()) {
                const std::vector<RecordLog::Entry> all = log.entries();
                if (all.size() > 50)
                    faults.fetch_add(1);
                ProfileClock::Micros previous = 0;
                for (const RecordLog::Entry& e : all) {
                    // Filed in order under one lock with a clock that only moves forward.
                    if (e.created < previous || e.completion.at("InstanceID") != e.id)
                        faults.fetch_add(1);
                    previous = e.created;
                }
                if (!all.empty()) {
                    const std::optional<RecordLog::Entry> found = log.find(all.back().id);
                    if (found && found->jobId != "ZORQ:Job:" + found->id)
                        faults.fetch_add(1);
                }
                if (log.size() > 50 || log.footprint().entries > 50)
                    faults.fetch_add(1);
                log.hasRoom();
            }
        });
    std::thread ticker([&] {
        while (!done.load()) {
            clock.advance(second / 100);
            std::this_thread::yield();
        }
    });
    for (std::thread& t : threads)
        t.join();
    done.store(true);
    for (std::thread& t : readers)
        t.join();
    ticker.join();
    EXPECT_EQ(0, faults.load());
    EXPECT_LE(log.size(), 50u);
}

} // namespace
