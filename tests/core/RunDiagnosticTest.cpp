// RunDiagnostic end to end through the method entry point: the test runs once against the parsed
// element, its value is delivered before the record is registered, and the record is published.
#include "CoreTestSupport.h"

#include "diag/DiagService.h"
#include "diag/DiagUser.h"
#include "entry/DiagServiceProviderCommon.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

using namespace coretest;
using namespace NQORVA20;

namespace {

class ScriptedService : public DiagService {
public:
    explicit ScriptedService(std::string name)
        : DiagService("Core_DiagService", "Core_DiagRecord", "", "", "sys") {
        (*this)["Name"] = std::move(name);
    }
    unsigned int runTest(InstanceImpl* element, DiagnosticRecord* record) override {
        ++runs;
        seenClass = element->getClassName();
        seenDeviceId = (*element)["DeviceID"];
        if (auto* user = dynamic_cast<DiagUser*>(element))
            seenLocal = user->isLocal();
        if (failIt)
            record->fail(2, "E42", 3, "broken");
        else
            record->pass(5);
        (*record)["Caption"] = "overwritten later";
        return returnValue;
    }
    int runs = 0;
    bool failIt = false;
    unsigned int returnValue = 0;
    std::string seenClass, seenDeviceId;
    bool seenLocal = false;
};

// A result sink that, when the return value arrives, notes how many records were registered.
struct ProbeResult {
    CMPIResult result;
    CMPIResultFT ft;
    std::size_t recordsAtReturn = 0;
    CMPIUint32 value = 0;
    int dataCalls = 0, doneCalls = 0;
    static ProbeResult* self(const CMPIResult* r) {
        return reinterpret_cast<ProbeResult*>(const_cast<CMPIResult*>(r));
    }
};

std::size_t recordCount(const CMPIBroker* broker) {
    std::vector<CMPIInstance*> all;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker, "Core_DiagRecord", all);
    return all.size();
}

const CMPIBroker* probeBroker = nullptr;

ProbeResult makeProbe() {
    ProbeResult p{};
    p.ft.ftVersion = CMPICurrentVersion;
    p.ft.returnData = [](const CMPIResult* r, const CMPIValue* v, CMPIType t) {
        ProbeResult* me = ProbeResult::self(r);
        ++me->dataCalls;
        if (t == CMPI_uint32)
            me->value = v->uint32;
        me->recordsAtReturn = recordCount(probeBroker);
        return CMPIStatus{CMPI_RC_OK, nullptr};
    };
    p.ft.returnDone = [](const CMPIResult* r) {
        ++ProbeResult::self(r)->doneCalls;
        return CMPIStatus{CMPI_RC_OK, nullptr};
    };
    p.result.hdl = nullptr;
    return p;
}

class RunDiagnosticTest : public CoreTest {
protected:
    ScriptedService* registerService() {
        auto* s = new ScriptedService(unique("Svc"));
        InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), s);
        return s;
    }
    CMPIObjectPath* servicePath(ScriptedService* s) {
        return path("Core_DiagService", {{"SystemCreationClassName", "ZORQ_ComputerSystem"},
                                         {"SystemName", "sys"},
                                         {"CreationClassName", "Core_DiagService"},
                                         {"Name", (*s)["Name"]}});
    }
    CMPIArgs* elementArgs(const std::string& deviceId, const char* host = nullptr,
                          const char* ns = "root/cimv2") {
        CMPIArgs* in = broker()->eft->newArgs(broker(), nullptr);
        CMPIObjectPath* element = path("Core_Element", {{"Name", "e"}, {"DeviceID", deviceId}}, ns);
        if (host != nullptr)
            element->ft->setHostname(element, host);
        CMPIValue v;
        v.ref = element;
        in->ft->addArg(in, "ManagedElement", &v, CMPI_ref);
        return in;
    }
    CMPIStatus invoke(ScriptedService* s, const char* method, const CMPIArgs* in,
                      ProbeResult& probe) {
        probe.result.ft = &probe.ft;
        probeBroker = broker();
        CMPIArgs* out = broker()->eft->newArgs(broker(), nullptr);
        return DiagServiceProviderCommonInvokeMethod(broker(), nullptr, ctx(), &probe.result,
                                                     servicePath(s), method, in, out);
    }
};

