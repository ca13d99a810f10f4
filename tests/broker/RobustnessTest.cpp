// The function tables are complete, and no function crashes on null or foreign handles: each
// answers an error status instead.
#include "BrokerFixture.h"

#include "host/broker/HostArgs.h"
#include "host/broker/HostArray.h"
#include "host/broker/HostContext.h"
#include "host/broker/HostDateTime.h"
#include "host/broker/HostEnumeration.h"
#include "host/broker/HostError.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"
#include "host/broker/QueryTables.h"
#include "host/broker/ResultSink.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace diaghost::test {

using RobustnessTest = BrokerFixture;

// Reads the table as an array of pointers from the first function slot to its end.
template <class FT>
void expectEverySlotSet(const FT* ft, std::size_t firstSlot, const char* name) {
    ASSERT_NE(ft, nullptr) << name;
    const char* base = reinterpret_cast<const char*>(ft);
    std::size_t slots = 0;
    for (std::size_t at = firstSlot; at + sizeof(void*) <= sizeof(FT); at += sizeof(void*)) {
        void* slot = nullptr;
        std::memcpy(&slot, base + at, sizeof slot);
        EXPECT_NE(slot, nullptr) << name << " slot at byte " << at;
        ++slots;
    }
    EXPECT_GT(slots, 2u) << name;
}

TEST_F(RobustnessTest, EveryFunctionTableSlotIsFilledIn) {
    ResultSink sink(*broker);
    expectEverySlotSet(mb->bft, offsetof(CMPIBrokerFT, prepareAttachThread), "broker");
    expectEverySlotSet(mb->eft, offsetof(CMPIBrokerEncFT, newInstance), "encapsulated");
    expectEverySlotSet(mb->xft, offsetof(CMPIBrokerExtFT, resolveFileName), "os");
    expectEverySlotSet(mb->mft, offsetof(CMPIBrokerMemFT, mark), "memory");
    expectEverySlotSet(HostString::table(), offsetof(CMPIStringFT, release), "string");
    expectEverySlotSet(HostArray::table(), offsetof(CMPIArrayFT, release), "array");
    expectEverySlotSet(HostDateTime::table(), offsetof(CMPIDateTimeFT, release), "datetime");
    expectEverySlotSet(HostObjectPath::table(), offsetof(CMPIObjectPathFT, release), "path");
    expectEverySlotSet(HostInstance::table(), offsetof(CMPIInstanceFT, release), "instance");
    expectEverySlotSet(HostArgs::table(), offsetof(CMPIArgsFT, release), "args");
    expectEverySlotSet(HostEnumeration::table(), offsetof(CMPIEnumerationFT, release), "enum");
    expectEverySlotSet(HostContext::table(), offsetof(CMPIContextFT, release), "context");
    expectEverySlotSet(HostError::table(), offsetof(CMPIErrorFT, release), "error");
    expectEverySlotSet(sink.cmpi()->ft, offsetof(CMPIResultFT, release), "result");
    expectEverySlotSet(QueryTables::selectExp(), offsetof(CMPISelectExpFT, release), "selexp");
    expectEverySlotSet(QueryTables::selectCond(), offsetof(CMPISelectCondFT, release), "selcond");
    expectEverySlotSet(QueryTables::subCond(), offsetof(CMPISubCondFT, release), "subcond");
    expectEverySlotSet(QueryTables::predicate(), offsetof(CMPIPredicateFT, release), "predicate");
    // The objects carry these tables.
    EXPECT_EQ(CMNewString(mb, "s", nullptr)->ft, HostString::table());
    EXPECT_EQ(instance("Test_Record")->ft, HostInstance::table());
    EXPECT_EQ(QueryTables::selectExp()->ftVersion, CMPIVersion200);
}

