// The profile layer's clock and its CIM datetime texts.
#include "profile/ProfileClock.h"

#include <gtest/gtest.h>

namespace {

using NQORVA20::profile::ProfileClock;

TEST(ProfileClockTest, TextsAreCimDatetimesAndIntervalsReadBack) {
    // 2026-11-25 09:30:05.000042 UTC
    const ProfileClock::Micros at = 1795599005LL * ProfileClock::second + 42;
    EXPECT_EQ("20261125093005.000042+000", ProfileClock::timestampText(at));
    const ProfileClock::Micros length =
        ((3 * 86400 + 4 * 3600 + 5 * 60 + 6) * ProfileClock::second) + 7;
    EXPECT_EQ("00000003040506.000007:000", ProfileClock::intervalText(length));
    EXPECT_EQ(length, ProfileClock::parseInterval(ProfileClock::intervalText(length)));
    EXPECT_EQ("00000000000000.000000:000", ProfileClock::intervalText(-5));
    for (const char* bad : {"", "00000000000500.000000:000x", "00000000240000.000000:000",
                            "0000000000005a.000000:000", "20261125093005.000042+000"})
        EXPECT_FALSE(ProfileClock::parseInterval(bad)) << bad;
}

TEST(ProfileClockTest, ASetClockStandsUntilMoved) {
    ProfileClock clock;
    const ProfileClock::Micros before = clock.now();
    EXPECT_GT(before, 1700000000LL * ProfileClock::second);
    clock.set(1000);
    EXPECT_EQ(1000, clock.now());
    clock.advance(5 * ProfileClock::second);
    EXPECT_EQ(1000 + 5 * ProfileClock::second, clock.now());
}

} // namespace
