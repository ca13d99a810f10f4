// Loading, idle unloading, reloading and shutting down provider libraries.
#include "HostTestSupport.h"

#include "host/broker/LogSink.h"
#include "host/providers/ProviderManager.h"
#include "host/providers/ProviderRegistration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace hosttest;
using diaghost::ProviderRegistration;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class ProviderLifecycleTest : public testing::Test {
protected:
    static CMPIData uint32Arg(CMPIUint32 v) {
        CMPIData d{};
        d.type = CMPI_uint32;
        d.value.uint32 = v;
        return d;
    }

    // Uses every MI of the elements library: two instance MIs, the method MI and the
    // association MI.
    static void useEveryElementsMi(Host& host) {
        ASSERT_TRUE(host.enumerateInstances("root/cimv2", "Test_Element").ok());
        ASSERT_TRUE(host.enumerateInstances("root/cimv2", "Test_Assoc").ok());
        ASSERT_TRUE(
            host.invokeMethod("Test_Element.Name=\"alpha\"", "Ping", {{"Count", uint32Arg(1)}})
                .ok());
        ASSERT_TRUE(host.associatorNames("Test_Element.Name=\"alpha\"").ok());
    }
};

TEST_F(ProviderLifecycleTest, IdleUnloadClosesAnAgreeingLibraryAndTheNextCallLoadsItAfresh) {
    auto host = loadedHost();
    ASSERT_FALSE(libraryMapped("diaghosttest_elements"));
    ASSERT_TRUE(host->deleteInstance("Test_Element.Name=\"beta\"").ok());
    EXPECT_EQ(host->enumerateInstances("root/cimv2", "Test_Element").instances().size(), 2u);
    EXPECT_TRUE(host->providers().isLoaded("diaghosttest_elements"));

    EXPECT_EQ(host->unloadIdleProviders(), 1u);
    EXPECT_FALSE(host->providers().isLoaded("diaghosttest_elements"));
    EXPECT_FALSE(libraryMapped("diaghosttest_elements"));
    EXPECT_THAT(host->log().texts("host.providers"),
                ElementsAre(HasSubstr("libdiaghosttest_elements.so unloaded")));

    // Loaded afresh: the provider's state is the initial one again.
    EXPECT_EQ(host->enumerateInstances("root/cimv2", "Test_Element").instances().size(), 3u);
    EXPECT_EQ(host->providers().openCount("diaghosttest_elements"), 2u);
    EXPECT_EQ(host->unloadIdleProviders(), 1u);
    EXPECT_EQ(host->unloadIdleProviders(), 0u);
}

TEST_F(ProviderLifecycleTest, IdleCleanupIsOfferedToEveryMiAndMisAreMadeAgainAfterUnload) {
    LibraryHandle elements("diaghosttest_elements");
    elements.symbol<void()>("TestElements_reset")();
    auto host = loadedHost();
    useEveryElementsMi(*host);
    EXPECT_EQ(elements.counter("TestElements_initializations"), 4);

    EXPECT_EQ(host->unloadIdleProviders(), 1u);
    EXPECT_EQ(elements.counter("TestElements_cleanups"), 4);
    EXPECT_EQ(elements.counter("TestElements_terminations"), 0);

    ASSERT_TRUE(host->enumerateInstances("root/cimv2", "Test_Element").ok());
    EXPECT_EQ(elements.counter("TestElements_initializations"), 5);
}

TEST_F(ProviderLifecycleTest, DoNotUnloadKeepsTheLibraryAndItsMisAndIsAskedAgain) {
    LibraryHandle keep("diaghosttest_keep");
    LibraryHandle elements("diaghosttest_elements");
    elements.symbol<void()>("TestElements_reset")();
    auto host = loadedHost();
    ASSERT_TRUE(host->enumerateInstances("root/cimv2", "Test_Keep").ok());
    int before = keep.counter("Lifecycle_cleanups");
    EXPECT_EQ(host->unloadIdleProviders(), 0u);
    EXPECT_EQ(host->unloadIdleProviders(), 0u);
    EXPECT_EQ(keep.counter("Lifecycle_cleanups"), before + 2);
    EXPECT_TRUE(host->providers().isLoaded("diaghosttest_keep"));

    // The same answer from the elements library: its MIs stay, none is made again.
    elements.counter("TestElements_idleAnswer") = CMPI_RC_DO_NOT_UNLOAD;
    ASSERT_TRUE(host->enumerateInstances("root/cimv2", "Test_Element").ok());
    EXPECT_EQ(host->unloadIdleProviders(), 0u);
    ASSERT_TRUE(host->enumerateInstances("root/cimv2", "Test_Element").ok());
    EXPECT_EQ(elements.counter("TestElements_initializations"), 1);
    EXPECT_EQ(host->providers().openCount("diaghosttest_elements"), 1u);
}

