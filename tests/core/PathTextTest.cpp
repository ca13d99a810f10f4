// Object paths as text: the broker's rendering with escapes undone and the namespace removed,
// parsed back into an instance object; and the two facts asked of the object manager.
#include "CoreTestSupport.h"

#include "diag/DiagUser.h"
#include "instance/CMPIUtil.h"

using namespace coretest;
using NQORVA20::DiagUser;
namespace CMPIUtil = NQORVA20::CMPIUtil;

namespace {

class PathTextTest : public CoreTest {};

DiagUser parse(std::string text) {
    DiagUser user;
    CMPIUtil::ParseObjectPath(text, user);
    return user;
}

TEST(PathText, StripRemovesHostAndNamespaceButNotColonsInsideKeys) {
    EXPECT_EQ(CMPIUtil::StripObjectPath("root/cimv2:C.K=\"a:b\""), "C.K=\"a:b\"");
    EXPECT_EQ(CMPIUtil::StripObjectPath("C.K=\"a:b\""), "C.K=\"a:b\"");
    EXPECT_EQ(CMPIUtil::StripObjectPath("//h/root/cimv2:C.K=\"v\""), "C.K=\"v\"");
    EXPECT_EQ(CMPIUtil::StripObjectPath("//h:5989/root/cimv2:C.K=\"v\""),
              "5989/root/cimv2:C.K=\"v\"");
    EXPECT_EQ(CMPIUtil::StripObjectPath("Plain"), "Plain");
    EXPECT_EQ(CMPIUtil::StripObjectPath("a/b"), "a/b");
}

TEST(PathText, ParseGivesClassAndOneEntryPerBindingLastOneWinning) {
    DiagUser u = parse("ns:Cls.A=\"1\", B = \"two words\",A=\"3\"");
    EXPECT_EQ(u.getClassName(), "Cls");
    EXPECT_EQ(u["A"], "3");
    EXPECT_EQ(u["B"], "two words");
    EXPECT_EQ(u.getObjectPath(), "");
    DiagUser cased = parse("C.deviceid=\"x\"");
    EXPECT_EQ(cased.find("DeviceID"), cased.end());
    EXPECT_EQ(cased["deviceid"], "x");
}

TEST(PathText, NestedPathValueIsCutAtTheFirstInnerQuote) {
    DiagUser u = parse("A.Ref=\"B.K=\"v\"\"");
    EXPECT_EQ(u["Ref"], "B.K=");
}

// Each of these would loop for ever or throw out of range without the parser's guards.
TEST(PathText, MalformedTextsEndTheParseKeepingEarlierBindings) {
    DiagUser noDot = parse("ClassOnly");
    EXPECT_EQ(noDot.getClassName(), "ClassOnly");
    EXPECT_EQ(noDot.begin(), noDot.end());
    DiagUser open = parse("C.A=\"1\",B=\"unterminated");
    EXPECT_EQ(open["A"], "1");
    EXPECT_EQ(open.find("B"), open.end());
    DiagUser trailing = parse("C.A=\"1\", ,\t");
    EXPECT_EQ(trailing["A"], "1");
    DiagUser noValue = parse("C.A=\"1\",B");
    EXPECT_EQ(noValue.find("B"), noValue.end());
    DiagUser empty = parse("");
    EXPECT_EQ(empty.getClassName(), "");
    DiagUser dotOnly = parse(".");
    EXPECT_EQ(dotOnly.begin(), dotOnly.end());
}

TEST_P(PathTextTest, BrokerRenderingLosesNamespaceAndEscapes) {
    CMPIObjectPath* op = path("Core_Other", {{"Name", "a\"b\\c"}});
    const std::string text = CMPIUtil::GetObjectPathString(op);
    // sfcb does not escape, so its backslash is taken as one.
    EXPECT_EQ(text, sfcb() ? "Core_Other.Name=\"a\"bc\"" : "Core_Other.Name=\"a\"b\\c\"");
    EXPECT_EQ(CMPIUtil::GetClassName(op), "Core_Other");
    // The parser ends the value at the escaped quote.
    EXPECT_EQ(parse(text)["Name"], "a");
}

TEST_P(PathTextTest, HostQualifiedRenderingLosesEverythingUpToTheFirstColon) {
    CMPIObjectPath* op = path("Core_Other", {{"Name", "n"}});
    op->ft->setHostname(op, "somehost");
    EXPECT_EQ(CMPIUtil::GetObjectPathString(op), "Core_Other.Name=\"n\"");
}

TEST_P(PathTextTest, NullPathsGiveEmptyTexts) {
    EXPECT_EQ(CMPIUtil::GetObjectPathString(nullptr), "");
    EXPECT_EQ(CMPIUtil::GetClassName(nullptr), "");
}

TEST_P(PathTextTest, DateTimeTextIsTheCurrentCimTimestamp) {
    const std::string a = CMPIUtil::GetDateTimeString(broker());
    ASSERT_EQ(a.size(), 25u);
    EXPECT_EQ(a[14], '.');
    EXPECT_TRUE(a[21] == '+' || a[21] == '-');
    const std::string b = CMPIUtil::GetDateTimeString(broker());
    EXPECT_LE(a.substr(0, 21), b.substr(0, 21));
}

// Without a provider for ZORQ_ComputerSystem the enumeration fails: the name is empty.
TEST_P(PathTextTest, SystemNameIsEmptyWhenNoComputerSystemIsServed) {
    EXPECT_EQ(CMPIUtil::GetSystemName(broker(), ctx()), "");
    EXPECT_EQ(CMPIUtil::GetSystemName(nullptr, ctx()), "");
}

INSTANTIATE_TEST_SUITE_P(Dialects, PathTextTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
