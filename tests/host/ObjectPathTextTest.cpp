// Parsing DMTF object path text, and making typed CMPIObjectPaths from it.
#include "HostTestSupport.h"

#include "host/broker/CallScope.h"
#include "host/broker/CimValueCodec.h"
#include "host/text/LiteralText.h"
#include "host/text/ObjectPathText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmpimacs.h>

#include <random>

using namespace hosttest;
using diaghost::CallScope;
using diaghost::LiteralText;
using diaghost::MofValue;
using diaghost::ObjectPathError;
using diaghost::ObjectPathText;
using testing::HasSubstr;

namespace {

class ObjectPathTextTest : public testing::Test {
protected:
    static const ObjectPathText::Key& key(const ObjectPathText& p, std::size_t i) {
        return p.keys.at(i);
    }

    static CMPIType keyType(const CMPIObjectPath* op, const char* name) {
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData d = CMGetKey(op, name, &st);
        EXPECT_EQ(st.rc, CMPI_RC_OK) << name;
        return d.type;
    }
};

TEST_F(ObjectPathTextTest, ParsesHostNamespaceClassAndTypedKeys) {
    auto p = ObjectPathText::parse(
        "  //cim.example:5989/root/cimv2:Test_Element.Name=\"a b\",Size=0x1F,Mask=101b,"
        "Neg=-12,Oct=017,Real=1.5e3,On=TRUE,Off=false,Letter='x'  ");
    EXPECT_EQ(p.host, "cim.example:5989");
    EXPECT_EQ(p.nameSpace, "root/cimv2");
    EXPECT_EQ(p.className, "Test_Element");
    ASSERT_EQ(p.keys.size(), 9u);
    EXPECT_EQ(key(p, 0).name, "Name");
    EXPECT_EQ(key(p, 0).kind, MofValue::Kind::String);
    EXPECT_EQ(key(p, 0).text, "a b");
    EXPECT_EQ(key(p, 1).kind, MofValue::Kind::Integer);
    EXPECT_EQ(key(p, 5).kind, MofValue::Kind::Real);
    EXPECT_EQ(key(p, 6).kind, MofValue::Kind::Boolean);
    EXPECT_EQ(key(p, 7).kind, MofValue::Kind::Boolean);
    EXPECT_EQ(key(p, 8).kind, MofValue::Kind::Char);

    bool negative = false;
    unsigned long long magnitude = 0;
    ASSERT_TRUE(LiteralText::parseInteger(key(p, 1).text, negative, magnitude));
    EXPECT_EQ(magnitude, 31u);
    ASSERT_TRUE(LiteralText::parseInteger(key(p, 2).text, negative, magnitude));
    EXPECT_EQ(magnitude, 5u);
    ASSERT_TRUE(LiteralText::parseInteger(key(p, 3).text, negative, magnitude));
    EXPECT_TRUE(negative);
    EXPECT_EQ(magnitude, 12u);
    ASSERT_TRUE(LiteralText::parseInteger(key(p, 4).text, negative, magnitude));
    EXPECT_EQ(magnitude, 15u);
    EXPECT_FALSE(LiteralText::parseInteger("18446744073709551616", negative, magnitude));
    EXPECT_TRUE(LiteralText::parseInteger("18446744073709551615", negative, magnitude));

    auto bare = ObjectPathText::parse("Test_Element");
    EXPECT_TRUE(bare.nameSpace.empty());
    EXPECT_TRUE(bare.keys.empty());
    auto single = ObjectPathText::parse("root/x:Test_Single=@");
    EXPECT_EQ(single.className, "Test_Single");
    EXPECT_TRUE(single.keys.empty());
}

TEST_F(ObjectPathTextTest, UnescapesStringsAndRecognisesNestedPaths) {
    auto p = ObjectPathText::parse(
        R"(root/cimv2:Test_Assoc.Left="root/cimv2:Test_Element.Name=\"x\"",)"
        R"(Right="Test_Element.Name=\"y\\\\z\"",Note="tab\there \x41\x263A \"q\" 'a'")");
    ASSERT_EQ(p.keys.size(), 3u);
    ASSERT_TRUE(key(p, 0).reference);
    EXPECT_EQ(key(p, 0).reference->nameSpace, "root/cimv2");
    EXPECT_EQ(key(p, 0).reference->keys.at(0).text, "x");
    ASSERT_TRUE(key(p, 1).reference);
    EXPECT_EQ(key(p, 1).reference->keys.at(0).text, "y\\z");
    EXPECT_FALSE(key(p, 2).reference);
    EXPECT_EQ(key(p, 2).text, "tab\there A\xE2\x98\xBA \"q\" 'a'");
    // A quoted class name alone stays a string.
    EXPECT_FALSE(ObjectPathText::parse("C.K=\"Other\"").keys[0].reference);
}

