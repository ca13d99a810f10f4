#include "server/CredentialCache.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

using diagserver::CredentialCache;
using namespace std::chrono_literals;

// A cache on a clock the test moves by hand.
struct ManualClock {
    CredentialCache::Clock::time_point now{};
    std::function<CredentialCache::Clock::time_point()> reader() {
        return [this] { return now; };
    }
};

TEST(CredentialCacheTest, StoredCredentialsAreFoundAndOnlyThose) {
    CredentialCache cache(8, 60s);
    EXPECT_FALSE(cache.contains("alice", "pw", 1));
    cache.insert("alice", "pw", 1);
    EXPECT_TRUE(cache.contains("alice", "pw", 1));
    EXPECT_FALSE(cache.contains("alice", "pw ", 1));
    EXPECT_FALSE(cache.contains("alice", "p", 1));
    EXPECT_FALSE(cache.contains("alice", "", 1));
    EXPECT_FALSE(cache.contains("bob", "pw", 1));
    EXPECT_FALSE(cache.contains("Alice", "pw", 1));
    // The user and the password are kept apart: moving the boundary makes other credentials.
    cache.insert("ab", "c", 1);
    EXPECT_FALSE(cache.contains("a", "bc", 1));
    EXPECT_FALSE(cache.contains("abc", "", 1));
    EXPECT_FALSE(cache.contains("a", std::string("b\0c", 3), 1));
    EXPECT_TRUE(cache.contains("ab", "c", 1));
}

TEST(CredentialCacheTest, ANewerGenerationForgetsEveryEntryAndAnOlderOneIsNotStored) {
    CredentialCache cache(8, 60s);
    cache.insert("alice", "a", 3);
    cache.insert("bob", "b", 3);
    EXPECT_TRUE(cache.contains("alice", "a", 3));
    EXPECT_FALSE(cache.contains("bob", "b", 4));
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_FALSE(cache.contains("alice", "a", 3)) << "the old generation came back";

    // A verification that began before the file changed ends after: not stored.
    cache.insert("alice", "a", 3);
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_FALSE(cache.contains("alice", "a", 4));
    cache.insert("alice", "a", 4);
    EXPECT_TRUE(cache.contains("alice", "a", 4));
}

TEST(CredentialCacheTest, EntriesExpireByTheClockAndStoringAgainRenews) {
    ManualClock clock;
    CredentialCache cache(8, 60s, clock.reader());
    cache.insert("alice", "a", 1);
    clock.now += 30s;
    cache.insert("bob", "b", 1);
    clock.now += 29s;
    EXPECT_TRUE(cache.contains("alice", "a", 1));
    clock.now += 1s;
    EXPECT_FALSE(cache.contains("alice", "a", 1)) << "60 s after it was stored";
    EXPECT_TRUE(cache.contains("bob", "b", 1));
    EXPECT_EQ(cache.size(), 1u) << "the expired entry is dropped";

    cache.insert("bob", "b", 1);
    EXPECT_EQ(cache.size(), 1u) << "one entry for the same credentials";
    clock.now += 59s;
    EXPECT_TRUE(cache.contains("bob", "b", 1)) << "the second storing started a new lifetime";
    clock.now += 1s;
    EXPECT_FALSE(cache.contains("bob", "b", 1));
}

TEST(CredentialCacheTest, ItStaysWithinItsCapacityDroppingTheOldest) {
    CredentialCache cache(16, 60s);
    for (int i = 0; i < 1000; ++i) {
        cache.insert("user" + std::to_string(i), "pw", 1);
        ASSERT_LE(cache.size(), 16u);
    }
    EXPECT_EQ(cache.size(), 16u);
    EXPECT_TRUE(cache.contains("user999", "pw", 1));
    EXPECT_TRUE(cache.contains("user984", "pw", 1));
    EXPECT_FALSE(cache.contains("user983", "pw", 1));
    EXPECT_FALSE(cache.contains("user0", "pw", 1));

    CredentialCache none(0, 60s);
    none.insert("alice", "a", 1);
    EXPECT_EQ(none.size(), 0u);
    EXPECT_FALSE(none.contains("alice", "a", 1));
}

TEST(CredentialCacheTest, ClearForgetsEveryEntry) {
    CredentialCache cache(8, 60s);
    cache.insert("alice", "a", 1);
    cache.insert("bob", "b", 1);
    cache.clear();
    EXPECT_EQ(cache.size(), 0u);
    EXPECT_FALSE(cache.contains("alice", "a", 1));
    EXPECT_FALSE(cache.contains("bob", "b", 1));
}

} // namespace
