// A provider library's start-up runs once, before the first operation it serves, and never makes
// a call wait without bound: not a call its own upcall causes on another thread, not a client
// that arrives while it runs.
#include "CoreTestSupport.h"

#include "common/ProviderScope.h"
#include "diag/DiagUser.h"
#include "entry/ProviderStartup.h"
#include "instance/InstanceRegistry.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

using namespace coretest;
using NQORVA20::ProviderScope;
using NQORVA20::ProviderStartup;
using namespace std::chrono_literals;

namespace {

// What the start-up functions below do; a start-up is a plain function, so they share these.
std::atomic<int> runs{0};
std::promise<void>* started = nullptr;
std::shared_future<void> release;
std::function<void()> duringStartup;

void countingStartup(const CMPIBroker*, const CMPIContext*) {
    ++runs;
    if (started)
        started->set_value();
    if (duringStartup)
        duringStartup();
    if (release.valid())
        release.wait();
}

void throwingStartup(const CMPIBroker*, const CMPIContext*) {
    ++runs;
    throw std::runtime_error("no elements");
}

class ProviderStartupTest : public testing::Test {
protected:
    void SetUp() override {
        runs = 0;
        started = nullptr;
        release = {};
        duringStartup = nullptr;
        dialectBroker(PathDialect::Pegasus).log.clear();
    }
    const CMPIBroker* broker() { return dialectBroker(PathDialect::Pegasus).broker->cmpi(); }

    // Starts the start-up on a thread of its own and returns once it runs; it then waits until
    // go is set.
    std::future<CMPIStatus> startBlocked(ProviderStartup& startup) {
        std::promise<void> begun;
        started = &begun;
        release = go.get_future().share();
        auto first =
            std::async(std::launch::async, [&] { return startup.ensure(broker(), nullptr); });
        begun.get_future().wait();
        started = nullptr;
        return first;
    }
    std::promise<void> go;

    static std::string message(const CMPIStatus& s) {
        return s.msg ? s.msg->ft->getCharPtr(s.msg, nullptr) : "";
    }
};

TEST_F(ProviderStartupTest, RunsOnceAndANestedCallOnItsOwnThreadGoesAhead) {
    ProviderStartup startup(countingStartup);
    CMPIStatus nested{CMPI_RC_ERR_FAILED, nullptr};
    duringStartup = [&] { nested = startup.ensure(broker(), nullptr); };
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(nested.rc, CMPI_RC_OK);
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(startup.done());
    EXPECT_EQ(ProviderScope::current(), &startup);
}

TEST_F(ProviderStartupTest, TheUpcallsOwnClassOnAnotherThreadIsAnsweredAtOnceOthersWait) {
    // The object manager answers the start-up's upcall by calling the provider again on a thread
    // of its own and waits for it: that call must not wait for the start-up. A client asking for
    // another class meanwhile waits (here up to the 200 ms limit).
    ProviderStartup startup(countingStartup, 200ms);
    auto pathOf = [&](const char* cls) {
        return broker()->eft->newObjectPath(broker(), "root/cimv2", cls, nullptr);
    };
    CMPIStatus fromUpcall{CMPI_RC_ERR_FAILED, nullptr};
    CMPIStatus otherClass{CMPI_RC_OK, nullptr};
    duringStartup = [&] {
        ProviderScope::StartupUpcall upcall("Core_Element");
        std::thread objectManager(
            [&] { fromUpcall = startup.ensure(broker(), nullptr, pathOf("CORE_ELEMENT")); });
        objectManager.join();
        std::thread client(
            [&] { otherClass = startup.ensure(broker(), nullptr, pathOf("Core_Link")); });
        client.join();
    };
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(fromUpcall.rc, CMPI_RC_OK);
    EXPECT_EQ(otherClass.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(message(otherClass), "provider start-up is still running");
    EXPECT_EQ(runs, 1);
}

TEST_F(ProviderStartupTest, AnotherCallWaitsForTheStartUpThenGoesOn) {
    ProviderStartup startup(countingStartup, 60s);
    auto first = startBlocked(startup);
    auto waiting =
        std::async(std::launch::async, [&] { return startup.ensure(broker(), nullptr); });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    go.set_value();
    EXPECT_EQ(first.get().rc, CMPI_RC_OK);
    EXPECT_EQ(waiting.get().rc, CMPI_RC_OK);
    EXPECT_EQ(runs, 1);
}

TEST_F(ProviderStartupTest, AWaitBeyondTheLimitIsRefusedAndTheStartUpGoesOn) {
    ProviderStartup startup(countingStartup, 100ms);
    auto first = startBlocked(startup);
    CMPIStatus refused = startup.ensure(broker(), nullptr);
    EXPECT_EQ(refused.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(message(refused), "provider start-up is still running");
    EXPECT_FALSE(startup.done());
    go.set_value();
    EXPECT_EQ(first.get().rc, CMPI_RC_OK);
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(runs, 1);
}

// A start-up that calls into another provider library on its own thread (an object manager
// serving an upcall there) still files its classes as its own.
ProviderStartup* otherLibrary = nullptr;
void filingStartup(const CMPIBroker* broker, const CMPIContext* ctx) {
    otherLibrary->ensure(broker, ctx);
    auto* filed = new NQORVA20::DiagUser;
    filed->setClassName("Core_Capabilities");
    (*filed)["InstanceID"] = "owned";
    NQORVA20::InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, filed);
}

TEST_F(ProviderStartupTest, ClassesAreFiledForTheLibraryWhoseStartUpRunsEvenAfterANestedCall) {
    ProviderStartup other(nullptr);
    otherLibrary = &other;
    ProviderStartup startup(filingStartup);
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    const auto classes = NQORVA20::InstanceRegistry::Singleton()->ClassKeys(&startup);
    EXPECT_NE(std::find(classes.begin(), classes.end(), "CORE_CAPABILITIES"), classes.end());
    EXPECT_EQ(ProviderScope::current(), &startup);
}

TEST_F(ProviderStartupTest, AStartUpThatThrowsIsLoggedAndNotRunAgain) {
    ProviderStartup startup(throwingStartup);
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(startup.ensure(broker(), nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(runs, 1);
    bool logged = false;
    for (const LogEntry& e : dialectBroker(PathDialect::Pegasus).log.entries())
        logged |= e.text == "provider start-up failed: no elements";
    EXPECT_TRUE(logged);
}

} // namespace
