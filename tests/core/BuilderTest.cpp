// Property value texts become typed CMPI values through the class's declared types.
#include "CoreTestSupport.h"

#include "builder/InstanceBuilder.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"
#include "instance/SystemIdentity.h"

#include <cmath>

using namespace coretest;
using NQORVA20::InstanceBuilder;
using NQORVA20::InstanceImpl;
using NQORVA20::multiStringTok;
using NQORVA20::ParseInstanceImpl;
using NQORVA20::stringToDataType;
using NQORVA20::SystemIdentity;

namespace {

class Scratch : public InstanceImpl {
public:
    explicit Scratch(std::string cls) : InstanceImpl(std::move(cls)) {}
    void init() override {}
};

class BuilderTest : public CoreTest {
protected:
    CMPIInstance* build(Scratch& s) {
        InstanceBuilder builder("root/cimv2");
        return builder.build(broker(), ctx(), s.getClassName(), s);
    }
};

TEST(TextReaders, EightBitTypesReadOneCharacterAndNumbersReadDecimal) {
    EXPECT_EQ(stringToDataType<unsigned char>("45"), 52);
    EXPECT_EQ(stringToDataType<unsigned char>(" 9"), 57);
    EXPECT_EQ(stringToDataType<signed char>("7"), 55);
    EXPECT_EQ(stringToDataType<unsigned short>("12abc"), 12);
    EXPECT_EQ(stringToDataType<unsigned short>("  34"), 34);
    EXPECT_EQ(stringToDataType<int>("-17"), -17);
    EXPECT_EQ(stringToDataType<unsigned long>("18446744073709551615"), 18446744073709551615ul);
    EXPECT_EQ(stringToDataType<long>("-9223372036854775807"), -9223372036854775807l);
    EXPECT_DOUBLE_EQ(stringToDataType<double>("2.5e3"), 2500.0);
    EXPECT_FLOAT_EQ(stringToDataType<float>("-0.25"), -0.25f);
    EXPECT_TRUE(stringToDataType<bool>("1"));
    EXPECT_FALSE(stringToDataType<bool>("0"));
}

TEST(TextReaders, UnreadableTextYieldsZero) {
    EXPECT_EQ(stringToDataType<unsigned char>(""), 0);
    EXPECT_EQ(stringToDataType<signed char>("   "), 0);
    EXPECT_EQ(stringToDataType<int>("abc"), 0);
    EXPECT_EQ(stringToDataType<unsigned int>(""), 0u);
    EXPECT_EQ(stringToDataType<double>("x1"), 0.0);
    EXPECT_FALSE(stringToDataType<bool>("true"));
    EXPECT_FALSE(stringToDataType<bool>("false"));
    EXPECT_FALSE(stringToDataType<bool>("2"));
    // A failed reading leaves nothing behind for the next one, nor does a long text.
    EXPECT_EQ(stringToDataType<int>("5"), 5);
    EXPECT_EQ(stringToDataType<unsigned int>(std::string(300, '7')), 0u);
    EXPECT_EQ(stringToDataType<unsigned char>("8"), '8');
}

TEST(TextReaders, ListSplitterDropsEmptyElementsAndKeepsBlanks) {
    std::string t = "2,,3,";
    EXPECT_EQ(multiStringTok(t, ','), (std::vector<std::string>{"2", "3"}));
    t = ",a , b,";
    EXPECT_EQ(multiStringTok(t, ','), (std::vector<std::string>{"a ", " b"}));
    t = "";
    EXPECT_TRUE(multiStringTok(t, ',').empty());
    t = ",";
    EXPECT_TRUE(multiStringTok(t, ',').empty());
    t = "A=1;B=x=y";
    EXPECT_EQ(multiStringTok(t, ';'), (std::vector<std::string>{"A=1", "B=x=y"}));
    EXPECT_EQ(t, "A=1;B=x=y");
}

TEST_P(BuilderTest, EveryScalarTypeIsConvertedByTheDeclaredType) {
    Scratch s("Core_Types");
    s["Name"] = "all";
    s["B"] = "1";
    s["U8"] = "45";
    s["S8"] = "7";
    s["U16"] = "12abc";
    s["S16"] = "-300";
    s["U32"] = "4294967295";
    s["S32"] = "-5";
    s["U64"] = "18446744073709551615";
    s["S64"] = "-42";
    s["R32"] = "1.5";
    s["R64"] = "-2.25";
    s["S"] = "";
    s["DT"] = "20261121101112.123456+060";
    CMPIInstance* inst = build(s);
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(prop(inst, "B").type, CMPI_boolean);
    EXPECT_TRUE(prop(inst, "B").value.boolean);
    EXPECT_EQ(prop(inst, "U8").value.uint8, 52);
    EXPECT_EQ(prop(inst, "S8").value.sint8, 55);
    EXPECT_EQ(prop(inst, "U16").value.uint16, 12);
    EXPECT_EQ(prop(inst, "S16").value.sint16, -300);
    EXPECT_EQ(prop(inst, "U32").value.uint32, 4294967295u);
    EXPECT_EQ(prop(inst, "S32").value.sint32, -5);
    EXPECT_EQ(prop(inst, "U64").value.uint64, 18446744073709551615ull);
    EXPECT_EQ(prop(inst, "S64").value.sint64, -42);
    EXPECT_FLOAT_EQ(prop(inst, "R32").value.real32, 1.5f);
    EXPECT_DOUBLE_EQ(prop(inst, "R64").value.real64, -2.25);
    // An empty string text is an empty string, not a null value.
    EXPECT_EQ(text(prop(inst, "S")), "");
    CMPIData dt = prop(inst, "DT");
    ASSERT_EQ(dt.type, CMPI_dateTime);
    CMPIString* dtText = dt.value.dateTime->ft->getStringFormat(dt.value.dateTime, nullptr);
    EXPECT_STREQ(dtText->ft->getCharPtr(dtText, nullptr), "20261121101112.123456+060");
}

TEST_P(BuilderTest, EmptyDateTimeTextIsTheTimeOfTheBuild) {
    Scratch s("Core_Types");
    s["Name"] = "now";
    s["DT"] = "";
    const std::string before = NQORVA20::CMPIUtil::GetDateTimeString(broker());
    CMPIInstance* inst = build(s);
    CMPIData dt = prop(inst, "DT");
    ASSERT_EQ(dt.type, CMPI_dateTime);
    ASSERT_FALSE(dt.state & CMPI_nullValue);
    CMPIString* t = dt.value.dateTime->ft->getStringFormat(dt.value.dateTime, nullptr);
    const std::string built = t->ft->getCharPtr(t, nullptr);
    ASSERT_EQ(built.size(), 25u);
    EXPECT_GE(built.substr(0, 21), before.substr(0, 21));
}

TEST_P(BuilderTest, ArrayTextsAreSplitAtCommasIntoElementsOfTheElementType) {
    Scratch s("Core_Types");
    s["Name"] = "arrays";
    s["U16A"] = "2,,3,";
    s["SA"] = "";
    s["BA"] = "1,0";
    CMPIInstance* inst = build(s);
    CMPIData a = prop(inst, "U16A");
    ASSERT_EQ(a.type, CMPI_uint16A);
    ASSERT_EQ(a.value.array->ft->getSize(a.value.array, nullptr), 2u);
    EXPECT_EQ(a.value.array->ft->getSimpleType(a.value.array, nullptr), CMPI_uint16);
    EXPECT_EQ(a.value.array->ft->getElementAt(a.value.array, 0, nullptr).value.uint16, 2);
    EXPECT_EQ(a.value.array->ft->getElementAt(a.value.array, 1, nullptr).value.uint16, 3);
    CMPIData sa = prop(inst, "SA");
    ASSERT_EQ(sa.type, CMPI_stringA);
    EXPECT_EQ(sa.value.array->ft->getSize(sa.value.array, nullptr), 0u);
    CMPIData ba = prop(inst, "BA");
    EXPECT_TRUE(ba.value.array->ft->getElementAt(ba.value.array, 0, nullptr).value.boolean);
    EXPECT_FALSE(ba.value.array->ft->getElementAt(ba.value.array, 1, nullptr).value.boolean);
}

TEST_P(BuilderTest, UnsupportedTypePrintsItsLineAndIsStillStored) {
    Scratch s("Core_Types");
    s["Name"] = "c16";
    s["C16"] = "x";
    testing::internal::CaptureStdout();
    CMPIInstance* inst = build(s);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("we didn't handle this case... 3 x\n"), std::string::npos) << out;
    CMPIData c = prop(inst, "C16");
    EXPECT_EQ(c.type, CMPI_char16);
    EXPECT_FALSE(c.state & CMPI_nullValue);
    EXPECT_EQ(c.value.char16, 0);
}

