// The other encapsulated types and the broker's helper functions: strings, arrays, datetimes,
// args, contexts, errors, type questions, messages, logging and class hierarchy checks.
#include "BrokerFixture.h"

#include <chrono>
#include <cstdlib>

namespace diaghost::test {

using EncapsulatedTest = BrokerFixture;

TEST_F(EncapsulatedTest, StringHandleIsTheCharPointerAndANullTextGivesANullPointer) {
    CMPIStatus rc{};
    CMPIString* s = CMNewString(mb, "abc", &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_STREQ(CMGetCharPtr(s), "abc");
    EXPECT_EQ(CMGetCharsPtr(s, nullptr), CMGetCharPtr(s));
    CMPIString* copy = CMClone(s, &rc);
    EXPECT_STREQ(CMGetCharPtr(copy), "abc");
    EXPECT_NE(CMGetCharPtr(copy), CMGetCharPtr(s));
    CMRelease(copy);

    CMPIString* none = CMNewString(mb, nullptr, &rc);
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(CMGetCharPtr(none), nullptr);
    EXPECT_EQ(CMGetCharsPtr(none, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_OK);
}

TEST_F(EncapsulatedTest, ArrayElementTypeDropsTheArrayFlagAndSetElementAtChecksIndexAndType) {
    CMPIStatus rc{};
    CMPIArray* withFlag = CMNewArray(mb, 3, CMPI_uint32A, &rc);
    CMPIArray* without = CMNewArray(mb, 3, CMPI_uint32, &rc);
    EXPECT_EQ(CMGetArrayType(withFlag, nullptr), CMPI_uint32);
    EXPECT_EQ(CMGetArrayType(without, nullptr), CMPI_uint32);
    EXPECT_EQ(CMGetArrayCount(without, nullptr), 3u);
    // Elements start null.
    CMPIData e = CMGetArrayElementAt(without, 0, &rc);
    EXPECT_EQ(e.type, CMPI_uint32);
    EXPECT_EQ(e.state, CMPI_nullValue);

    CMPIUint32 v = 11;
    EXPECT_EQ(CMSetArrayElementAt(without, 2, &v, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetArrayElementAt(without, 2, nullptr).value.uint32, 11u);
    EXPECT_EQ(CMSetArrayElementAt(without, 3, &v, CMPI_uint32).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    CMPIUint16 narrow = 1;
    EXPECT_EQ(CMSetArrayElementAt(without, 0, &narrow, CMPI_uint16).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    CMGetArrayElementAt(without, 3, &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);

    // Strings take chars, and a chars array is a string array.
    CMPIArray* strings = CMNewArray(mb, 1, CMPI_charsA, &rc);
    EXPECT_EQ(CMGetArrayType(strings, nullptr), CMPI_string);
    EXPECT_EQ(CMSetArrayElementAt(strings, 0, "x", CMPI_chars).rc, CMPI_RC_OK);
    EXPECT_EQ(text(CMGetArrayElementAt(strings, 0, nullptr).value.string), "x");

    EXPECT_EQ(CMNewArray(mb, 1, 0x7777, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
    EXPECT_EQ(CMNewArray(mb, 0xFFFFFFFFu, CMPI_uint8, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(EncapsulatedTest, DateTimeFromCharsRoundTripsTimestampsAndIntervals) {
    CMPIStatus rc{};
    // 2000-01-01 00:00:00 UTC is 946684800 s after the epoch; +060 means an hour ahead of UTC.
    CMPIDateTime* dt = CMNewDateTimeFromChars(mb, "20000101010000.000001+060", &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetBinaryFormat(dt, nullptr), 946684800000001ULL);
    EXPECT_FALSE(CMIsInterval(dt, nullptr));
    EXPECT_EQ(text(CMGetStringFormat(dt, nullptr)), "20000101010000.000001+060");

    CMPIDateTime* leap = CMNewDateTimeFromChars(mb, "20240229235959.999999-300", &rc);
    EXPECT_EQ(text(CMGetStringFormat(leap, nullptr)), "20240229235959.999999-300");

    CMPIDateTime* span = CMNewDateTimeFromChars(mb, "00000002030405.000600:000", &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_TRUE(CMIsInterval(span, nullptr));
    EXPECT_EQ(CMGetBinaryFormat(span, nullptr),
              ((2ULL * 24 + 3) * 3600 + 4 * 60 + 5) * 1000000ULL + 600);
    EXPECT_EQ(text(CMGetStringFormat(span, nullptr)), "00000002030405.000600:000");

    CMPIDateTime* fromBinary = CMNewDateTimeFromBinary(mb, 946684800000001ULL, 0, &rc);
    EXPECT_EQ(text(CMGetStringFormat(fromBinary, nullptr)), "20000101000000.000001+000");
    CMPIDateTime* intervalFromBinary = CMNewDateTimeFromBinary(mb, 90061000001ULL, 1, &rc);
    EXPECT_EQ(text(CMGetStringFormat(intervalFromBinary, nullptr)), "00000001010101.000001:000");
}

TEST_F(EncapsulatedTest, DateTimeFromCharsRejectsMalformedText) {
    const char* bad[] = {nullptr,
                         "",
                         "2000010101000.000001+060",   // 24 characters
                         "20000101010000.000001+0600", // 26 characters
                         "20000101010000,000001+060",  // no dot
                         "20000101010000.000001*060",  // bad sign
                         "2000a101010000.000001+060",  // letter
                         "20001301010000.000001+000",  // month 13
                         "20230229010000.000001+000",  // no 29 February in 2023
                         "20000101240000.000000+000",  // hour 24
                         "20000101006000.000000+000",  // minute 60
                         "00000001010101.000001:001",  // interval with an offset
                         "19691231235959.000000+000"}; // before the epoch
    for (const char* text : bad) {
        CMPIStatus rc{};
        EXPECT_EQ(CMNewDateTimeFromChars(mb, text, &rc), nullptr) << (text ? text : "null");
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER) << (text ? text : "null");
    }
    CMPIStatus rc{};
    EXPECT_EQ(CMNewDateTimeFromBinary(mb, ~0ULL, 0, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(EncapsulatedTest, NewDateTimeIsTheCurrentUtcTime) {
    auto before = std::chrono::duration_cast<std::chrono::microseconds>(
                      std::chrono::system_clock::now().time_since_epoch())
                      .count();
    CMPIDateTime* now = CMNewDateTime(mb, nullptr);
    auto after = std::chrono::duration_cast<std::chrono::microseconds>(
                     std::chrono::system_clock::now().time_since_epoch())
                     .count();
    CMPIUint64 value = CMGetBinaryFormat(now, nullptr);
    EXPECT_GE(value, static_cast<CMPIUint64>(before));
    EXPECT_LE(value, static_cast<CMPIUint64>(after));
    EXPECT_EQ(text(CMGetStringFormat(now, nullptr)).substr(21), "+000");
}

TEST_F(EncapsulatedTest, ArgsReplaceSameNamedArgumentsAndReportMissingOnes) {
    CMPIStatus rc{};
    CMPIArgs* args = CMNewArgs(mb, &rc);
    CMPIUint32 one = 1, two = 2;
    CMAddArg(args, "Count", &one, CMPI_uint32);
    CMAddArg(args, "Name", "n", CMPI_chars);
    CMAddArg(args, "COUNT", &two, CMPI_uint32);
    EXPECT_EQ(CMGetArgCount(args, nullptr), 2u);
    EXPECT_EQ(CMGetArg(args, "count", nullptr).value.uint32, 2u);
    CMPIString* name = nullptr;
    CMPIData second = CMGetArgAt(args, 1, &name, &rc);
    EXPECT_EQ(text(name), "Name");
    EXPECT_EQ(text(second.value.string), "n");
    CMPIData missing = CMGetArg(args, "Other", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(missing.type, CMPI_null);
    EXPECT_EQ(missing.state, CMPI_nullValue | CMPI_notFound);
}

TEST_F(EncapsulatedTest, ContextCarriesTheCallEntries) {
    CMPIContext* ctx = broker->newContext("root/test");
    CMPIStatus rc{};
    EXPECT_EQ(text(CMGetContextEntry(ctx, CMPIInitNameSpace, &rc).value.string), "root/test");
    CMPIData flags = CMGetContextEntry(ctx, CMPIInvocationFlags, &rc);
    EXPECT_EQ(flags.type, CMPI_uint32);
    EXPECT_EQ(flags.value.uint32, 0u);
    EXPECT_EQ(text(CMGetContextEntry(ctx, CMPIPrincipal, &rc).value.string), "root");
    CMPIUint32 session = 9;
    EXPECT_EQ(CMAddContextEntry(ctx, CMPISessionId, &session, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetContextEntryCount(ctx, nullptr), 4u);
    CMGetContextEntry(ctx, "Nothing", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_FOUND);
}

TEST_F(EncapsulatedTest, ErrorKeepsWhatItWasMadeAndSetWith) {
    CMPIStatus rc{};
    CMPIError* err = CMNewCMPIError(mb, "owner", "MSG1", "it broke", ErrorSevHigh, Disk_Failure,
                                    CMPI_RC_ERR_NOT_FOUND, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(text(CMGetErrorMessage(err, nullptr)), "it broke");
    EXPECT_EQ(text(CMGetOwningEntity(err, nullptr)), "owner");
    EXPECT_EQ(CMGetPerceivedSeverity(err, nullptr), ErrorSevHigh);
    EXPECT_EQ(CMGetProbableCause(err, nullptr), Disk_Failure);
    EXPECT_EQ(CMGetCIMStatusCode(err, nullptr), CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(CMGetErrorSource(err, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(CMSetErrorSource(err, "disk0").rc, CMPI_RC_OK);
    EXPECT_EQ(text(CMGetErrorSource(err, nullptr)), "disk0");
    CMPIArray* actions = CMNewArray(mb, 1, CMPI_string, nullptr);
    CMSetArrayElementAt(actions, 0, "replace it", CMPI_chars);
    EXPECT_EQ(CMSetRecommendedActions(err, actions).rc, CMPI_RC_OK);
    CMPIError* copy = CMClone(err, nullptr);
    CMPIArray* got = CMGetRecommendedActions(copy, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(text(CMGetArrayElementAt(got, 0, nullptr).value.string), "replace it");
    CMRelease(copy);
}

TEST_F(EncapsulatedTest, TypeQuestionsNameEveryEncapsulatedType) {
    CMPIStatus rc{};
    const std::vector<std::pair<const void*, std::string>> objects = {
        {instance("Test_Record"), "CMPIInstance"},
        {path("root/cimv2", "Test_Record"), "CMPIObjectPath"},
        {CMNewString(mb, "s", nullptr), "CMPIString"},
        {CMNewArray(mb, 1, CMPI_uint8, nullptr), "CMPIArray"},
        {CMNewArgs(mb, nullptr), "CMPIArgs"},
        {CMNewDateTime(mb, nullptr), "CMPIDateTime"},
        {broker->newContext("root/cimv2"), "CMPIContext"},
        {mb, "CMPIBroker"}};
    for (const auto& [object, type] : objects) {
        EXPECT_EQ(text(CDGetType(mb, object, &rc)), type);
        EXPECT_TRUE(CDIsOfType(mb, object, type.c_str(), &rc)) << type;
        EXPECT_FALSE(CDIsOfType(mb, object, "CMPISelectExp", &rc)) << type;
    }
    EXPECT_EQ(text(CDToString(mb, CMNewString(mb, "plain", nullptr), nullptr)), "plain");
    CMPIInstance* rec = instance("Test_Record");
    CMPIUint32 id = 3;
    CMSetProperty(rec, "Id", &id, CMPI_uint32);
    setChars(rec, "Text", "a\"b");
    EXPECT_EQ(text(CDToString(mb, rec, nullptr)),
              "instance of Test_Record {\n    Id = 3;\n    Text = \"a\\\"b\";\n};\n");
    int notAnObject[4] = {};
    EXPECT_EQ(CDGetType(mb, notAnObject, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(CDToString(mb, nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(EncapsulatedTest, ClassPathIsAFollowsTheHierarchyIgnoringCase) {
    CMPIObjectPath* disk = path("root/cimv2", "test_disk");
    CMPIStatus rc{};
    EXPECT_TRUE(CMClassPathIsA(mb, disk, "Test_Disk", &rc));
    EXPECT_TRUE(CMClassPathIsA(mb, disk, "TEST_LOGICALDEVICE", &rc));
    EXPECT_TRUE(CMClassPathIsA(mb, disk, "Test_ManagedElement", &rc));
    EXPECT_FALSE(CMClassPathIsA(mb, disk, "Test_Record", &rc));
    EXPECT_EQ(rc.rc, CMPI_RC_OK);
    // A parent is not its own subclass.
    EXPECT_FALSE(CMClassPathIsA(mb, path("root/cimv2", "Test_LogicalDevice"), "Test_Disk", &rc));
    // Namespace matters: the hierarchy is looked up where the path points.
    EXPECT_FALSE(CMClassPathIsA(mb, path("root/other", "Test_Disk"), "Test_LogicalDevice", &rc));
    EXPECT_FALSE(CMClassPathIsA(mb, disk, nullptr, &rc));
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(EncapsulatedTest, GetMessageSubstitutesInsertsIntoTheDefaultText) {
    CMPIStatus rc{};
    CMPIString* s = CMNewString(mb, "str", nullptr);
    CMPIString* msg = CMGetMessage(mb, "ID1", "$0 failed $1 times ($2, $3, $4, $5) $6 $9 $$", &rc,
                                   CMFmtArgs7(CMFmtChars("disk"), CMFmtSint(-3), CMFmtUint(4),
                                              CMFmtBoolean(1), CMFmtReal(0.25), CMFmtString(s),
                                              CMFmtUint64(18446744073709551615ULL)));
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(text(msg), "disk failed -3 times (4, true, 0.25, str) 18446744073709551615 $9 $$");
    CMPIMsgFileHandle handle = reinterpret_cast<CMPIMsgFileHandle>(1);
    EXPECT_EQ(mb->eft->openMessageFile(mb, "messages.txt", &handle).rc, CMPI_RC_OK);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(
        text(mb->eft->getMessage2(mb, "ID", handle, "n=$0", &rc, CMFmtArgs1(CMFmtSint64(-9)))),
        "n=-9");
    EXPECT_EQ(mb->eft->closeMessageFile(mb, handle).rc, CMPI_RC_OK);
}

TEST_F(EncapsulatedTest, LogMessageAndTraceLandInTheSinkButSfcbDropsLogMessages) {
    CMPIString* s = CMNewString(mb, "from string", nullptr);
    EXPECT_EQ(CMLogMessage(mb, CMPI_SEV_WARNING, "prov", "direct", nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(CMLogMessage(mb, CMPI_SEV_ERROR, "prov", nullptr, s).rc, CMPI_RC_OK);
    EXPECT_EQ(CMTraceMessage(mb, CMPI_LEV_VERBOSE, "comp", "traced", nullptr).rc, CMPI_RC_OK);
    EXPECT_EQ(log.texts("prov"), (std::vector<std::string>{"direct", "from string"}));
    std::vector<LogEntry> entries = log.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].severity, CMPI_SEV_WARNING);
    EXPECT_TRUE(entries[2].trace);
    EXPECT_EQ(entries[2].id, "comp");
    EXPECT_EQ(entries[2].severity, CMPI_LEV_VERBOSE);

    auto sfcb = makeBroker(PathDialect::Sfcb);
    EXPECT_EQ(CMLogMessage(sfcb->cmpi(), CMPI_SEV_INFO, "prov", "dropped", nullptr).rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    entries = log.entries();
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[3].text, "dropped");
    EXPECT_TRUE(entries[3].dropped);
    EXPECT_FALSE(entries[0].dropped);
}

TEST_F(EncapsulatedTest, FullLogSinkDropsTheOldestLinesAndKeepsTheOrder) {
    LogSink small(3);
    for (int i = 0; i < 7; ++i)
        small.write(4, "diagcore", "line " + std::to_string(i), false, false);
    small.write(LogEntry{1, "other", "as entry", false});
    EXPECT_EQ(small.texts("diagcore"), (std::vector<std::string>{"line 5", "line 6"}));
    std::vector<LogEntry> kept = small.entries();
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[2].id, "other");
    EXPECT_EQ(kept[2].severity, 1);
    small.clear();
    small.write(2, "diagcore", "after clear", true, false);
    ASSERT_EQ(small.size(), 1u);
    EXPECT_TRUE(small.entries()[0].trace);
}

TEST_F(EncapsulatedTest, BrokerIdentifiesItselfAndRefusesWhatItDoesNotServe) {
    EXPECT_EQ(Broker::from(mb), broker.get());
    EXPECT_STREQ(mb->bft->brokerName, "diaghost");
    EXPECT_EQ(mb->bft->brokerVersion, 200u);
    EXPECT_EQ(mb->bft->brokerCapabilities & CMPI_MB_Supports_PropertyMI, 0u);
    EXPECT_EQ(mb->bft->brokerCapabilities & CMPI_MB_Supports_IndicationMI, 0u);
    EXPECT_EQ(mb->bft->brokerCapabilities & CMPI_MB_AssociationTraversal,
              static_cast<unsigned>(CMPI_MB_AssociationTraversal));
    CMPIStatus rc{};
    EXPECT_EQ(CMNewSelectExp(mb, "select * from X", "WQL", nullptr, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    CMPIContext* ctx = broker->newContext("root/cimv2");
    EXPECT_EQ(mb->bft->deliverIndication(mb, ctx, "root/cimv2", instance("Test_Record")).rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    char* name = mb->xft->resolveFileName("Disk");
    EXPECT_STREQ(name, "libDisk.so");
    free(name);
}

} // namespace diaghost::test
