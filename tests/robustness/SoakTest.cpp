// Many RunDiagnostic calls through the object manager, one after another: the records stay (the
// registry keeps every one), everything else a call makes is released. The long variant makes
// 200,000 runs; the default run a few thousand.
#include "RobustnessSupport.h"

#include "host/broker/Broker.h"
#include "host/broker/CallArena.h"
#include "host/broker/LogSink.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <iostream>

namespace {

using namespace robusttest;

class SoakTest : public ::testing::Test {
protected:
    void SetUp() override { targets = serviceTargets(host); }

    Host& host = zorqtest::sharedHost();
    std::vector<ServiceTarget> targets;
};

TEST_F(SoakTest, RunsKeepTheirRecordsAndReleaseEverythingElse) {
    const std::size_t runs = longRun() ? 200000 : (underSanitizer() ? 500 : 3000);
    // The health and link services: neither writes to the machine.
    std::vector<const ServiceTarget*> chosen;
    for (const ServiceTarget& t : targets)
        if (t.serviceName == "FileSystemHealth" || t.serviceName == "NetworkPortLink")
            chosen.push_back(&t);
    ASSERT_EQ(chosen.size(), 2u);

    // A first round warms up every cache and pool a run touches.
    for (const ServiceTarget* t : chosen)
        ASSERT_TRUE(runOnce(host, *t).ok());
    std::size_t recordsBefore = 0;
    for (const ServiceTarget* t : chosen)
        recordsBefore += servedCount(t->recordClass);
    // The host's log keeps what it is sent, for tests to read; it is no part of a run's cost.
    host.log().clear();
    const std::size_t brokerObjectsBefore = host.broker().ownArena().size();
    const std::size_t heapBefore = heapInUse();

    std::size_t failures = 0;
    std::string firstFailure;
    for (std::size_t i = 0; i < runs; ++i) {
        OperationResult result = runOnce(host, *chosen[i % chosen.size()]);
        if (!result.ok() && failures++ == 0)
            firstFailure = result.status.message;
        if (i % 256 == 255)
            host.log().clear();
    }
    host.log().clear();

    const std::size_t heapAfter = heapInUse();
    std::size_t recordsAfter = 0;
    for (const ServiceTarget* t : chosen)
        recordsAfter += servedCount(t->recordClass);
    EXPECT_EQ(failures, 0u) << firstFailure;
    EXPECT_EQ(recordsAfter, recordsBefore + runs);
    // Nothing a run makes outlives its call except the record's clone, which the registry owns.
    EXPECT_EQ(host.broker().ownArena().size(), brokerObjectsBefore);

    std::cout << runs << " runs, " << recordsAfter - recordsBefore << " new records, resident "
              << residentBytes() / 1024 << " KiB at the end";
    if (heapBefore != 0) {
        const double perRecord =
            (static_cast<double>(heapAfter) - static_cast<double>(heapBefore)) / runs;
        std::cout << ", heap growth " << perRecord << " bytes per record";
        ::testing::Test::RecordProperty("heapBytesPerRecord", static_cast<int>(perRecord));
        // A kept record (instance object, registry entry and CMPIInstance clone) costs a few
        // KiB; anything a run failed to release would come on top of it.
        EXPECT_LT(perRecord, 16 * 1024.0);
    }
    std::cout << std::endl;
    ::testing::Test::RecordProperty("residentKiB", static_cast<int>(residentBytes() / 1024));
}

} // namespace
