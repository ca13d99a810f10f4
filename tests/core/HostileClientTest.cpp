// What a client cannot do to the registry through the paths it sends: grow it with lookups that
// miss, make it hold oversized texts, miss an instance by writing its keys in another order, or
// reach this system's instances through a path naming another system or namespace.
#include "CoreTestSupport.h"

#include "entry/DiagServiceProviderCommon.h"
#include "instance/InstanceRegistry.h"
#include "instance/SystemIdentity.h"

#include <algorithm>
#include <malloc.h>

using namespace coretest;
using NQORVA20::InstanceImpl;
using NQORVA20::InstanceRegistry;
using NQORVA20::SystemIdentity;

namespace {

class Plain : public InstanceImpl {
public:
    explicit Plain(std::string cls) : InstanceImpl(std::move(cls)) {}
    void init() override {}
};

using Keys = std::vector<std::pair<std::string, std::string>>;

class HostileClientTest : public CoreTest {
protected:
    void SetUp() override {
        CoreTest::SetUp();
        name = unique("hostile");
        keys = {{"SystemCreationClassName", "Core_System"},
                {"SystemName", "sys"},
                {"CreationClassName", "Core_DiagService"},
                {"Name", name}};
        kept = new Plain("Core_DiagService");
        for (const auto& [k, v] : keys)
            (*kept)[k] = v;
        InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), kept);
        ASSERT_FALSE(kept->getObjectPath().empty());
    }
    InstanceImpl* found(CMPIObjectPath* p) {
        InstanceRegistry::Instance* record =
            InstanceRegistry::Singleton()->GetInstance(broker(), p);
        return record ? record->impl : nullptr;
    }
    CMPIStatus get(CMPIObjectPath* p) {
        ResultSink sink(host());
        return DiagServiceProviderCommonGetInstance(broker(), nullptr, ctx(), sink.cmpi(), p,
                                                    nullptr);
    }
    std::string name;
    Keys keys;
    Plain* kept = nullptr;
};

TEST_P(HostileClientTest, LookupsThatMissKeepNothing) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the C library's heap figures are not kept under AddressSanitizer";
#else
    const std::string big(3000, 'k');
    auto miss = [&](int i) {
        diaghost::CallScope scope(host());
        Keys other = keys;
        other.back().second = big + std::to_string(i);
        EXPECT_EQ(found(path("Core_DiagService", other)), nullptr);
        EXPECT_EQ(found(path("Core_Unknown" + std::to_string(i), other)), nullptr);
    };
    for (int i = 0; i < 50; ++i)
        miss(i); // warms the thread's caches and the log
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 50; i < 1050; ++i)
        miss(i);
    const std::size_t after = mallinfo2().uordblks;
    // A thousand misses with 3 KB keys kept over 3 MB when each left its text behind.
    EXPECT_LT(after > before ? after - before : 0, std::size_t{256} << 10);
#endif
}

TEST_P(HostileClientTest, EveryOrderOfTheKeysFindsTheInstance) {
    Keys order = keys;
    std::sort(order.begin(), order.end());
    int orders = 0;
    do {
        EXPECT_EQ(found(path("Core_DiagService", order)), kept) << order.front().first;
        ++orders;
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(orders, 24);
    Keys wrong = keys;
    wrong.back().second += "x";
    std::reverse(wrong.begin(), wrong.end());
    EXPECT_EQ(found(path("Core_DiagService", wrong)), nullptr);
    Keys fewer(keys.begin() + 1, keys.end());
    EXPECT_EQ(found(path("Core_DiagService", fewer)), nullptr);
}

TEST_P(HostileClientTest, AnAssociationIsFoundWhateverTheOrderOfItsKeysAndOfTheKeysTheyReferTo) {
    auto element = [&](const std::string& n) {
        auto* e = new Plain("Core_Element");
        (*e)["Name"] = n;
        (*e)["DeviceID"] = "d";
        InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), e);
        return e->getObjectPath();
    };
    auto* link = new Plain("Core_Link");
    (*link)["Left"] = element(name + "l");
    (*link)["Right"] = element(name + "r");
    InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), link);
    auto reference = [&](const std::string& n, bool reversed) {
        Keys keys = {{"Name", n}, {"DeviceID", "d"}};
        if (reversed)
            std::reverse(keys.begin(), keys.end());
        return path("Core_Element", keys);
    };
    for (bool reversed : {false, true}) {
        CMPIObjectPath* p = path("Core_Link");
        CMPIValue left, right;
        left.ref = reference(name + "l", reversed);
        right.ref = reference(name + "r", !reversed);
        if (reversed) {
            p->ft->addKey(p, "Right", &right, CMPI_ref);
            p->ft->addKey(p, "Left", &left, CMPI_ref);
        } else {
            p->ft->addKey(p, "Left", &left, CMPI_ref);
            p->ft->addKey(p, "Right", &right, CMPI_ref);
        }
        EXPECT_EQ(found(p), link) << reversed;
    }
}

TEST_P(HostileClientTest, APathNamingAnotherSystemOrNamespaceFindsNothing) {
    auto at = [&](const char* hostName, const char* ns) {
        CMPIObjectPath* p = path("Core_DiagService", keys, ns);
        if (hostName != nullptr)
            p->ft->setHostname(p, hostName);
        return found(p);
    };
    SystemIdentity::Record("sys.example.com");
    EXPECT_EQ(at(nullptr, "root/cimv2"), kept);
    EXPECT_EQ(at("SYS", "root/cimv2"), kept);
    EXPECT_EQ(at("sys.example.com", "Root/CIMV2"), kept);
    EXPECT_EQ(at("localhost", "root/cimv2"), kept);
    EXPECT_EQ(at("192.0.2.7", "root/cimv2"), kept);
    EXPECT_EQ(at("other.example", "root/cimv2"), nullptr);
    EXPECT_EQ(at(nullptr, "root/nothere"), nullptr);
    SystemIdentity::Clear();
    EXPECT_EQ(get(path("Core_DiagService", keys, "root/nothere")).rc, CMPI_RC_ERR_FAILED);
}

TEST_P(HostileClientTest, OversizedPathsAreRefusedAsInvalidParametersBeforeAnyLookup) {
    auto refused = [&](const CMPIStatus& st) {
        const std::string message = st.msg ? st.msg->ft->getCharPtr(st.msg, nullptr) : "";
        return st.rc == CMPI_RC_ERR_INVALID_PARAMETER &&
               message.find("object path refused") != std::string::npos;
    };
    Keys huge = keys;
    huge.back().second = std::string(1 << 20, 'x');
    log().clear();
    EXPECT_TRUE(refused(get(path("Core_DiagService", huge))));
    EXPECT_EQ(lines(3), std::vector<std::string>{});

    Keys many = keys;
    for (int k = 0; k < 300; ++k)
        many.emplace_back("K" + std::to_string(k), "v");
    EXPECT_TRUE(refused(get(path("Core_DiagService", many))));

    Keys edge = keys;
    edge.back().second = std::string(4096, 'x');
    EXPECT_EQ(get(path("Core_DiagService", edge)).rc, CMPI_RC_ERR_FAILED); // an ordinary miss

    ResultSink sink(host());
    EXPECT_TRUE(refused(DiagServiceProviderCommonAssociators(
        broker(), nullptr, ctx(), sink.cmpi(), path("Core_DiagService", huge), "Core_Link", nullptr,
        nullptr, nullptr, nullptr)));
    EXPECT_TRUE(sink.calls().empty());
}

INSTANTIATE_TEST_SUITE_P(Dialects, HostileClientTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