TEST_P(RunDiagnosticTest, RunDeliversTheValueFirstThenPublishesOneRecord) {
    ScriptedService* s = registerService();
    (*s)["Caption"] = "Cap";
    (*s)["Description"] = "Desc";
    (*s)["ElementName"] = "Elem";
    s->returnValue = 4294967295u;
    const std::size_t before = recordCount(broker());
    log().clear();
    ProbeResult probe = makeProbe();
    CMPIStatus st = invoke(s, "RunDiagnostic", elementArgs("dev7"), probe);
    EXPECT_EQ(st.rc, CMPI_RC_OK);
    EXPECT_EQ(s->runs, 1);
    EXPECT_EQ(s->seenClass, "Core_Element");
    EXPECT_EQ(s->seenDeviceId, "dev7");
    EXPECT_EQ(probe.value, 4294967295u);
    EXPECT_EQ(probe.dataCalls, 1);
    EXPECT_EQ(probe.doneCalls, 1);
    EXPECT_EQ(probe.recordsAtReturn, before);
    EXPECT_EQ(recordCount(broker()), before + 1);
    const std::vector<std::string> logged = allLines();
    ASSERT_GE(logged.size(), 2u);
    EXPECT_EQ(logged[0], "+++ InvokeMethod");
    EXPECT_EQ(logged[1], "^^^^ opString = " +
                             CMPIUtil::GetObjectPathString(
                                 path("Core_Element", {{"Name", "e"}, {"DeviceID", "dev7"}})));

    // The record, as published, carries the run's seven properties and the test's outcome.
    std::vector<CMPIInstance*> records;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker(), "Core_DiagRecord", records);
    CMPIInstance* mine = nullptr;
    for (CMPIInstance* r : records)
        if (text(prop(r, "ServiceName")) == (*s)["Name"])
            mine = r;
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(text(prop(mine, "Caption")), "Result for Cap");
    EXPECT_EQ(text(prop(mine, "Description")), "Result for Desc");
    EXPECT_EQ(text(prop(mine, "ElementName")), "Result for Elem");
    EXPECT_EQ(text(prop(mine, "ManagedElementName")), "dev7");
    EXPECT_EQ(text(prop(mine, "RecordData")), "Test Passed");
    EXPECT_EQ(prop(mine, "LoopsPassed").value.uint32, 5u);
    const std::string id = text(prop(mine, "InstanceID"));
    const std::string prefix = "Core_DiagService:" + (*s)["Name"] + ":";
    ASSERT_EQ(id.rfind(prefix, 0), 0u) << id;
    const std::string stamp = id.substr(prefix.size());
    EXPECT_EQ(stamp.size(), 25u);
    CMPIData created = prop(mine, "CreationTimeStamp");
    ASSERT_EQ(created.type, CMPI_dateTime);
    CMPIString* createdText =
        created.value.dateTime->ft->getStringFormat(created.value.dateTime, nullptr);
    EXPECT_EQ(createdText->ft->getCharPtr(createdText, nullptr), stamp);
}

TEST_P(RunDiagnosticTest, MissingServiceTextsBecomeBarePrefixesAndAreInsertedIntoTheService) {
    ScriptedService* s = registerService();
    ASSERT_EQ(s->find("Caption"), s->end());
    s->failIt = true;
    ProbeResult probe = makeProbe();
    ASSERT_EQ(invoke(s, "RunDiagnostic", elementArgs(""), probe).rc, CMPI_RC_OK);
    EXPECT_NE(s->find("Caption"), s->end());
    EXPECT_EQ((*s)["Caption"], "");
    std::vector<CMPIInstance*> records;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker(), "Core_DiagRecord", records);
    bool found = false;
    for (CMPIInstance* r : records) {
        if (text(prop(r, "ServiceName")) != (*s)["Name"])
            continue;
        found = true;
        EXPECT_EQ(text(prop(r, "Caption")), "Result for ");
        EXPECT_EQ(text(prop(r, "ManagedElementName")), "");
        EXPECT_EQ(text(prop(r, "RecordData")), "broken");
        EXPECT_EQ(prop(r, "LoopsFailed").value.uint32, 2u);
    }
    EXPECT_TRUE(found);
}

