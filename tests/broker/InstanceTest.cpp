// Instances made by the broker: typed by their class, starting with the class's MOF defaults and
// null elsewhere, strict about names and types, and deriving their object path from the key
// properties.
#include "BrokerFixture.h"

#include <cctype>

namespace diaghost::test {

using InstanceTest = BrokerFixture;

TEST_F(InstanceTest, NewInstanceCarriesEveryDeclaredPropertyTypedAndNullInClassOrder) {
    CMPIInstance* disk = instance("Test_Disk");
    CMPIStatus rc{};
    ASSERT_EQ(CMGetPropertyCount(disk, &rc), 8u);
    const std::vector<std::pair<std::string, CMPIType>> expected = {
        {"Caption", CMPI_string},  {"SystemName", CMPI_string}, {"CreationClassName", CMPI_string},
        {"deviceID", CMPI_string}, {"Enabled", CMPI_boolean},   {"BlockSize", CMPI_uint64},
        {"Labels", CMPI_stringA},  {"Detail", CMPI_string}};
    for (CMPICount i = 0; i < expected.size(); ++i) {
        CMPIString* name = nullptr;
        CMPIData d = CMGetPropertyAt(disk, i, &name, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_EQ(text(name), expected[i].first);
        EXPECT_EQ(d.type, expected[i].second) << expected[i].first;
        EXPECT_EQ(d.state, CMPI_nullValue) << expected[i].first;
    }
    // The name out-parameter is optional; past the end there is nothing.
    EXPECT_EQ(CMGetPropertyAt(disk, 0, nullptr, &rc).type, CMPI_string);
    CMPIData past = CMGetPropertyAt(disk, 8, nullptr, &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(past.type, CMPI_null);
}

TEST_F(InstanceTest, SetPropertyStoresTypedValuesAndGetPropertyIgnoresCase) {
    CMPIInstance* rec = instance("Test_Record");
    CMPIUint32 id = 7;
    CMPIBoolean flag = 1;
    CMPISint8 small = -5;
    CMPIReal64 mean = 2.5;
    CMPIUint8 byte = 200;
    EXPECT_EQ(CMSetProperty(rec, "Id", &id, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(rec, "flag", &flag, CMPI_boolean).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(rec, "SMALL", &small, CMPI_sint8).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(rec, "Mean", &mean, CMPI_real64).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(rec, "Byte", &byte, CMPI_uint8).rc, CMPI_RC_OK);
    setChars(rec, "Text", "hello");

    CMPIStatus rc{};
    CMPIData d = CMGetProperty(rec, "iD", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(d.type, CMPI_uint32);
    EXPECT_EQ(d.state, CMPI_goodValue);
    EXPECT_EQ(d.value.uint32, 7u);
    EXPECT_EQ(CMGetProperty(rec, "Flag", nullptr).value.boolean, 1);
    EXPECT_EQ(CMGetProperty(rec, "Small", nullptr).value.sint8, -5);
    EXPECT_EQ(CMGetProperty(rec, "Mean", nullptr).value.real64, 2.5);
    EXPECT_EQ(CMGetProperty(rec, "Byte", nullptr).value.uint8, 200);
    // CMPI_chars is stored as a string.
    EXPECT_EQ(CMGetProperty(rec, "Text", nullptr).type, CMPI_string);
    EXPECT_EQ(stringProperty(rec, "text"), "hello");
    // Properties not set stay null.
    EXPECT_EQ(CMGetProperty(rec, "Total", nullptr).state, CMPI_nullValue);
}

TEST_F(InstanceTest, UndeclaredPropertyAnswersNoSuchPropertyWithTypelessNotFoundData) {
    CMPIInstance* rec = instance("Test_Record");
    CMPIStatus rc{};
    CMPIData d = CMGetProperty(rec, "NoSuchThing", &rc);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(d.type, 0);
    EXPECT_EQ(d.state, CMPI_nullValue | CMPI_notFound);
    CMPIUint32 v = 1;
    EXPECT_EQ(CMSetProperty(rec, "NoSuchThing", &v, CMPI_uint32).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    EXPECT_EQ(CMGetPropertyCount(rec, nullptr), 15u);
}

TEST_F(InstanceTest, SetPropertyRejectsTypesOtherThanTheDeclaredOneAndKeepsTheOldValue) {
    CMPIInstance* rec = instance("Test_Record");
    CMPIUint16 count = 3;
    ASSERT_EQ(CMSetProperty(rec, "Count", &count, CMPI_uint16).rc, CMPI_RC_OK);
    CMPIUint32 wide = 4;
    CMPIStatus rc = CMSetProperty(rec, "Count", &wide, CMPI_uint32);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMSetProperty(rec, "Count", "3", CMPI_chars).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMSetProperty(rec, "Text", &count, CMPI_uint16).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    EXPECT_EQ(CMGetProperty(rec, "Count", nullptr).value.uint16, 3);

    // An array must be the declared array type, with the declared element type.
    CMPIArray* strings = CMNewArray(mb, 1, CMPI_string, nullptr);
    EXPECT_EQ(CMSetProperty(rec, "Numbers", &strings, CMPI_uint16A).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    CMPIArray* numbers = CMNewArray(mb, 2, CMPI_uint16, nullptr);
    EXPECT_EQ(CMSetProperty(rec, "Numbers", &numbers, CMPI_uint16A).rc, CMPI_RC_OK);

    // A null value pointer makes the property null again.
    EXPECT_EQ(CMSetProperty(rec, "Count", nullptr, CMPI_uint16).rc, CMPI_RC_OK);
    CMPIData d = CMGetProperty(rec, "Count", nullptr);
    EXPECT_EQ(d.type, CMPI_uint16);
    EXPECT_EQ(d.state, CMPI_nullValue);
}

TEST_F(InstanceTest, SetPropertyKeepsACopySoTheCallersObjectsMayGo) {
    CMPIInstance* rec = instance("Test_Record");
    CMPIStatus rc{};
    {
        CallScope scope(*broker);
        CMPIString* s = CMNewString(mb, "copied", &rc);
        ASSERT_EQ(CMSetProperty(rec, "Text", &s, CMPI_string).rc, CMPI_RC_OK);
        CMPIArray* a = CMNewArray(mb, 2, CMPI_uint16A, &rc);
        CMPIUint16 v = 9;
        ASSERT_EQ(CMSetArrayElementAt(a, 1, &v, CMPI_uint16).rc, CMPI_RC_OK);
        ASSERT_EQ(CMSetProperty(rec, "Numbers", &a, CMPI_uint16A).rc, CMPI_RC_OK);
        CMPIDateTime* dt = CMNewDateTimeFromChars(mb, "20240229123000.000000+000", &rc);
        ASSERT_EQ(CMSetProperty(rec, "When", &dt, CMPI_dateTime).rc, CMPI_RC_OK);
        CMPIObjectPath* target = path("root/cimv2", "Test_Disk");
        ASSERT_EQ(CMSetProperty(rec, "Target", &target, CMPI_ref).rc, CMPI_RC_OK);
        CMRelease(s);
    } // every object made above is freed here
    EXPECT_EQ(stringProperty(rec, "Text"), "copied");
    CMPIData numbers = CMGetProperty(rec, "Numbers", nullptr);
    ASSERT_EQ(numbers.type, CMPI_uint16A);
    EXPECT_EQ(CMGetArrayCount(numbers.value.array, nullptr), 2u);
    EXPECT_EQ(CMGetArrayElementAt(numbers.value.array, 1, nullptr).value.uint16, 9);
    CMPIData when = CMGetProperty(rec, "When", nullptr);
    EXPECT_EQ(text(CMGetStringFormat(when.value.dateTime, nullptr)), "20240229123000.000000+000");
    CMPIData target = CMGetProperty(rec, "Target", nullptr);
    EXPECT_EQ(text(CMGetClassName(target.value.ref, nullptr)), "Test_Disk");
}

TEST_F(InstanceTest, EmbeddedInstanceStringPropertyAcceptsAnInstance) {
    CMPIInstance* disk = instance("Test_Disk");
    CMPIInstance* rec = instance("Test_Record");
    EXPECT_EQ(CMSetProperty(disk, "Detail", &rec, CMPI_instance).rc, CMPI_RC_OK);
    CMPIData d = CMGetProperty(disk, "Detail", nullptr);
    EXPECT_EQ(d.type, CMPI_instance);
    EXPECT_NE(d.value.inst, rec); // a copy
    // A plain string property does not.
    EXPECT_EQ(CMSetProperty(disk, "Caption", &rec, CMPI_instance).rc, CMPI_RC_ERR_TYPE_MISMATCH);
}

TEST_F(InstanceTest, GetObjectPathHasTheSetKeysInDeclarationOrderAndThePathsLocation) {
    CMPIObjectPath* op = path("root/test", "test_disk");
    CMSetHostname(op, "server1");
    CimClass copy = *repo.findClass("root/cimv2", "Test_Disk");
    copy.superclass.clear();
    repo.addClass("root/test", copy);
    CMPIStatus rc{};
    CMPIInstance* disk = CMNewInstance(mb, op, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    setChars(disk, "deviceID", "sda");
    setChars(disk, "SystemName", "host1");
    setChars(disk, "Caption", "not a key");

    CMPIObjectPath* result = CMGetObjectPath(disk, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(text(CMGetNameSpace(result, nullptr)), "root/test");
    EXPECT_EQ(text(CMGetHostname(result, nullptr)), "server1");
    // The class name as the class declares it, not as the path spelled it.
    EXPECT_EQ(text(CMGetClassName(result, nullptr)), "Test_Disk");
    // CreationClassName is not set, so it is not a key binding.
    ASSERT_EQ(CMGetKeyCount(result, nullptr), 2u);
    CMPIString* name = nullptr;
    CMPIData first = CMGetKeyAt(result, 0, &name, nullptr);
    EXPECT_EQ(text(name), "SystemName");
    EXPECT_EQ(text(first.value.string), "host1");
    CMGetKeyAt(result, 1, &name, nullptr);
    EXPECT_EQ(text(name), "deviceID");

    setChars(disk, "CreationClassName", "Test_Disk");
    CMPIObjectPath* full = CMGetObjectPath(disk, nullptr);
    ASSERT_EQ(CMGetKeyCount(full, nullptr), 3u);
    CMGetKeyAt(full, 1, &name, nullptr);
    EXPECT_EQ(text(name), "CreationClassName");
    // The earlier path is a snapshot.
    EXPECT_EQ(CMGetKeyCount(result, nullptr), 2u);
}

TEST_F(InstanceTest, NewInstanceTakesTheKeysOfItsPathAndRejectsUnknownClasses) {
    CMPIObjectPath* op = path("root/cimv2", "Test_Record");
    CMPISint64 id = 42; // parsed paths carry integer keys as sint64
    CMAddKey(op, "ID", &id, CMPI_sint64);
    CMAddKey(op, "NotDeclared", "x", CMPI_chars);
    CMPIStatus rc{};
    CMPIInstance* rec = CMNewInstance(mb, op, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    CMPIData d = CMGetProperty(rec, "Id", nullptr);
    EXPECT_EQ(d.type, CMPI_uint32);
    EXPECT_EQ(d.value.uint32, 42u);
    EXPECT_EQ(CMGetPropertyCount(rec, nullptr), 15u);

    // An empty namespace means root/cimv2.
    EXPECT_NE(CMNewInstance(mb, path("", "Test_Record"), &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_OK);
    EXPECT_EQ(CMNewInstance(mb, path("root/cimv2", "Test_Missing"), &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_CLASS);
    EXPECT_EQ(CMNewInstance(mb, path("root/other", "Test_Record"), &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_CLASS);
}

TEST_F(InstanceTest, CloneIsDeepAndIndependent) {
    CMPIInstance* rec = instance("Test_Record");
    setChars(rec, "Text", "before");
    CMPIStatus rc{};
    CMPIInstance* copy = CMClone(rec, &rc);
    ASSERT_EQ(rc.rc, CMPI_RC_OK);
    setChars(rec, "Text", "after");
    EXPECT_EQ(stringProperty(copy, "Text"), "before");
    EXPECT_NE(CMGetProperty(copy, "Text", nullptr).value.string,
              CMGetProperty(rec, "Text", nullptr).value.string);
    EXPECT_EQ(CMRelease(copy).rc, CMPI_RC_OK);
}

TEST_F(InstanceTest, PropertyFilterIgnoresSettingOtherPropertiesButKeepsKeys) {
    CMPIInstance* rec = instance("Test_Record");
    const char* props[] = {"Text", nullptr};
    ASSERT_EQ(rec->ft->setPropertyFilter(rec, props, nullptr).rc, CMPI_RC_OK);
    CMPIUint32 id = 1;
    CMPIUint16 count = 2;
    EXPECT_EQ(CMSetProperty(rec, "Id", &id, CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetProperty(rec, "Count", &count, CMPI_uint16).rc, CMPI_RC_OK);
    setChars(rec, "Text", "kept");
    EXPECT_EQ(CMGetProperty(rec, "Id", nullptr).value.uint32, 1u);
    EXPECT_EQ(CMGetProperty(rec, "Count", nullptr).state, CMPI_nullValue);
    EXPECT_EQ(stringProperty(rec, "Text"), "kept");
}

TEST_F(InstanceTest, SetObjectPathMovesTheInstanceAndTakesKeys) {
    CMPIInstance* rec = instance("Test_Record");
    CMPIObjectPath* op = path("root/elsewhere", "Test_Record");
    CMPIUint32 id = 5;
    CMAddKey(op, "Id", &id, CMPI_uint32);
    ASSERT_EQ(rec->ft->setObjectPath(rec, op).rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetProperty(rec, "Id", nullptr).value.uint32, 5u);
    CMPIObjectPath* moved = CMGetObjectPath(rec, nullptr);
    EXPECT_EQ(text(CMGetNameSpace(moved, nullptr)), "root/elsewhere");
    EXPECT_EQ(rec->ft->setObjectPath(rec, path("root/cimv2", "Test_Disk")).rc,
              CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(InstanceTest, EveryDeclaredPropertyIsFoundUnderAnySpellingOfItsName) {
    CMPIInstance* rec = instance("Test_Record");
    const CMPICount count = CMGetPropertyCount(rec, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIString* name = nullptr;
        const CMPIData declared = CMGetPropertyAt(rec, i, &name, nullptr);
        std::string upper = text(name), lower = text(name);
        for (char& c : upper)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        for (char& c : lower)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        for (const std::string& spelling : {upper, lower}) {
            CMPIStatus rc{};
            EXPECT_EQ(CMGetProperty(rec, spelling.c_str(), &rc).type, declared.type) << spelling;
            EXPECT_EQ(rc.rc, CMPI_RC_OK) << spelling;
        }
        // A name that only starts or ends like a declared one is not it.
        CMPIStatus rc{};
        CMGetProperty(rec, (lower + "x").c_str(), &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY) << lower;
        CMGetProperty(rec, lower.substr(1).c_str(), &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY) << lower;
    }
}

TEST_F(InstanceTest, PathsFollowEveryChangeOfAKeyPropertyAndEarlierPathsStayAsTheyWere) {
    CMPIInstance* disk = instance("Test_Disk");
    setChars(disk, "SystemName", "host1");
    setChars(disk, "deviceID", "sda");
    CMPIObjectPath* first = CMGetObjectPath(disk, nullptr);
    const std::string firstText = pathText(first);
    // A second path without any change reads the same.
    EXPECT_EQ(pathText(CMGetObjectPath(disk, nullptr)), firstText);
    // A property that is not a key changes no path.
    setChars(disk, "Caption", "anything");
    EXPECT_EQ(pathText(CMGetObjectPath(disk, nullptr)), firstText);

    setChars(disk, "deviceID", "sdb");
    CMPIObjectPath* second = CMGetObjectPath(disk, nullptr);
    EXPECT_EQ(text(CMGetKey(second, "deviceID", nullptr).value.string), "sdb");
    EXPECT_EQ(text(CMGetKey(first, "deviceID", nullptr).value.string), "sda");
    EXPECT_EQ(pathText(first), firstText);

    // A key set to null leaves the path.
    ASSERT_EQ(CMSetProperty(disk, "SystemName", nullptr, CMPI_null).rc, CMPI_RC_OK);
    CMPIObjectPath* third = CMGetObjectPath(disk, nullptr);
    EXPECT_EQ(CMGetKeyCount(third, nullptr), 1u);
    EXPECT_EQ(CMGetKeyCount(second, nullptr), 2u);

    // Keys taken from a new path replace the old ones; the location moves with it.
    CMPIObjectPath* op = path("root/elsewhere", "Test_Disk");
    CMAddKey(op, "DeviceID", "sdc", CMPI_chars);
    ASSERT_EQ(disk->ft->setObjectPath(disk, op).rc, CMPI_RC_OK);
    CMPIObjectPath* moved = CMGetObjectPath(disk, nullptr);
    EXPECT_EQ(text(CMGetKey(moved, "deviceID", nullptr).value.string), "sdc");
    EXPECT_EQ(text(CMGetNameSpace(moved, nullptr)), "root/elsewhere");
    EXPECT_EQ(text(CMGetNameSpace(third, nullptr)), "root/cimv2");
}

TEST_F(InstanceTest, ChangingOnePathOfAnInstanceLeavesItsOtherPathsAndTheInstanceAlone) {
    CMPIInstance* disk = instance("Test_Disk");
    setChars(disk, "SystemName", "host1");
    setChars(disk, "deviceID", "sda");
    CMPIObjectPath* changed = CMGetObjectPath(disk, nullptr);
    CMPIObjectPath* other = CMGetObjectPath(disk, nullptr);
    const std::string before = pathText(other);

    EXPECT_EQ(CMAddKey(changed, "deviceID", "sdz", CMPI_chars).rc, CMPI_RC_OK);
    EXPECT_EQ(CMAddKey(changed, "Extra", "x", CMPI_chars).rc, CMPI_RC_OK);
    EXPECT_EQ(CMSetNameSpace(changed, "root/other").rc, CMPI_RC_OK);
    EXPECT_EQ(CMGetKeyCount(changed, nullptr), 3u);
    EXPECT_EQ(text(CMGetKey(changed, "deviceID", nullptr).value.string), "sdz");

    EXPECT_EQ(pathText(other), before);
    EXPECT_EQ(pathText(CMGetObjectPath(disk, nullptr)), before);
    EXPECT_EQ(stringProperty(disk, "deviceID"), "sda");
}

TEST_F(InstanceTest, ClonesKeepTheirKeysWhenTheOriginalChangesOrGoes) {
    CMPIInstance* target = instance("Test_Disk");
    setChars(target, "SystemName", "host1");
    setChars(target, "deviceID", "sda");
    CMPIObjectPath* targetPath = CMGetObjectPath(target, nullptr);
    CMPIInstance* link = instance("Test_Link");
    ASSERT_EQ(CMSetProperty(link, "Antecedent", &targetPath, CMPI_ref).rc, CMPI_RC_OK);
    ASSERT_EQ(CMSetProperty(link, "Dependent", &targetPath, CMPI_ref).rc, CMPI_RC_OK);
    const std::string linkText = pathText(CMGetObjectPath(link, nullptr));

    CMPIInstance* kept = CMClone(link, nullptr);
    CMPIObjectPath* keptPath = CMClone(CMGetObjectPath(kept, nullptr), nullptr);
    CMPIObjectPath* dependent = CMGetObjectPath(target, nullptr);
    CMAddKey(dependent, "deviceID", "sdb", CMPI_chars);
    ASSERT_EQ(CMSetProperty(link, "Dependent", &dependent, CMPI_ref).rc, CMPI_RC_OK);
    EXPECT_NE(pathText(CMGetObjectPath(link, nullptr)), linkText);
    EXPECT_EQ(pathText(CMGetObjectPath(kept, nullptr)), linkText);

    // The clone of the path outlives both instances and reads the same.
    EXPECT_EQ(CMRelease(kept).rc, CMPI_RC_OK);
    EXPECT_EQ(pathText(keptPath), linkText);
    CMPIObjectPath* antecedent = CMGetKey(keptPath, "Antecedent", nullptr).value.ref;
    EXPECT_EQ(text(CMGetKey(antecedent, "deviceID", nullptr).value.string), "sda");
    EXPECT_EQ(CMRelease(keptPath).rc, CMPI_RC_OK);
}

// A base class with an initializer of every kind and a subclass that gives one property another
// default and adds one of its own.
const char* const kDefaultsMof = R"(
class Test_StateBase {
    [Key] string Id = "unnamed";
    uint16 EnabledState = 5;
    uint16 RequestedState = 12;
    boolean NonDestructive = false;
    sint8 Bias = -3;
    real32 Scale = 1.5;
    char16 Mark = 'x';
    string Label = "a \"quoted\", label";
    datetime Removal = "00000000000500.000000:000";
    uint16 Codes[] = {3, 4};
    string Words[] = {"a,b", "c"};
    uint16 NoCodes[] = {};
    string Note;
};
class Test_StateLeaf : Test_StateBase {
    uint16 RequestedState = 2;
    string Own = "own";
};
)";

class InstanceDefaultsTest : public BrokerFixture {
protected:
    InstanceDefaultsTest() { repo.loadText(kDefaultsMof, "root/cimv2", "defaults.mof"); }

    static std::vector<std::string> stringElements(const CMPIData& d) {
        std::vector<std::string> out;
        for (CMPICount i = 0; d.value.array && i < CMGetArrayCount(d.value.array, nullptr); ++i)
            out.push_back(text(CMGetArrayElementAt(d.value.array, i, nullptr).value.string));
        return out;
    }
};

TEST_F(InstanceDefaultsTest, NewInstanceStartsWithEveryDefaultTypedAsDeclared) {
    CMPIInstance* leaf = instance("Test_StateLeaf");
    auto good = [&](const char* name, CMPIType type) {
        CMPIData d = CMGetProperty(leaf, name, nullptr);
        EXPECT_EQ(d.type, type) << name;
        EXPECT_EQ(d.state, CMPI_goodValue) << name;
        return d;
    };
    EXPECT_EQ(good("EnabledState", CMPI_uint16).value.uint16, 5);
    EXPECT_EQ(good("NonDestructive", CMPI_boolean).value.boolean, 0);
    EXPECT_EQ(good("Bias", CMPI_sint8).value.sint8, -3);
    EXPECT_EQ(good("Scale", CMPI_real32).value.real32, 1.5f);
    EXPECT_EQ(good("Mark", CMPI_char16).value.char16, 'x');
    EXPECT_EQ(stringProperty(leaf, "Label"), "a \"quoted\", label");
    EXPECT_EQ(stringProperty(leaf, "Id"), "unnamed");
    CMPIData removal = good("Removal", CMPI_dateTime);
    ASSERT_NE(removal.value.dateTime, nullptr);
    EXPECT_TRUE(CMIsInterval(removal.value.dateTime, nullptr));
    EXPECT_EQ(text(CMGetStringFormat(removal.value.dateTime, nullptr)),
              "00000000000500.000000:000");

    CMPIData codes = good("Codes", CMPI_uint16A);
    ASSERT_NE(codes.value.array, nullptr);
    ASSERT_EQ(CMGetArrayCount(codes.value.array, nullptr), 2u);
    EXPECT_EQ(CMGetArrayElementAt(codes.value.array, 0, nullptr).value.uint16, 3);
    EXPECT_EQ(CMGetArrayElementAt(codes.value.array, 1, nullptr).value.uint16, 4);
    // A string element may hold the comma that joins the elements' texts elsewhere.
    EXPECT_EQ(stringElements(good("Words", CMPI_stringA)), (std::vector<std::string>{"a,b", "c"}));
    CMPIData noCodes = good("NoCodes", CMPI_uint16A);
    ASSERT_NE(noCodes.value.array, nullptr);
    EXPECT_EQ(CMGetArrayCount(noCodes.value.array, nullptr), 0u);

    // Without an initializer a property stays null.
    EXPECT_EQ(CMGetProperty(leaf, "Note", nullptr).state, CMPI_nullValue);
}

TEST_F(InstanceDefaultsTest, TheMostDerivedDefaultWinsAndEachClassKeepsItsOwn) {
    CMPIInstance* leaf = instance("Test_StateLeaf");
    CMPIInstance* base = instance("Test_StateBase");
    EXPECT_EQ(CMGetProperty(leaf, "RequestedState", nullptr).value.uint16, 2);
    EXPECT_EQ(CMGetProperty(base, "RequestedState", nullptr).value.uint16, 12);
    EXPECT_EQ(stringProperty(leaf, "Own"), "own");
}

TEST_F(InstanceDefaultsTest, SetValuesAndPathKeysReplaceDefaultsAndClonesKeepThem) {
    CMPIObjectPath* op = path("root/cimv2", "Test_StateLeaf");
    CMAddKey(op, "Id", "given", CMPI_chars);
    CMPIInstance* leaf = CMNewInstance(mb, op, nullptr);
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(stringProperty(leaf, "Id"), "given");

    CMPIUint16 requested = 7;
    ASSERT_EQ(CMSetProperty(leaf, "RequestedState", &requested, CMPI_uint16).rc, CMPI_RC_OK);
    ASSERT_EQ(CMSetProperty(leaf, "EnabledState", nullptr, CMPI_null).rc, CMPI_RC_OK);
    setChars(leaf, "Label", "mine");
    CMPIInstance* copy = CMClone(leaf, nullptr);
    for (CMPIInstance* inst : {leaf, copy}) {
        EXPECT_EQ(CMGetProperty(inst, "RequestedState", nullptr).value.uint16, 7);
        EXPECT_EQ(CMGetProperty(inst, "EnabledState", nullptr).state, CMPI_nullValue);
        EXPECT_EQ(stringProperty(inst, "Label"), "mine");
    }
    EXPECT_EQ(CMRelease(copy).rc, CMPI_RC_OK);

    // A key default is a key value like any other.
    CMPIObjectPath* unnamed = CMGetObjectPath(instance("Test_StateBase"), nullptr);
    EXPECT_EQ(text(CMGetKey(unnamed, "Id", nullptr).value.string), "unnamed");
}

} // namespace diaghost::test