TEST_P(BuilderTest, LogsOneSettingLinePerScalarInNameOrderAndDropsUndeclaredProperties) {
    Scratch s("Core_Builder");
    s["Note"] = "n";
    s["Name"] = "b1";
    s["Undeclared"] = "zzz";
    s["Count"] = "3";
    ASSERT_NE(build(s), nullptr);
    EXPECT_EQ(lines(4), (std::vector<std::string>{
                            "Setting property Count to '3'", "Setting property Name to 'b1'",
                            "Setting property Note to 'n'", "Exiting InstanceBuilder::build"}));
}

TEST_P(BuilderTest, InstanceObjectWithoutPropertiesBuildsWithoutExitLine) {
    Scratch s("Core_Builder");
    EXPECT_NE(build(s), nullptr);
    EXPECT_TRUE(allLines().empty());
}

TEST_P(BuilderTest, ArrayPropertiesWriteNoLogLine) {
    Scratch s("Core_Types");
    s["SA"] = "a,b";
    build(s);
    EXPECT_EQ(allLines(), (std::vector<std::string>{"Exiting InstanceBuilder::build"}));
}

TEST_P(BuilderTest, ReferenceTextIsMaterialisedTwiceInTheBuildersNamespace) {
    Scratch s("Core_Link");
    s["Left"] = "otherns:Core_Element.DeviceID=\"d1\",Name=\"left\"";
    CMPIInstance* inst = build(s);
    CMPIData ref = prop(inst, "Left");
    ASSERT_EQ(ref.type, CMPI_ref);
    ASSERT_NE(ref.value.ref, nullptr);
    EXPECT_EQ(NQORVA20::CMPIUtil::GetClassName(ref.value.ref), "Core_Element");
    CMPIString* ns = ref.value.ref->ft->getNameSpace(ref.value.ref, nullptr);
    EXPECT_STREQ(ns->ft->getCharPtr(ns, nullptr), "root/cimv2");
    CMPIData name = ref.value.ref->ft->getKey(ref.value.ref, "Name", nullptr);
    EXPECT_EQ(text(name), "left");
    // The referenced class's lines come twice, before the association's own.
    const std::vector<std::string> one = {"Setting property DeviceID to 'd1'",
                                          "Setting property Name to 'left'",
                                          "Exiting InstanceBuilder::build"};
    std::vector<std::string> expected = {
        "Setting property Left to 'otherns:Core_Element.DeviceID=\"d1\",Name=\"left\"'"};
    expected.insert(expected.end(), one.begin(), one.end());
    expected.insert(expected.end(), one.begin(), one.end());
    expected.push_back("Exiting InstanceBuilder::build");
    EXPECT_EQ(allLines(), expected);
}

