// The core and the provider libraries under an object manager whose broker functions fail: every
// answer is a status (the ones the providers give anyway, or CMPI_RC_ERR_FAILED), never a crash,
// and once the broker works again every answer is what it was before.
#include "RobustnessSupport.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/testing/FaultInjector.h"

#include <cmpift.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

namespace {

using namespace robusttest;
using diaghost::FaultInjector;
using Function = FaultInjector::Function;

const std::initializer_list<Function> everyFunction = {
    Function::NewInstance, Function::NewObjectPath,      Function::NewString, Function::NewArray,
    Function::GetProperty, Function::EnumerateInstances, Function::Clone};

// The statuses an operation may answer while the broker fails under it.
bool acceptable(const OperationResult& result) {
    switch (result.status.rc) {
    case CMPI_RC_OK:
    case CMPI_RC_ERR_FAILED:
    case CMPI_RC_ERR_NOT_FOUND:
    case CMPI_RC_ERR_INVALID_PARAMETER:
    case CMPI_RC_ERR_INVALID_CLASS:
    case CMPI_RC_ERR_METHOD_NOT_FOUND:
        return true;
    default:
        return false;
    }
}

struct Snapshot {
    std::set<std::string> servicePaths;
    std::set<std::string> associated; // association paths per service, as text
    bool operator==(const Snapshot& other) const {
        return servicePaths == other.servicePaths && associated == other.associated;
    }
};

class BrokerFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        targets = serviceTargets(host);
        host.broker().setFaultHook(&injector);
    }
    void TearDown() override { host.broker().setFaultHook(nullptr); }

    FaultInjector& faults() { return injector; }

    // Every operation the services serve, once per service; each answer must be acceptable.
    void exerciseEverything() {
        for (const ServiceTarget& t : targets) {
            SCOPED_TRACE(t.serviceName);
            check(host.enumerateInstances("root/cimv2", t.serviceClass));
            check(host.enumerateInstanceNames("root/cimv2", t.recordClass));
            check(host.getInstance(t.servicePath));
            check(host.associators(t.servicePath, t.availableClass));
            check(host.associatorNames(t.servicePath, t.availableClass));
            check(host.invokeMethod(t.servicePath, "NoSuchMethod"));
            try {
                check(runOnce(host, t));
            } catch (const std::exception&) {
                // The client side could not make the element's path; the core was not reached.
            }
        }
    }

    void check(const OperationResult& result) {
        EXPECT_TRUE(acceptable(result))
            << diaghost::rcName(result.status.rc) << ": " << result.status.message;
    }

    Snapshot snapshot() {
        Snapshot s;
        for (const ServiceTarget& t : targets) {
            s.servicePaths.insert(t.servicePath);
            auto names = host.associatorNames(t.servicePath, t.availableClass);
            EXPECT_TRUE(names.ok()) << names.status.message;
            for (const CMPIObjectPath* path : names.paths())
                s.associated.insert(t.servicePath + " -> " + host.pathText(path));
        }
        return s;
    }

    Host& host = zorqtest::sharedHost();
    std::vector<ServiceTarget> targets;
    FaultInjector injector;
};

TEST_F(BrokerFaultTest, EveryNthFailureOfEveryFunctionAnswersStatusesNotCrashes) {
    ASSERT_EQ(targets.size(), 4u);
    for (unsigned int n : {1u, 2u, 3u, 4u, 5u, 7u, 11u, 13u}) {
        SCOPED_TRACE("every " + std::to_string(n));
        faults().failEvery(n, everyFunction);
        exerciseEverything();
        faults().disarm();
    }
    EXPECT_GT(faults().totalFailures(), 0u);
}

TEST_F(BrokerFaultTest, SeededRandomFailuresAnswerStatusesNotCrashes) {
    const std::uint64_t seeds = longRun() ? 400 : 12;
    for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        faults().failAtRandom(seed % 2 ? 0.05 : 0.3, seed, everyFunction);
        exerciseEverything();
        faults().disarm();
    }
    EXPECT_GT(faults().totalFailures(), 0u);
}

TEST_F(BrokerFaultTest, EachFunctionFailingAloneIsSurvived) {
    for (Function f : everyFunction) {
        for (unsigned int n : {1u, 2u, 3u}) {
            SCOPED_TRACE(std::string(diaghost::FaultHook::name(f)) + " every " + std::to_string(n));
            faults().failEvery(n, {f});
            exerciseEverything();
            faults().disarm();
        }
    }
}

TEST_F(BrokerFaultTest, RunWhoseRecordCannotBeMadeFailsWithAMessageAndPublishesNothing) {
    for (Function f : {Function::NewInstance, Function::Clone}) {
        SCOPED_TRACE(diaghost::FaultHook::name(f));
        const ServiceTarget& target = targets.front();
        const std::size_t before = servedCount(target.recordClass);
        faults().failEvery(1, {f});
        OperationResult result = runOnce(host, target);
        faults().disarm();
        EXPECT_EQ(result.status.rc, CMPI_RC_ERR_FAILED);
        EXPECT_NE(result.status.message.find("could not publish the record"), std::string::npos)
            << result.status.message;
        EXPECT_EQ(servedCount(target.recordClass), before);
    }
}

TEST_F(BrokerFaultTest, MissingGetInstanceStillFailsWhenTheMessageCannotBeMade) {
    diaghost::CallScope scope(host.broker());
    const CMPIObjectPath* unknown = host.parsePath(unknownServicePath(targets.front()));
    faults().failEvery(1, {Function::NewString});
    OperationResult result = host.getInstance(unknown);
    faults().disarm();
    EXPECT_TRUE(result.status.rc == CMPI_RC_ERR_FAILED || result.status.rc == CMPI_RC_ERR_NOT_FOUND)
        << diaghost::rcName(result.status.rc);
}

TEST_F(BrokerFaultTest, AnswersAfterTheFaultsAreTheAnswersBefore) {
    const Snapshot before = snapshot();
    faults().failAtRandom(0.2, 42, everyFunction);
    exerciseEverything();
    faults().disarm();
    EXPECT_TRUE(snapshot() == before);
    for (const ServiceTarget& t : targets) {
        const std::size_t records = servedCount(t.recordClass);
        OperationResult result = runOnce(host, t);
        EXPECT_TRUE(result.ok()) << result.status.message;
        EXPECT_EQ(servedCount(t.recordClass), records + 1) << t.serviceName;
    }
}

// Start-up runs once per process, so it is tried in a fresh one (no fixture: it would start the
// providers first): they publish what the failing broker lets them and serve it without crashing.
TEST(BrokerFaultStartUpTest, StartUpUnderFailingBrokerNeverCrashes) {
    if (underThreadSanitizer())
        GTEST_SKIP() << "death tests fork a multi-threaded process, which ThreadSanitizer does "
                        "not support";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // A fresh object manager in the child: its providers have not started yet.
            zorqtest::FakeSystem::instance();
            auto fresh = zorqtest::makeHost();
            FaultInjector injector;
            fresh->broker().setFaultHook(&injector);
            injector.failAtRandom(0.2, 7, everyFunction);
            for (const char* cls :
                 {"ZORQ_ComputerSystem", "ZORQ_FSDiagService", "ZORQ_NetDiagService",
                  "ZORQ_FSAvailableDiagService", "ZORQ_NetDiagLog"})
                fresh->enumerateInstances("root/cimv2", cls);
            injector.disarm();
            const bool served = fresh->enumerateInstances("root/cimv2", "ZORQ_FSDiagService").ok();
            std::_Exit(served ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