TEST_F(RobustnessTest, NullObjectsAnswerInvalidHandle) {
    constexpr CMPIrc bad = CMPI_RC_ERR_INVALID_HANDLE;
    CMPIStatus rc{};
    auto expectBad = [&](const char* what) {
        EXPECT_EQ(rc.rc, bad) << what;
        rc.rc = CMPI_RC_OK;
    };
    const CMPIInstanceFT* inst = HostInstance::table();
    EXPECT_EQ(inst->release(nullptr).rc, bad);
    EXPECT_EQ(inst->clone(nullptr, &rc), nullptr);
    expectBad("instance clone");
    EXPECT_EQ(inst->getProperty(nullptr, "x", &rc).state, CMPI_nullValue | CMPI_notFound);
    expectBad("getProperty");
    inst->getPropertyAt(nullptr, 0, nullptr, &rc);
    expectBad("getPropertyAt");
    EXPECT_EQ(inst->getPropertyCount(nullptr, &rc), 0u);
    expectBad("getPropertyCount");
    EXPECT_EQ(inst->setProperty(nullptr, "x", nullptr, CMPI_uint8).rc, bad);
    EXPECT_EQ(inst->getObjectPath(nullptr, &rc), nullptr);
    expectBad("getObjectPath");
    EXPECT_EQ(inst->setPropertyFilter(nullptr, nullptr, nullptr).rc, bad);
    EXPECT_EQ(inst->setObjectPath(nullptr, nullptr).rc, bad);
    EXPECT_EQ(inst->setPropertyWithOrigin(nullptr, "x", nullptr, CMPI_uint8, "o").rc, bad);

    const CMPIObjectPathFT* op = HostObjectPath::table();
    EXPECT_EQ(op->release(nullptr).rc, bad);
    EXPECT_EQ(op->setNameSpace(nullptr, "x").rc, bad);
    EXPECT_EQ(op->getNameSpace(nullptr, &rc), nullptr);
    expectBad("getNameSpace");
    EXPECT_EQ(op->setHostname(nullptr, "x").rc, bad);
    EXPECT_EQ(op->getHostname(nullptr, &rc), nullptr);
    expectBad("getHostname");
    EXPECT_EQ(op->setClassName(nullptr, "x").rc, bad);
    EXPECT_EQ(op->getClassName(nullptr, &rc), nullptr);
    expectBad("getClassName");
    EXPECT_EQ(op->addKey(nullptr, "k", nullptr, CMPI_uint8).rc, bad);
    op->getKey(nullptr, "k", &rc);
    expectBad("getKey");
    op->getKeyAt(nullptr, 0, nullptr, &rc);
    expectBad("getKeyAt");
    EXPECT_EQ(op->getKeyCount(nullptr, &rc), 0u);
    expectBad("getKeyCount");
    EXPECT_EQ(op->setNameSpaceFromObjectPath(nullptr, nullptr).rc, bad);
    EXPECT_EQ(op->setHostAndNameSpaceFromObjectPath(nullptr, nullptr).rc, bad);
    op->getClassQualifier(nullptr, "q", &rc);
    expectBad("getClassQualifier");
    op->getPropertyQualifier(nullptr, "p", "q", &rc);
    expectBad("getPropertyQualifier");
    op->getMethodQualifier(nullptr, "m", "q", &rc);
    expectBad("getMethodQualifier");
    op->getParameterQualifier(nullptr, "m", "p", "q", &rc);
    expectBad("getParameterQualifier");
    EXPECT_EQ(op->toString(nullptr, &rc), nullptr);
    expectBad("toString");

    EXPECT_EQ(HostString::table()->getCharPtr(nullptr, &rc), nullptr);
    expectBad("getCharPtr");
    EXPECT_EQ(HostArray::table()->getSize(nullptr, &rc), 0u);
    expectBad("getSize");
    EXPECT_EQ(HostArray::table()->setElementAt(nullptr, 0, nullptr, CMPI_uint8).rc, bad);
    HostArray::table()->getElementAt(nullptr, 0, &rc);
    expectBad("getElementAt");
    EXPECT_EQ(HostDateTime::table()->getStringFormat(nullptr, &rc), nullptr);
    expectBad("getStringFormat");
    EXPECT_EQ(HostDateTime::table()->isInterval(nullptr, &rc), 0);
    expectBad("isInterval");
    EXPECT_EQ(HostArgs::table()->addArg(nullptr, "a", nullptr, CMPI_uint8).rc, bad);
    HostArgs::table()->getArgAt(nullptr, 0, nullptr, &rc);
    expectBad("getArgAt");
    EXPECT_EQ(HostEnumeration::table()->hasNext(nullptr, &rc), 0);
    expectBad("hasNext");
    HostEnumeration::table()->getNext(nullptr, &rc);
    expectBad("getNext");
    EXPECT_EQ(HostEnumeration::table()->toArray(nullptr, &rc), nullptr);
    expectBad("toArray");
    EXPECT_EQ(HostContext::table()->addEntry(nullptr, "e", nullptr, CMPI_uint8).rc, bad);
    HostContext::table()->getEntryAt(nullptr, 0, nullptr, &rc);
    expectBad("getEntryAt");
    EXPECT_EQ(HostError::table()->getMessage(nullptr, &rc), nullptr);
    expectBad("error getMessage");
    EXPECT_EQ(HostError::table()->setMessageArguments(nullptr, nullptr).rc, bad);

    ResultSink sink(*broker);
    const CMPIResultFT* result = sink.cmpi()->ft;
    EXPECT_EQ(result->returnInstance(nullptr, nullptr).rc, bad);
    EXPECT_EQ(result->returnDone(nullptr).rc, bad);
    EXPECT_EQ(result->returnError(sink.cmpi(), nullptr).rc, CMPI_RC_ERR_INVALID_PARAMETER);

    EXPECT_EQ(QueryTables::selectExp()->getDOC(nullptr, &rc), nullptr);
    expectBad("getDOC");
    EXPECT_EQ(QueryTables::predicate()->getData(nullptr, nullptr, nullptr, nullptr, nullptr).rc,
              bad);
}