TEST_P(BuilderTest, EveryBuiltPathCarriesThisSystemsNameOnceKnownElseLocalhost) {
    Scratch s("Core_Builder");
    s["Name"] = "host";
    auto hostOf = [&] {
        CMPIInstance* inst = build(s);
        CMPIObjectPath* op = inst->ft->getObjectPath(inst, nullptr);
        CMPIString* host = op->ft->getHostname(op, nullptr);
        return std::string(host->ft->getCharPtr(host, nullptr));
    };
    SystemIdentity::Clear();
    EXPECT_EQ(hostOf(), "localhost");
    SystemIdentity::Record("sys.example");
    EXPECT_EQ(hostOf(), "sys.example");
    SystemIdentity::Clear();
}

TEST_P(BuilderTest, DefinitionsTextSetsEachItemAndKeepsLaterEqualsInTheValue) {
    InstanceBuilder builder("root/cimv2");
    std::string ns = "root/cimv2";
    std::string defs = "Name=a=b;Note;Count=7";
    testing::internal::CaptureStdout();
    CMPIInstance* inst = builder.build(broker(), ctx(), "Core_Builder", ns, defs);
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(text(prop(inst, "Name")), "a=b");
    EXPECT_EQ(prop(inst, "Count").value.uint32, 7u);
    EXPECT_EQ(out, "Name a=b Count 7 ");
    EXPECT_EQ(allLines(), (std::vector<std::string>{"Number of property definitions to parse? 3",
                                                    "Parsing a property Definition",
                                                    "Parsing a property Definition",
                                                    "Parsing a property Definition"}));
}

TEST_P(BuilderTest, UnknownClassGivesNullWithTheExitLine) {
    Scratch s("Core_NoSuchClass");
    s["Name"] = "x";
    EXPECT_EQ(build(s), nullptr);
    EXPECT_EQ(allLines(), (std::vector<std::string>{"Exiting InstanceBuilder::build"}));
}

// A broker whose newObjectPath fails outright: the builder must not call through the null path.
TEST_P(BuilderTest, NullPathFromTheBrokerEndsTheBuildWithItsLogLines) {
    CMPIBrokerEncFT eft = *broker()->eft;
    eft.newObjectPath = [](const CMPIBroker*, const char*, const char*,
                           CMPIStatus*) -> CMPIObjectPath* { return nullptr; };
    CMPIBroker failing = *broker();
    failing.eft = &eft;
    Scratch s("Core_Builder");
    s["Name"] = "x";
    InstanceBuilder builder("root/cimv2");
    EXPECT_EQ(builder.build(&failing, ctx(), "Core_Builder", s), nullptr);
    EXPECT_EQ(lines(3),
              (std::vector<std::string>{"InstanceBuilder::build -> Invalid object found"}));
    EXPECT_EQ(lines(4), (std::vector<std::string>{"Exiting InstanceBuilder::build"}));
}

INSTANTIATE_TEST_SUITE_P(Dialects, BuilderTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
