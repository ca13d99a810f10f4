// Object paths: key handling and their text in the two dialects.
#include "BrokerFixture.h"

namespace diaghost::test {

class PathTextTest : public BrokerFixture {
protected:
    // A path of Test_LogicalDevice with its keys added in declaration order (not sorted).
    CMPIObjectPath* devicePath(const CMPIBroker* b, const char* ns, const char* host) {
        CMPIObjectPath* op = CMNewObjectPath(b, ns, "Test_LogicalDevice", nullptr);
        if (host)
            CMSetHostname(op, host);
        CMAddKey(op, "SystemName", "sys", CMPI_chars);
        CMAddKey(op, "CreationClassName", "Test_LogicalDevice", CMPI_chars);
        CMAddKey(op, "deviceID", "d\"1\\x", CMPI_chars);
        return op;
    }
};

TEST_F(PathTextTest, PegasusSortsKeysIgnoringCaseEscapesStringsAndShowsTheHost) {
    CMPIObjectPath* op = devicePath(mb, "root/cimv2", "server1");
    EXPECT_EQ(pathText(op), "//server1/root/cimv2:Test_LogicalDevice."
                            "CreationClassName=\"Test_LogicalDevice\",deviceID=\"d\\\"1\\\\x\","
                            "SystemName=\"sys\"");
    // Without host or namespace those parts disappear.
    CMSetHostname(op, "");
    CMSetNameSpace(op, "");
    EXPECT_EQ(pathText(op).rfind("Test_LogicalDevice.CreationClassName=", 0), 0u);
    // No keys: no dot.
    EXPECT_EQ(pathText(path("root/cimv2", "Test_Disk")), "root/cimv2:Test_Disk");
}

TEST_F(PathTextTest, SfcbKeepsInsertionOrderDoesNotEscapeAndNeverShowsTheHost) {
    auto sfcb = makeBroker(PathDialect::Sfcb);
    CMPIObjectPath* op = devicePath(sfcb->cmpi(), "root/cimv2", "server1");
    EXPECT_EQ(pathText(op), "root/cimv2:Test_LogicalDevice.SystemName=\"sys\","
                            "CreationClassName=\"Test_LogicalDevice\",deviceID=\"d\"1\\x\"");
    CMSetNameSpace(op, nullptr);
    EXPECT_EQ(pathText(op).rfind("Test_LogicalDevice.SystemName=", 0), 0u);
}

TEST_F(PathTextTest, ScalarKeysRenderAsEachDialectWritesThem) {
    auto sfcb = makeBroker(PathDialect::Sfcb);
    for (const CMPIBroker* b : {mb, sfcb->cmpi()}) {
        CMPIObjectPath* op = CMNewObjectPath(b, "", "Test_Record", nullptr);
        CMPIBoolean yes = 1;
        CMPISint32 minus = -12;
        CMPIUint64 big = 18446744073709551615ULL;
        CMPIChar16 letter = 'q';
        CMPIReal64 half = 0.5;
        CMAddKey(op, "a_Flag", &yes, CMPI_boolean);
        CMAddKey(op, "b_Minus", &minus, CMPI_sint32);
        CMAddKey(op, "c_Big", &big, CMPI_uint64);
        CMAddKey(op, "d_Letter", &letter, CMPI_char16);
        CMAddKey(op, "e_Half", &half, CMPI_real64);
        CMPIDateTime* dt = CMNewDateTimeFromChars(b, "20240102030405.000006-120", nullptr);
        CMAddKey(op, "f_When", &dt, CMPI_dateTime);
        const bool pegasus = b == mb;
        EXPECT_EQ(pathText(op),
                  std::string("Test_Record.a_Flag=") + (pegasus ? "TRUE" : "true") +
                      ",b_Minus=-12,c_Big=18446744073709551615,d_Letter=\"q\",e_Half=0.5,"
                      "f_When=\"20240102030405.000006-120\"");
    }
}

TEST_F(PathTextTest, ReferenceKeysNestTheInnerPathQuotedInPegasusAndBareInSfcb) {
    auto sfcb = makeBroker(PathDialect::Sfcb);
    for (const CMPIBroker* b : {mb, sfcb->cmpi()}) {
        const bool pegasus = b == mb;
        CMPIObjectPath* inner = CMNewObjectPath(b, "root/cimv2", "Test_Record", nullptr);
        CMAddKey(inner, "Name", "x\"y", CMPI_chars);
        CMPIObjectPath* middle = CMNewObjectPath(b, "root/cimv2", "Test_Link", nullptr);
        CMAddKey(middle, "Dependent", &inner, CMPI_ref);
        CMPIObjectPath* outer = CMNewObjectPath(b, "root/cimv2", "Test_Link", nullptr);
        CMAddKey(outer, "Antecedent", &middle, CMPI_ref);
        if (pegasus) {
            EXPECT_EQ(pathText(outer),
                      "root/cimv2:Test_Link.Antecedent=\"root/cimv2:Test_Link.Dependent=\\\"root/"
                      "cimv2:Test_Record.Name=\\\\\\\"x\\\\\\\\\\\\\\\"y\\\\\\\"\\\"\"");
        } else {
            EXPECT_EQ(pathText(outer), "root/cimv2:Test_Link.Antecedent=root/cimv2:Test_Link."
                                       "Dependent=root/cimv2:Test_Record.Name=\"x\"y\"");
        }
    }
}

TEST_F(PathTextTest, AddKeyReplacesASameNamedKeyInPlaceAndGetKeyIgnoresCase) {
    auto sfcb = makeBroker(PathDialect::Sfcb);
    CMPIObjectPath* op = CMNewObjectPath(sfcb->cmpi(), "root/cimv2", "Test_Record", nullptr);
    CMAddKey(op, "First", "1", CMPI_chars);
    CMAddKey(op, "Second", "2", CMPI_chars);
    CMPIUint32 three = 3;
    ASSERT_EQ(CMAddKey(op, "FIRST", &three, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetKeyCount(op, nullptr), 2u);
    EXPECT_EQ(pathText(op), "root/cimv2:Test_Record.First=3,Second=\"2\"");

    CMPIStatus rc{};
    CMPIData d = CMGetKey(op, "second", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(d.type, CMPI_string);
    EXPECT_TRUE(d.state & CMPI_keyValue);
    EXPECT_EQ(text(d.value.string), "2");
    d = CMGetKey(op, "Third", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(d.state, CMPI_nullValue | CMPI_notFound);
    CMGetKeyAt(op, 5, nullptr, &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
}

TEST_F(PathTextTest, InstancePathTextFollowsDeclarationOrderInSfcbAndSortedOrderInPegasus) {
    auto sfcb = makeBroker(PathDialect::Sfcb);
    for (const CMPIBroker* b : {mb, sfcb->cmpi()}) {
        CMPIObjectPath* op = CMNewObjectPath(b, "root/cimv2", "Test_LogicalDevice", nullptr);
        CMPIInstance* inst = CMNewInstance(b, op, nullptr);
        CMSetProperty(inst, "deviceID", "d", CMPI_chars);
        CMSetProperty(inst, "CreationClassName", "C", CMPI_chars);
        CMSetProperty(inst, "SystemName", "s", CMPI_chars);
        std::string expected = b == mb ? "CreationClassName=\"C\",deviceID=\"d\",SystemName=\"s\""
                                       : "SystemName=\"s\",CreationClassName=\"C\",deviceID=\"d\"";
        EXPECT_EQ(pathText(CMGetObjectPath(inst, nullptr)),
                  "root/cimv2:Test_LogicalDevice." + expected);
    }
}

TEST_F(PathTextTest, SfcbInstancePathsListKeysAsSfcbCompiledTheClassPegasusStillSorts) {
    // A port whose keys are declared three levels up: sfcb's repository lists them reversed.
    repo.loadText(R"(
class Test_Device { [Key] string SystemCreationClassName; [Key] string SystemName;
                    [Key] string CreationClassName; [Key] string DeviceID; };
class Test_Port : Test_Device { uint64 Speed; };
class Test_NetworkPort : Test_Port { [Override ("Speed")] uint64 Speed; };
class Test_OwnPort : Test_NetworkPort { string OperState; };
)",
                  "root/cimv2", "ports.mof");
    auto sfcb = makeBroker(PathDialect::Sfcb);
    for (const CMPIBroker* b : {mb, sfcb->cmpi()}) {
        // The provider sets the keys in yet another order, and the path it names the class by
        // carries one of them already.
        CMPIObjectPath* op = CMNewObjectPath(b, "root/cimv2", "Test_OwnPort", nullptr);
        CMAddKey(op, "SystemName", "host1", CMPI_chars);
        CMPIInstance* port = CMNewInstance(b, op, nullptr);
        ASSERT_NE(port, nullptr);
        CMSetProperty(port, "SystemCreationClassName", "Sys", CMPI_chars);
        CMSetProperty(port, "DeviceID", "eth0", CMPI_chars);
        CMSetProperty(port, "CreationClassName", "Test_OwnPort", CMPI_chars);
        const std::string expected = b == mb
                                         ? "CreationClassName=\"Test_OwnPort\",DeviceID=\"eth0\","
                                           "SystemCreationClassName=\"Sys\",SystemName=\"host1\""
                                         : "DeviceID=\"eth0\",CreationClassName=\"Test_OwnPort\","
                                           "SystemName=\"host1\",SystemCreationClassName=\"Sys\"";
        CMPIObjectPath* result = CMGetObjectPath(port, nullptr);
        EXPECT_EQ(pathText(result), "root/cimv2:Test_OwnPort." + expected);
        // The path's own key order is the one its text shows.
        CMPIString* first = nullptr;
        CMGetKeyAt(result, 0, &first, nullptr);
        EXPECT_EQ(text(first), b == mb ? "SystemCreationClassName" : "DeviceID");
    }
}

TEST_F(PathTextTest, NamespaceAndHostCopyFromAnotherPath) {
    CMPIObjectPath* from = path("root/interop", "Test_Record");
    CMSetHostname(from, "h");
    CMPIObjectPath* op = path("root/cimv2", "Test_Disk");
    ASSERT_EQ(op->ft->setNameSpaceFromObjectPath(op, from).rc, CMPI_RC_OK);
    EXPECT_EQ(pathText(op), "root/interop:Test_Disk");
    ASSERT_EQ(op->ft->setHostAndNameSpaceFromObjectPath(op, from).rc, CMPI_RC_OK);
    EXPECT_EQ(pathText(op), "//h/root/interop:Test_Disk");
    CMPIStatus rc{};
    op->ft->getClassQualifier(op, "Key", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
}

} // namespace diaghost::test