TEST_F(RobustnessTest, NullOrForeignBrokerAndNullArgumentsAreRefused) {
    CMPIStatus rc{};
    CMPIBroker foreign = *mb;
    CMPIBrokerFT otherTable = *mb->bft;
    foreign.bft = &otherTable;
    for (const CMPIBroker* b :
         {static_cast<const CMPIBroker*>(nullptr), static_cast<const CMPIBroker*>(&foreign)}) {
        EXPECT_EQ(mb->eft->newString(b, "x", &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(mb->eft->newInstance(b, path("root/cimv2", "Test_Record"), &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(mb->eft->logMessage(b, 1, "id", "t", nullptr).rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(mb->bft->enumerateInstances(b, nullptr, nullptr, nullptr, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(mb->bft->attachThread(b, nullptr).rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(mb->mft->mark(b, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(mb->mft->cmpiMalloc(b, 10), nullptr);
        mb->mft->cmpiFree(b, nullptr);
        mb->mft->freeInstance(b, nullptr);
    }
    EXPECT_EQ(Broker::from(&foreign), nullptr);

    EXPECT_EQ(CMNewInstance(mb, nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    CMPIInstance* rec = instance("Test_Record");
    CMGetProperty(rec, nullptr, &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(CMSetProperty(rec, nullptr, nullptr, CMPI_uint8).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(CMAddKey(path("", "X"), nullptr, nullptr, CMPI_uint8).rc,
              CMPI_RC_ERR_INVALID_PARAMETER);
    CMPIArgs* args = CMNewArgs(mb, nullptr);
    EXPECT_EQ(CMAddArg(args, nullptr, nullptr, CMPI_uint8).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(mb->bft->getInstance(mb, nullptr, nullptr, nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(mb->mft->release(mb, nullptr).rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(mb->xft->joinThread(nullptr, nullptr), EINVAL);
    EXPECT_EQ(mb->xft->condWait(nullptr, nullptr), EINVAL);
    mb->xft->lockMutex(nullptr);
    mb->xft->destroyMutex(nullptr);
    EXPECT_EQ(mb->bft->prepareAttachThread(mb, nullptr), nullptr);
}

TEST_F(RobustnessTest, ObjectsOfAnotherKindOrOriginAreNotTakenForTheHostsOwn) {
    CMPIStatus rc{};
    // A path handed over where an instance belongs.
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    const CMPIInstance* notAnInstance = reinterpret_cast<const CMPIInstance*>(op);
    HostInstance::table()->getProperty(notAnInstance, "Id", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
    // A string of another implementation is read through its own table.
    CMPIStringFT foreignFt = *HostString::table();
    foreignFt.getCharPtr = [](const CMPIString* s, CMPIStatus*) {
        return static_cast<char*>(s->hdl);
    };
    char textBuffer[] = "foreign";
    CMPIString foreign{textBuffer, &foreignFt};
    CMPIInstance* rec = instance("Test_Record");
    CMPIString* foreignPtr = &foreign;
    ASSERT_EQ(CMSetProperty(rec, "Text", &foreignPtr, CMPI_string).rc, CMPI_RC_OK);
    EXPECT_EQ(stringProperty(rec, "Text"), "foreign");
    // Any other foreign object is refused.
    CMPIDateTime fakeDate{nullptr, nullptr};
    CMPIDateTime* fakePtr = &fakeDate;
    EXPECT_EQ(CMSetProperty(rec, "When", &fakePtr, CMPI_dateTime).rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(CMGetProperty(rec, "When", nullptr).state, CMPI_nullValue);
    // Unknown type codes are not stored.
    CMPIUint32 v = 1;
    CMPIArgs* args = CMNewArgs(mb, nullptr);
    EXPECT_EQ(CMAddArg(args, "x", &v, 0x7777).rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
}

} // namespace diaghost::test