TEST_P(RunDiagnosticTest, MethodNameIsCaseSensitiveAndOtherNamesChangeNothing) {
    ScriptedService* s = registerService();
    const std::size_t before = recordCount(broker());
    log().clear();
    ProbeResult probe = makeProbe();
    EXPECT_EQ(invoke(s, "runDiagnostic", elementArgs("d"), probe).rc, CMPI_RC_ERR_METHOD_NOT_FOUND);
    EXPECT_EQ(s->runs, 0);
    EXPECT_EQ(probe.dataCalls + probe.doneCalls, 0);
    EXPECT_EQ(recordCount(broker()), before);
    EXPECT_EQ(allLines(), (std::vector<std::string>{"+++ InvokeMethod"}));
}

TEST_P(RunDiagnosticTest, MissingNullOrWrongTypedElementIsRefusedBeforeAnything) {
    ScriptedService* s = registerService();
    const std::size_t before = recordCount(broker());
    CMPIArgs* wrongType = broker()->eft->newArgs(broker(), nullptr);
    wrongType->ft->addArg(wrongType, "ManagedElement",
                          reinterpret_cast<const CMPIValue*>("Core_Element.Name=\"e\""),
                          CMPI_chars);
    CMPIArgs* nullRef = broker()->eft->newArgs(broker(), nullptr);
    nullRef->ft->addArg(nullRef, "ManagedElement", nullptr, CMPI_ref);
    CMPIArgs* missing = broker()->eft->newArgs(broker(), nullptr);
    for (const CMPIArgs* in :
         {static_cast<const CMPIArgs*>(nullptr), static_cast<const CMPIArgs*>(missing),
          static_cast<const CMPIArgs*>(nullRef), static_cast<const CMPIArgs*>(wrongType)}) {
        log().clear();
        ProbeResult probe = makeProbe();
        CMPIStatus st = invoke(s, "RunDiagnostic", in, probe);
        EXPECT_EQ(st.rc, CMPI_RC_ERR_INVALID_PARAMETER);
        ASSERT_NE(st.msg, nullptr);
        EXPECT_NE(std::string(st.msg->ft->getCharPtr(st.msg, nullptr)).find("ManagedElement"),
                  std::string::npos);
        EXPECT_EQ(probe.dataCalls + probe.doneCalls, 0);
        EXPECT_EQ(allLines(), (std::vector<std::string>{"+++ InvokeMethod"}));
    }
    EXPECT_EQ(s->runs, 0);
    EXPECT_EQ(recordCount(broker()), before);
}

class SlowService : public ScriptedService {
public:
    using ScriptedService::ScriptedService;
    unsigned int runTest(InstanceImpl*, DiagnosticRecord* record) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        record->pass(1);
        ++started;
        return 0;
    }
    std::atomic<int> started{0};
};

TEST_P(RunDiagnosticTest, ConcurrentRunsOnOneServiceEachPublishTheirRecord) {
    auto* s = new SlowService(unique("Par"));
    InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), s);
    // A clock with a resolution of a millisecond, as on many virtual machines.
    host().setClock([] {
        return std::chrono::time_point_cast<std::chrono::milliseconds>(
            std::chrono::system_clock::now());
    });
    const int threads = 8, runsEach = 10;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            CallScope scope(host());
            for (int i = 0; i < runsEach; ++i) {
                ResultSink sink(host());
                CMPIStatus st = DiagServiceProviderCommonInvokeMethod(
                    broker(), nullptr, ctx(), sink.cmpi(), servicePath(s), "RunDiagnostic",
                    elementArgs("d" + std::to_string(i)), nullptr);
                EXPECT_EQ(st.rc, CMPI_RC_OK);
                std::this_thread::sleep_for(std::chrono::microseconds(2));
            }
        });
    for (auto& w : workers)
        w.join();
    host().setClock(nullptr);
    std::vector<CMPIInstance*> records;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker(), "Core_DiagRecord", records);
    std::set<std::string> ids;
    for (CMPIInstance* r : records)
        if (text(prop(r, "ServiceName")) == (*s)["Name"])
            ids.insert(text(prop(r, "InstanceID")));
    EXPECT_EQ(s->started.load(), threads * runsEach);
    // Runs finishing within one tick of the clock still file a record each.
    EXPECT_EQ(ids.size(), static_cast<std::size_t>(threads * runsEach));
}

