// Upcalls through the broker function table: routed to the dispatcher with a fresh result sink,
// answered with copies that belong to the caller's scope.
#include "BrokerFixture.h"

#include "host/broker/Dispatcher.h"
#include "host/broker/ResultSink.h"

#include <stdexcept>

namespace diaghost::test {

// Serves Test_Record from a list of instances, the way a provider does: inside its own scope,
// returning what it makes through the sink's CMPIResult.
class FakeDispatcher : public Dispatcher {
public:
    explicit FakeDispatcher(Broker& broker) : broker_(broker) {}

    int records = 2;
    OperationStatus failure = OperationStatus::make(CMPI_RC_OK);
    bool throwing = false;
    std::string seenNameSpace;
    std::string seenMethod;

    OperationStatus enumerateInstanceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           ResultSink& out) override {
        return serve(ctx, op, out, true);
    }
    OperationStatus enumerateInstances(const CMPIContext* ctx, const CMPIObjectPath* op,
                                       const char**, ResultSink& out) override {
        return serve(ctx, op, out, false);
    }
    OperationStatus getInstance(const CMPIContext* ctx, const CMPIObjectPath* op, const char**,
                                ResultSink& out) override {
        return serve(ctx, op, out, false);
    }
    OperationStatus createInstance(const CMPIContext*, const CMPIObjectPath*,
                                   const CMPIInstance* inst, ResultSink& out) override {
        CallScope scope(broker_);
        CMReturnObjectPath(out.cmpi(), CMGetObjectPath(inst, nullptr));
        return failure;
    }
    OperationStatus modifyInstance(const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                                   const char**, ResultSink&) override {
        return failure;
    }
    OperationStatus deleteInstance(const CMPIContext*, const CMPIObjectPath*,
                                   ResultSink&) override {
        return OperationStatus::make(CMPI_RC_ERR_NOT_FOUND, "no such record");
    }
    OperationStatus execQuery(const CMPIContext* ctx, const CMPIObjectPath* op, const char*,
                              const char*, ResultSink& out) override {
        return serve(ctx, op, out, false);
    }
    OperationStatus associators(const CMPIContext* ctx, const CMPIObjectPath* op, const char*,
                                const char*, const char*, const char*, const char**,
                                ResultSink& out) override {
        return serve(ctx, op, out, false);
    }
    OperationStatus associatorNames(const CMPIContext* ctx, const CMPIObjectPath* op, const char*,
                                    const char*, const char*, const char*,
                                    ResultSink& out) override {
        return serve(ctx, op, out, true);
    }
    OperationStatus references(const CMPIContext* ctx, const CMPIObjectPath* op, const char*,
                               const char*, const char**, ResultSink& out) override {
        return serve(ctx, op, out, false);
    }
    OperationStatus referenceNames(const CMPIContext* ctx, const CMPIObjectPath* op, const char*,
                                   const char*, ResultSink& out) override {
        return serve(ctx, op, out, true);
    }
    OperationStatus invokeMethod(const CMPIContext*, const CMPIObjectPath*, const char* method,
                                 const CMPIArgs* in, CMPIArgs* out, ResultSink& result) override {
        CallScope scope(broker_);
        seenMethod = method;
        CMPIUint32 count = CMGetArg(in, "Count", nullptr).value.uint32;
        CMPIString* echo = CMNewString(broker_.cmpi(), "pong", nullptr);
        CMAddArg(out, "Echo", &echo, CMPI_string);
        CMPIUint32 doubled = count * 2;
        CMReturnData(result.cmpi(), &doubled, CMPI_uint32);
        CMReturnDone(result.cmpi());
        return failure;
    }

private:
    OperationStatus serve(const CMPIContext* ctx, const CMPIObjectPath* op, ResultSink& out,
                          bool names) {
        if (throwing)
            throw std::runtime_error("dispatcher exploded");
        CallScope scope(broker_);
        seenNameSpace =
            CMGetCharPtr(CMGetContextEntry(ctx, CMPIInitNameSpace, nullptr).value.string);
        const CMPIBroker* mb = broker_.cmpi();
        for (int i = 0; i < records; ++i) {
            CMPIObjectPath* p = CMNewObjectPath(mb, CMGetCharPtr(CMGetNameSpace(op, nullptr)),
                                                "Test_Record", nullptr);
            CMPIInstance* inst = CMNewInstance(mb, p, nullptr);
            CMPIUint32 id = static_cast<CMPIUint32>(i + 1);
            CMSetProperty(inst, "Id", &id, CMPI_uint32);
            if (names)
                CMReturnObjectPath(out.cmpi(), CMGetObjectPath(inst, nullptr));
            else
                CMReturnInstance(out.cmpi(), inst);
        }
        CMReturnDone(out.cmpi());
        return failure;
    }

