// A provider library's MI factories when the operators' log mirror cannot be set up for want of
// memory: the factory still answers its MI (the exception never reaches the object manager),
// and a later factory call sets the mirror up.
#include "ThrowingAllocator.h"

#include "common/LogMirror.h"
#include "entry/DiagProvider.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

void noStartup(const CMPIBroker*, const CMPIContext*) {}

} // namespace

DIAGCORE_PROVIDER(Test_FactoryProvider, noStartup)

namespace {

using robusttest::ThrowingAllocator;

TEST(ProviderFactoryTest, AMirrorThatCannotBeSetUpLeavesTheFactoriesAnswering) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("diagcore-factory-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    // Longer than a string holds without an allocation.
    const std::string mirror = (folder / "operators-mirror-of-the-core.log").string();
    ::setenv("DIAGCORE_LOG", mirror.c_str(), 1);

    CMPIStatus rc = {CMPI_RC_ERR_FAILED, nullptr};
    ThrowingAllocator::arm(0);
    CMPIInstanceMI* instanceMI = Test_FactoryProvider_Create_InstanceMI(nullptr, nullptr, &rc);
    const bool refused = ThrowingAllocator::disarm();
    if (!refused) {
        ::unsetenv("DIAGCORE_LOG");
        GTEST_SKIP() << "the mirror was set up earlier in this process";
    }
    ASSERT_NE(nullptr, instanceMI);
    EXPECT_EQ(CMPI_RC_OK, rc.rc);

    rc.rc = CMPI_RC_ERR_FAILED;
    EXPECT_NE(nullptr, Test_FactoryProvider_Create_MethodMI(nullptr, nullptr, &rc));
    EXPECT_EQ(CMPI_RC_OK, rc.rc);
    NQORVA20::LogMirror::write(1, "diagcore", "mirrored after all");
    std::ifstream in(mirror);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    EXPECT_NE(std::string::npos, text.find("mirrored after all")) << text;

    NQORVA20::LogMirror::open("");
    ::unsetenv("DIAGCORE_LOG");
    std::filesystem::remove_all(folder);
}

} // namespace
