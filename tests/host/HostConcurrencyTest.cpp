// Several threads calling the host at once: first use, mixed operations, unloading meanwhile.
#include "HostTestSupport.h"

#include "host/providers/ProviderManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace hosttest;

namespace {

class HostConcurrencyTest : public testing::Test {
protected:
    // Runs body(thread index) on n threads released together.
    template <class Body>
    static void onThreads(int n, Body body) {
        std::mutex m;
        std::condition_variable go;
        bool started = false;
        std::vector<std::thread> threads;
        for (int t = 0; t < n; ++t)
            threads.emplace_back([&, t] {
                {
                    std::unique_lock<std::mutex> lock(m);
                    go.wait(lock, [&] { return started; });
                }
                body(t);
            });
        {
            std::lock_guard<std::mutex> lock(m);
            started = true;
        }
        go.notify_all();
        for (std::thread& th : threads)
            th.join();
    }

    static CMPIData uint32Arg(CMPIUint32 v) {
        CMPIData d{};
        d.type = CMPI_uint32;
        d.value.uint32 = v;
        return d;
    }

    // One round of every kind of operation; counts what went wrong.
    static void mixedRound(Host& host, int i, std::atomic<int>& failures) {
        auto check = [&](bool ok) {
            if (!ok)
                ++failures;
        };
        OperationResult all = host.enumerateInstances("root/cimv2", "Test_Element");
        check(all.ok() && all.instances().size() == 3);
        OperationResult one = host.getInstance("Test_Element.Name=\"beta\"");
        check(one.ok() && host.propertyText(one.instance(), "Size") == "2");
        OperationResult ping =
            host.invokeMethod("Test_Element.Name=\"alpha\"", "Ping",
                              {{"Count", uint32Arg(static_cast<CMPIUint32>(i))}});
        check(ping.ok() && ping.returnValue().value.uint32 == static_cast<CMPIUint32>(i) + 1);
        OperationResult far = host.associatorNames("Test_Element.Name=\"alpha\"");
        check(far.ok() && far.paths().size() == 2);
        OperationResult mirrors = host.enumerateInstances("root/cimv2", "Test_Mirror");
        check(mirrors.ok() && mirrors.instances().size() == 3);
        OperationResult statics = host.associators("Test_Static.Id=\"s1\"");
        check(statics.ok() && statics.instances().size() == 2);
    }
};

TEST_F(HostConcurrencyTest, FirstUseFromManyThreadsLoadsTheLibraryOnce) {
    LibraryHandle elements("diaghosttest_elements");
    elements.symbol<void()>("TestElements_reset")();
    auto host = loadedHost();
    std::atomic<int> failures{0};
    onThreads(6, [&](int) {
        OperationResult r = host->enumerateInstances("root/cimv2", "Test_Element");
        if (!r.ok() || r.instances().size() != 3)
            ++failures;
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(host->providers().openCount("diaghosttest_elements"), 1u);
    EXPECT_EQ(elements.counter("TestElements_initializations"), 1);
}

TEST_F(HostConcurrencyTest, MixedOperationsFromManyThreadsAllSucceed) {
    auto host = loadedHost();
    std::atomic<int> failures{0};
    onThreads(4, [&](int t) {
        for (int i = 0; i < 60; ++i)
            mixedRound(*host, t * 1000 + i, failures);
    });
    EXPECT_EQ(failures.load(), 0);
}

TEST_F(HostConcurrencyTest, UnloadingWhileCallsRunNeverBreaksACall) {
    auto host = loadedHost();
    std::atomic<int> failures{0};
    std::atomic<int> workersLeft{3};
    std::atomic<std::size_t> unloads{0};
    onThreads(4, [&](int t) {
        if (t == 0) {
            while (workersLeft.load() > 0) {
                unloads += host->unloadIdleProviders();
                std::this_thread::yield();
            }
            return;
        }
        for (int i = 0; i < 60; ++i)
            mixedRound(*host, i, failures);
        --workersLeft;
    });
    EXPECT_EQ(failures.load(), 0);
    // Every unload was followed by a fresh load when the library was needed again.
    EXPECT_GE(host->providers().openCount("diaghosttest_elements"), 1u);
    EXPECT_LE(unloads.load(),
              static_cast<std::size_t>(host->providers().openCount("diaghosttest_elements") +
                                       host->providers().openCount("diaghosttest_upcall")));
}

} // namespace