    Broker& broker_;
};

class UpcallTest : public BrokerFixture {
protected:
    UpcallTest() : dispatcher(*broker) { broker->setDispatcher(&dispatcher); }
    FakeDispatcher dispatcher;
};

TEST_F(UpcallTest, EnumerateInstancesAnswersAnEnumerationOfCopiesInTheCallersScope) {
    CallScope caller(*broker);
    CMPIContext* ctx = broker->newContext("root/cimv2");
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    std::size_t before = caller.ownedCount();
    CMPIStatus rc{};
    CMPIEnumeration* en = CBEnumInstances(mb, ctx, op, nullptr, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    ASSERT_NE(en, nullptr);
    // The enumeration is the only new object of the caller; the provider's objects are gone.
    EXPECT_EQ(caller.ownedCount(), before + 1);
    std::vector<CMPIUint32> ids;
    while (CMHasNext(en, nullptr)) {
        CMPIData d = CMGetNext(en, &rc);
        ASSERT_EQ(d.type, CMPI_instance);
        ids.push_back(CMGetProperty(d.value.inst, "Id", nullptr).value.uint32);
    }
    EXPECT_EQ(ids, (std::vector<CMPIUint32>{1, 2}));
    CMGetNext(en, &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_FOUND);

    CMPIEnumeration* names = CBEnumInstanceNames(mb, ctx, op, &rc);
    CMPIArray* asArray = CMToArray(names, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetArrayType(asArray, nullptr), CMPI_ref);
    ASSERT_EQ(CMGetArrayCount(asArray, nullptr), 2u);
    EXPECT_EQ(pathText(CMGetArrayElementAt(asArray, 1, nullptr).value.ref),
              "root/cimv2:Test_Record.Id=2");
}

TEST_F(UpcallTest, EveryEnumeratingUpcallReachesTheDispatcher) {
    CMPIContext* ctx = broker->newContext("root/cimv2");
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    CMPIStatus rc{};
    const std::vector<CMPIEnumeration*> results = {
        CBExecQuery(mb, ctx, op, "select * from Test_Record", "WQL", &rc),
        CBAssociators(mb, ctx, op, nullptr, nullptr, nullptr, nullptr, nullptr, &rc),
        CBAssociatorNames(mb, ctx, op, nullptr, nullptr, nullptr, nullptr, &rc),
        CBReferences(mb, ctx, op, nullptr, nullptr, nullptr, &rc),
        CBReferenceNames(mb, ctx, op, nullptr, nullptr, &rc)};
    for (CMPIEnumeration* en : results) {
        ASSERT_NE(en, nullptr);
        CMPIArray* all = CMToArray(en, nullptr);
        EXPECT_EQ(CMGetArrayCount(all, nullptr), 2u);
    }
}

TEST_F(UpcallTest, GetInstanceAndInvokeMethodCopyTheFirstResultAndTheOutArguments) {
    CallScope caller(*broker);
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    CMPIStatus rc{};
    // Without a context the broker makes one for the path's namespace.
    CMPIInstance* inst = CBGetInstance(mb, nullptr, op, nullptr, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetProperty(inst, "Id", nullptr).value.uint32, 1u);
    EXPECT_EQ(dispatcher.seenNameSpace, "root/cimv2");

    CMPIArgs* in = CMNewArgs(mb, nullptr);
    CMPIUint32 count = 21;
    CMAddArg(in, "Count", &count, CMPI_uint32);
    CMPIArgs* out = CMNewArgs(mb, nullptr);
    CMPIData result =
        CBInvokeMethod(mb, broker->newContext("root/cimv2"), op, "Ping", in, out, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(dispatcher.seenMethod, "Ping");
    EXPECT_EQ(result.type, CMPI_uint32);
    EXPECT_EQ(result.value.uint32, 42u);
    EXPECT_EQ(text(CMGetArg(out, "Echo", nullptr).value.string), "pong");

    dispatcher.records = 0;
    EXPECT_EQ(CBGetInstance(mb, nullptr, op, nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_FOUND);
}

TEST_F(UpcallTest, CreateModifyAndDeleteReportTheDispatchersStatus) {
    CMPIContext* ctx = broker->newContext("root/cimv2");
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    CMPIInstance* inst = instance("Test_Record");
    CMPIUint32 id = 8;
    CMSetProperty(inst, "Id", &id, CMPI_uint32);
    CMPIStatus rc{};
    CMPIObjectPath* made = CBCreateInstance(mb, ctx, op, inst, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(pathText(made), "root/cimv2:Test_Record.Id=8");
    EXPECT_EQ(CBModifyInstance(mb, ctx, op, inst, nullptr).rc, CMPI_RC_OK);
    CMPIStatus deleted = CBDeleteInstance(mb, ctx, op);
    EXPECT_EQ(deleted.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(text(deleted.msg), "no such record");
}

TEST_F(UpcallTest, ErrorsAndExceptionsBecomeStatusesWithMessages) {
    CMPIContext* ctx = broker->newContext("root/cimv2");
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    CMPIStatus rc{};
    dispatcher.failure = OperationStatus::make(CMPI_RC_ERR_ACCESS_DENIED, "go away");
    EXPECT_EQ(CBEnumInstances(mb, ctx, op, nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_ACCESS_DENIED);
    EXPECT_EQ(text(rc.msg), "go away");

    dispatcher.throwing = true;
    EXPECT_EQ(CBEnumInstanceNames(mb, ctx, op, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_FAILED);

    broker->setDispatcher(nullptr);
    EXPECT_EQ(CBEnumInstances(mb, ctx, op, nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(CBDeleteInstance(mb, ctx, op).rc, CMPI_RC_ERR_NOT_SUPPORTED);
    CMPIData none = CBInvokeMethod(mb, ctx, op, "Ping", nullptr, nullptr, &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(none.state & CMPI_nullValue, CMPI_nullValue);
    EXPECT_EQ(mb->bft->setProperty(mb, ctx, op, "Id", nullptr, CMPI_uint32).rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    mb->bft->getProperty(mb, ctx, op, "Id", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
}

TEST_F(UpcallTest, ResultSinkCopiesWhatItIsGivenAndRecordsTheCallOrder) {
    ResultSink sink(*broker);
    CMPIResult* r = sink.cmpi();
    {
        CallScope scope(*broker);
        CMPIInstance* inst = instance("Test_Record");
        CMPIUint32 v = 5;
        EXPECT_EQ(CMReturnData(r, &v, CMPI_uint32).rc, CMPI_RC_OK);
        EXPECT_EQ(CMReturnInstance(r, inst).rc, CMPI_RC_OK);
        EXPECT_EQ(CMReturnObjectPath(r, CMGetObjectPath(inst, nullptr)).rc, CMPI_RC_OK);
        EXPECT_EQ(CMReturnData(r, "text", CMPI_chars).rc, CMPI_RC_OK);
        EXPECT_EQ(CMReturnDone(r).rc, CMPI_RC_OK);
        EXPECT_EQ(CMReturnInstance(r, nullptr).rc, CMPI_RC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(CMReturnObjectPath(r, nullptr).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    }
    using Call = ResultSink::Call;
    EXPECT_EQ(sink.calls(), (std::vector<Call>{Call::Data, Call::Instance, Call::ObjectPath,
                                               Call::Data, Call::Done}));
    EXPECT_TRUE(sink.done());
    ASSERT_EQ(sink.instances().size(), 1u);
    EXPECT_EQ(CMGetPropertyCount(sink.instances()[0], nullptr), 15u);
    EXPECT_EQ(pathText(sink.paths()[0]), "root/cimv2:Test_Record");
    ASSERT_EQ(sink.data().size(), 2u);
    EXPECT_EQ(sink.data()[1].type, CMPI_string);
    EXPECT_EQ(text(sink.data()[1].value.string), "text");
    sink.clear();
    EXPECT_TRUE(sink.calls().empty());
    EXPECT_FALSE(sink.done());
}

} // namespace diaghost::test