TEST_P(RunDiagnosticTest, RunsOnAStoppedClockKeepARecordEachAtConsecutiveMicroseconds) {
    // 2026-12-31 23:59:59.999998 UTC: the third run's time rolls over into the next year.
    const auto stopped =
        std::chrono::system_clock::time_point(std::chrono::microseconds(1798761599999998LL));
    host().setClock([stopped] { return stopped; });
    ScriptedService* s = registerService();
    std::vector<std::string> stamps;
    for (int i = 0; i < 3; ++i) {
        ProbeResult probe = makeProbe();
        ASSERT_EQ(invoke(s, "RunDiagnostic", elementArgs("d"), probe).rc, CMPI_RC_OK);
    }
    host().setClock(nullptr);
    std::vector<CMPIInstance*> records;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker(), "Core_DiagRecord", records);
    for (CMPIInstance* r : records) {
        if (text(prop(r, "ServiceName")) != (*s)["Name"])
            continue;
        const std::string id = text(prop(r, "InstanceID"));
        CMPIData created = prop(r, "CreationTimeStamp");
        CMPIString* createdText =
            created.value.dateTime->ft->getStringFormat(created.value.dateTime, nullptr);
        const std::string stamp = createdText->ft->getCharPtr(createdText, nullptr);
        EXPECT_EQ(id.substr(id.size() - stamp.size()), stamp);
        stamps.push_back(stamp);
    }
    std::sort(stamps.begin(), stamps.end());
    EXPECT_EQ(stamps,
              (std::vector<std::string>{"20261231235959.999998+000", "20261231235959.999999+000",
                                        "20270101000000.000000+000"}));
}

TEST_P(RunDiagnosticTest, AnOversizedElementIsRefusedBeforeTheTestOrAnyRecord) {
    ScriptedService* s = registerService();
    const std::size_t before = recordCount(broker());
    ProbeResult probe = makeProbe();
    CMPIStatus st = invoke(s, "RunDiagnostic", elementArgs(std::string(1 << 20, 'x')), probe);
    EXPECT_EQ(st.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    ASSERT_NE(st.msg, nullptr);
    EXPECT_NE(std::string(st.msg->ft->getCharPtr(st.msg, nullptr)).find("ManagedElement"),
              std::string::npos);

    CMPIArgs* many = broker()->eft->newArgs(broker(), nullptr);
    CMPIObjectPath* element = path("Core_Element");
    for (int k = 0; k < 300; ++k)
        element->ft->addKey(element, ("K" + std::to_string(k)).c_str(),
                            reinterpret_cast<const CMPIValue*>("v"), CMPI_chars);
    CMPIValue v;
    v.ref = element;
    many->ft->addArg(many, "ManagedElement", &v, CMPI_ref);
    EXPECT_EQ(invoke(s, "RunDiagnostic", many, probe).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(s->runs, 0);
    EXPECT_EQ(recordCount(broker()), before);
}

TEST_P(RunDiagnosticTest, TheTestLearnsWhetherTheElementLivesOnThisSystem) {
    ScriptedService* s = registerService();
    auto localAfterRun = [&](const char* host, const char* ns) {
        ProbeResult probe = makeProbe();
        EXPECT_EQ(invoke(s, "RunDiagnostic", elementArgs("d", host, ns), probe).rc, CMPI_RC_OK);
        return s->seenLocal;
    };
    EXPECT_TRUE(localAfterRun(nullptr, "root/cimv2"));
    EXPECT_TRUE(localAfterRun("localhost", "root/cimv2"));
    EXPECT_TRUE(localAfterRun("127.0.0.1", "ROOT/CIMV2"));
    EXPECT_FALSE(localAfterRun("other.example", "root/cimv2"));
    EXPECT_FALSE(localAfterRun(nullptr, "root/nothere"));
}

INSTANTIATE_TEST_SUITE_P(Dialects, RunDiagnosticTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
