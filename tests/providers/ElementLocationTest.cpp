// An element is tested, and an instance answered, only where it lives: a reference naming the
// same keys on another system or in another namespace reaches nothing of this system's.
#include "ProviderTestSupport.h"

#include <gtest/gtest.h>

namespace {

using namespace zorqtest;

class ElementLocationTest : public ::testing::Test {
protected:
    Host& host = sharedHost();
    FakeSystem& fake = FakeSystem::instance();
};

TEST_F(ElementLocationTest, AnElementOnAnotherSystemOrNamespaceIsRefusedAndNotTested) {
    const std::string rw = fileSystemPath(fake.mountPoint("rw"));
    const std::string eth0 = networkPortPath("eth0");
    struct Case {
        std::string element, serviceClass, service, recordClass, code;
    } cases[] = {
        {"//other.example/root/cimv2:" + rw, "ZORQ_FSDiagService", "FileSystemWriteProbe",
         "ZORQ_FSDiagRecord", "{FS_NOT_PUBLISHED}"},
        {"root/nothere:" + rw, "ZORQ_FSDiagService", "FileSystemHealth", "ZORQ_FSDiagRecord",
         "{FS_NOT_PUBLISHED}"},
        {"//other.example/root/cimv2:" + eth0, "ZORQ_NetDiagService", "NetworkPortLink",
         "ZORQ_NetDiagRecord", ""},
    };
    for (const Case& c : cases) {
        auto outcome = runDiagnostic(host, c.serviceClass, c.service, c.element, c.recordClass);
        ASSERT_TRUE(outcome.ok) << outcome.status;
        EXPECT_EQ(2u, outcome.returnValue) << c.element;
        ASSERT_TRUE(outcome.record) << c.element;
        const std::string data = (*outcome.record)["RecordData"];
        EXPECT_EQ(0u, data.find("Refused: ")) << data;
        if (!c.code.empty()) {
            EXPECT_EQ(c.code, (*outcome.record)["ErrorCode"]);
        }
    }
    // The same element here is tested as before.
    auto local = runDiagnostic(host, "ZORQ_FSDiagService", "FileSystemHealth",
                               "//localhost/root/cimv2:" + rw, "ZORQ_FSDiagRecord");
    EXPECT_RECORD(local, 0u, "");
}

TEST_F(ElementLocationTest, GetInstanceOfAnotherSystemsPathFindsNothing) {
    const std::string eth0 = networkPortPath("eth0");
    EXPECT_TRUE(host.getInstance(eth0).status.ok());
    EXPECT_FALSE(host.getInstance("//other.example/root/cimv2:" + eth0).status.ok());
    EXPECT_FALSE(host.getInstance("root/nothere:" + eth0).status.ok());
}

} // namespace
