// Several object-manager threads register, enumerate and get at once.
#include "CoreTestSupport.h"

#include "entry/DiagServiceProviderCommon.h"
#include "instance/InstanceRegistry.h"

#include <thread>

using namespace coretest;
using namespace NQORVA20;

namespace {

class Plain : public InstanceImpl {
public:
    explicit Plain(std::string cls) : InstanceImpl(std::move(cls)) {}
    void init() override {}
};

class ConcurrencyTest : public CoreTest {};

TEST_P(ConcurrencyTest, RegisterEnumerateAndGetFromSeveralThreadsAtOnce) {
    const std::string stem = unique("thr");
    const int threads = 4, perThread = 25;
    std::vector<std::thread> workers;
    std::atomic<int> gets{0};
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            CallScope scope(host());
            for (int i = 0; i < perThread; ++i) {
                const std::string name = stem + "-" + std::to_string(t) + "-" + std::to_string(i);
                auto* p = new Plain("Core_Threads");
                (*p)["Name"] = name;
                (*p)["Counter"] = std::to_string(i);
                InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), p);
                ResultSink all(host());
                DiagServiceProviderCommonEnumInstances(broker(), nullptr, ctx(), all.cmpi(),
                                                       path("Core_Threads"), nullptr);
                ResultSink one(host());
                CMPIStatus st = DiagServiceProviderCommonGetInstance(
                    broker(), nullptr, ctx(), one.cmpi(), path("Core_Threads", {{"Name", name}}),
                    nullptr);
                if (st.rc == CMPI_RC_OK && one.instances().size() == 1)
                    ++gets;
            }
        });
    for (auto& w : workers)
        w.join();
    EXPECT_EQ(gets.load(), threads * perThread);
    std::vector<CMPIInstance*> all;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker(), "Core_Threads", all);
    int mine = 0;
    for (CMPIInstance* i : all)
        mine += text(prop(i, "Name")).rfind(stem + "-", 0) == 0;
    EXPECT_EQ(mine, threads * perThread);
}

INSTANTIATE_TEST_SUITE_P(Dialects, ConcurrencyTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