TEST_F(ObjectPathTextTest, MalformedTextIsRejectedWithTheOffset) {
    const char* bad[] = {
        "",          "   ",     ":",          "root/cimv2:",  "root//x:C",   "/root:C",
        "1Class",    "C.",      "C.Name",     "C.Name=",      "C.Name=\"a",  "C.Name=\"a\\q\"",
        "C.K=1,",    "C.K=1,,", "C.K=1 L=2",  "C.K=abc",      "C.K=1,k=2",   "//host",
        "//host/",   "///C",    "C.K='ab'",   "C.K=''",       "C.K=\"\\x\"", "C.K=\"\\x0\"",
        "C=@x",      "C=",      "C.K=\"a\"b", "C.=1",         "C.K==1",      "C.K=0x",
        "C.K=1.2.3", "C.K=--1", "C#.K=1",     "root:cimv2:C", "C.K=\"a\\",
    };
    for (const char* text : bad) {
        try {
            auto p = ObjectPathText::parse(text);
            ADD_FAILURE() << "accepted \"" << text << "\" as class " << p.className;
        } catch (const ObjectPathError& e) {
            EXPECT_THAT(e.what(), HasSubstr("offset")) << text;
        }
    }
}

TEST_F(ObjectPathTextTest, HostileInputEndsInAnErrorOrAPath) {
    // Deeply nested references: each level escapes the one inside it.
    std::string nested = "C.K=1";
    for (int depth = 0; depth < 18; ++depth) {
        std::string escaped;
        for (char c : nested) {
            if (c == '"' || c == '\\')
                escaped += '\\';
            escaped += c;
        }
        nested = "C.K=\"" + escaped + "\"";
    }
    auto deep = ObjectPathText::parse(nested);
    EXPECT_TRUE(deep.keys[0].reference);

    EXPECT_THROW(ObjectPathText::parse(std::string(1 << 20, '"')), ObjectPathError);
    EXPECT_THROW(ObjectPathText::parse("C.K=\"" + std::string(1 << 20, '\\')), ObjectPathError);

    std::mt19937 random(20240601);
    const std::string alphabet = "ab:./=\",'\\@01xX- TFtrue";
    int parsed = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        std::size_t length = random() % 40;
        for (std::size_t i = 0; i < length; ++i)
            text += alphabet[random() % alphabet.size()];
        try {
            ObjectPathText::parse(text);
            ++parsed;
        } catch (const ObjectPathError&) {
        }
    }
    EXPECT_GT(parsed, 0);
}

TEST_F(ObjectPathTextTest, KeysTakeTheTypesTheClassDeclares) {
    auto host = loadedHost();
    CallScope scope(host->broker());
    CMPIObjectPath* op =
        host->parsePath("Test_Typed.Small=200,Big=-9,Flag=true,When=\"20240102030405.000006+060\","
                        "Target=\"Test_Element.Name=\\\"a\\\"\",Letter='x',Name=\"n\",Ratio=2");
    EXPECT_EQ(keyType(op, "Small"), CMPI_uint8);
    EXPECT_EQ(keyType(op, "Big"), CMPI_sint64);
    EXPECT_EQ(keyType(op, "Flag"), CMPI_boolean);
    EXPECT_EQ(keyType(op, "When"), CMPI_dateTime);
    EXPECT_EQ(keyType(op, "Target"), CMPI_ref);
    EXPECT_EQ(keyType(op, "Letter"), CMPI_char16);
    EXPECT_EQ(keyType(op, "Name"), CMPI_string);
    EXPECT_EQ(keyType(op, "Ratio"), CMPI_real32);
    EXPECT_EQ(CMGetKey(op, "Small", nullptr).value.uint8, 200);
    EXPECT_EQ(CMGetKey(op, "Big", nullptr).value.sint64, -9);
    EXPECT_EQ(host->pathText(CMGetKey(op, "Target", nullptr).value.ref),
              "root/cimv2:Test_Element.Name=\"a\"");

    // Keys of a class the repository does not know are typed by their literals.
    CMPIObjectPath* loose = host->parsePath("Nope.A=5,B=\"x\",C=TRUE,D=\"Nope.X=1\",E=-1.5");
    EXPECT_EQ(keyType(loose, "A"), CMPI_sint64);
    EXPECT_EQ(keyType(loose, "B"), CMPI_string);
    EXPECT_EQ(keyType(loose, "C"), CMPI_boolean);
    EXPECT_EQ(keyType(loose, "D"), CMPI_ref);
    EXPECT_EQ(keyType(loose, "E"), CMPI_real64);

    struct Bad {
        const char* text;
        const char* says;
    };
    const Bad bad[] = {
        {"Test_Typed.Small=256", "out of range for uint8"},
        {"Test_Typed.Small=-1", "out of range for uint8"},
        {"Test_Typed.Small=\"1\"", "cannot be uint8"},
        {"Test_Typed.Flag=1", "cannot be boolean"},
        {"Test_Typed.When=\"yesterday\"", "not a CIM datetime"},
        {"Test_Typed.Target=\"no path\"", "Target"},
        {"Test_Typed.Name=5", "cannot be string"},
        {"Test_Typed.Letter=\"xy\"", "single char16"},
    };
    for (const Bad& b : bad) {
        try {
            host->parsePath(b.text);
            ADD_FAILURE() << "accepted " << b.text;
        } catch (const ObjectPathError& e) {
            EXPECT_THAT(e.what(), HasSubstr(b.says)) << b.text;
        }
    }
}

} // namespace