TEST_F(ProviderLifecycleTest, NeverUnloadKeepsTheLibraryAndIsNotOfferedAgain) {
    LibraryHandle never("diaghosttest_never");
    auto host = loadedHost();
    ASSERT_TRUE(host->enumerateInstances("root/cimv2", "Test_Never").ok());
    int before = never.counter("Lifecycle_cleanups");
    EXPECT_EQ(host->unloadIdleProviders(), 0u);
    EXPECT_EQ(host->unloadIdleProviders(), 0u);
    EXPECT_EQ(never.counter("Lifecycle_cleanups"), before + 1);
    EXPECT_TRUE(host->providers().isLoaded("diaghosttest_never"));
    EXPECT_EQ(host->enumerateInstances("root/cimv2", "Test_Never").instances().size(), 1u);

    // "unload: never" in the registration: not even offered once.
    Host::Options options;
    options.providerPath = {providerDir()};
    Host pinned(options);
    pinned.loadMof(dataFile("TestHost.mof"));
    pinned.providers().addRegistrations(ProviderRegistration::readText(
        "[Test_Keep]\nprovider: Test_KeepProvider\nlocation: diaghosttest_keep\n"
        "type: instance\nnamespace: root/cimv2\nunload: never\n"));
    LibraryHandle keep("diaghosttest_keep");
    ASSERT_TRUE(pinned.enumerateInstances("root/cimv2", "Test_Keep").ok());
    int keepBefore = keep.counter("Lifecycle_cleanups");
    EXPECT_EQ(pinned.unloadIdleProviders(), 0u);
    EXPECT_EQ(keep.counter("Lifecycle_cleanups"), keepBefore);
}

TEST_F(ProviderLifecycleTest, ShutdownCleansEveryMiUpWithTerminatingTrue) {
    LibraryHandle elements("diaghosttest_elements");
    LibraryHandle never("diaghosttest_never");
    elements.symbol<void()>("TestElements_reset")();
    int neverBefore = never.counter("Lifecycle_terminations");
    auto host = loadedHost();
    useEveryElementsMi(*host);
    ASSERT_TRUE(host->enumerateInstances("root/cimv2", "Test_Never").ok());

    host->shutdown();
    EXPECT_EQ(elements.counter("TestElements_terminations"), 4);
    EXPECT_EQ(never.counter("Lifecycle_terminations"), neverBefore + 1);
    EXPECT_TRUE(host->providers().isShutDown());
    EXPECT_TRUE(host->providers().loadedLibraries().empty());

    OperationResult late = host->enumerateInstances("root/cimv2", "Test_Element");
    EXPECT_EQ(late.status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_THAT(late.status.message, HasSubstr("shut down"));
    // Static instances need no provider.
    EXPECT_TRUE(host->enumerateInstances("root/cimv2", "Test_Static").ok());

    host->shutdown();
    host.reset();
    EXPECT_EQ(elements.counter("TestElements_terminations"), 4);

    // The destructor shuts down too.
    elements.symbol<void()>("TestElements_reset")();
    {
        auto scoped = loadedHost();
        ASSERT_TRUE(scoped->enumerateInstances("root/cimv2", "Test_Element").ok());
    }
    EXPECT_EQ(elements.counter("TestElements_terminations"), 1);
    EXPECT_EQ(elements.counter("TestElements_cleanups"), 0);
}

TEST_F(ProviderLifecycleTest, ProvidersAreFoundOnTheSearchPathInOrder) {
    Host::Options options;
    options.providerPath = {"/nonexistent-folder", providerDir()};
    Host host(options);
    host.loadMof(dataFile("TestHost.mof"));
    host.loadRegistrations(dataFile("TestHost.reg"));
    EXPECT_TRUE(host.enumerateInstances("root/cimv2", "Test_Never").ok());

    Host lost;
    lost.loadMof(dataFile("TestHost.mof"));
    lost.loadRegistrations(dataFile("TestHost.reg"));
    OperationResult r = lost.enumerateInstances("root/cimv2", "Test_Never");
    EXPECT_EQ(r.status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_THAT(r.status.message, HasSubstr("libdiaghosttest_never.so not found"));
    // Found once its folder is added.
    lost.addProviderDir(providerDir());
    EXPECT_TRUE(lost.enumerateInstances("root/cimv2", "Test_Never").ok());
}

} // namespace
