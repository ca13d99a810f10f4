// Classes without provider served from the MOF's instance declarations.
#include "HostTestSupport.h"

#include "host/broker/CallScope.h"
#include "host/broker/ResultSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmpimacs.h>

using namespace hosttest;
using diaghost::CallScope;
using testing::ElementsAre;

namespace {

class StaticInstanceTest : public testing::Test {
protected:
    void SetUp() override { host = loadedHost(); }

    CMPIData property(const CMPIInstance* inst, const char* name) {
        return CMGetProperty(inst, name, nullptr);
    }

    const CMPIInstance* byId(const OperationResult& r, const std::string& id) {
        for (const CMPIInstance* inst : r.instances())
            if (host->propertyText(inst, "Id") == id)
                return inst;
        return nullptr;
    }

    std::unique_ptr<Host> host;
};

TEST_F(StaticInstanceTest, EnumerationServesDeclarationsWithDeclaredTypesAndDefaults) {
    OperationResult r = host->enumerateInstances("root/cimv2", "Test_Static");
    ASSERT_TRUE(r.ok()) << r.status.message;
    // The subclass has no provider either, so its declarations come along.
    EXPECT_THAT(propertyTexts(*host, r, "Id"), ElementsAre("c1", "s1", "s2"));
    const CMPIInstance* s1 = byId(r, "s1");
    const CMPIInstance* s2 = byId(r, "s2");
    ASSERT_TRUE(s1 && s2);
    EXPECT_EQ(property(s1, "Level").type, CMPI_uint8);
    EXPECT_EQ(property(s1, "Level").value.uint8, 7);
    EXPECT_EQ(property(s1, "Values").type, CMPI_sint32A);
    EXPECT_EQ(host->propertyText(s1, "Values"), "{1, -2, 16}");
    EXPECT_EQ(property(s1, "When").type, CMPI_dateTime);
    EXPECT_EQ(host->propertyText(s1, "When"), "20240102030405.000006+060");
    EXPECT_EQ(host->propertyText(s1, "Flag"), "true");
    // Left out of the declaration: the class defaults.
    EXPECT_EQ(host->propertyText(s2, "Level"), "3");
    EXPECT_EQ(host->propertyText(s2, "Note"), "default note");
    EXPECT_EQ(host->propertyText(s2, "Flag"), std::nullopt);

    EXPECT_EQ(host->mofText(s1), "instance of Test_Static {\n"
                                 "    Id = \"s1\";\n"
                                 "    Level = 7;\n"
                                 "    Flag = TRUE;\n"
                                 "    Note = \"default note\";\n"
                                 "    Values = {1, -2, 16};\n"
                                 "    When = \"20240102030405.000006+060\";\n"
                                 "};");

    OperationResult names = host->enumerateInstanceNames("root/cimv2", "Test_StaticChild");
    ASSERT_TRUE(names.ok());
    EXPECT_THAT(pathTexts(*host, names), ElementsAre("root/cimv2:Test_StaticChild.Id=\"c1\""));

    OperationResult empty = host->enumerateInstances("root/cimv2", "Test_Empty");
    EXPECT_TRUE(empty.ok());
    EXPECT_TRUE(empty.instances().empty());
}

TEST_F(StaticInstanceTest, GetInstanceMatchesTheKeys) {
    OperationResult s2 = host->getInstance("Test_Static.Id=\"s2\"");
    ASSERT_TRUE(s2.ok()) << s2.status.message;
    EXPECT_EQ(host->propertyText(s2.instance(), "Id"), "s2");
    OperationResult child = host->getInstance("root/cimv2:Test_StaticChild.Id=\"c1\"");
    ASSERT_TRUE(child.ok());
    EXPECT_EQ(host->propertyText(child.instance(), "Extra"), "child");
    EXPECT_EQ(host->getInstance("Test_Static.Id=\"zz\"").status.rc, CMPI_RC_ERR_NOT_FOUND);
    // The key must be the one the class declares, with the value it has.
    EXPECT_EQ(host->getInstance("Test_Static.Id=\"S1\"").status.rc, CMPI_RC_ERR_NOT_FOUND);
}

TEST_F(StaticInstanceTest, AssociationOperationsFollowTheDeclaredReferences) {
    const std::string s1 = "Test_Static.Id=\"s1\"";
    OperationResult names = host->associatorNames(s1);
    ASSERT_TRUE(names.ok()) << names.status.message;
    EXPECT_THAT(pathTexts(*host, names), ElementsAre("root/cimv2:Test_Static.Id=\"s2\"",
                                                     "root/cimv2:Test_StaticChild.Id=\"c1\""));

    OperationResult children = host->associators(s1, "Test_StaticLink", "Test_StaticChild");
    ASSERT_TRUE(children.ok());
    EXPECT_THAT(propertyTexts(*host, children, "Extra"), ElementsAre("child"));

    EXPECT_TRUE(host->associatorNames(s1, "", "", "To").paths().empty());
    OperationResult back = host->associators("Test_Static.Id=\"s2\"", "", "", "To", "From");
    EXPECT_THAT(propertyTexts(*host, back, "Id"), ElementsAre("s1"));

    // s2 also links to an object that has no instance: a name, but no associator.
    EXPECT_EQ(host->associatorNames("Test_Static.Id=\"s2\"", "", "", "From").paths().size(), 1u);
    EXPECT_TRUE(host->associators("Test_Static.Id=\"s2\"", "", "", "From").instances().empty());

    OperationResult refs = host->references(s1, "Test_StaticLink");
    ASSERT_TRUE(refs.ok());
    EXPECT_THAT(
        propertyTexts(*host, refs, "To"),
        ElementsAre("root/cimv2:Test_Static.Id=\"s2\"", "root/cimv2:Test_StaticChild.Id=\"c1\""));
    EXPECT_EQ(host->referenceNames(s1, "", "To").paths().size(), 0u);
    EXPECT_EQ(host->referenceNames("Test_StaticChild.Id=\"c1\"").paths().size(), 1u);
}

// A client gone away: every object it is handed is refused.
class RefusingStream : public diaghost::ResultSink::Stream {
public:
    bool instance(const CMPIInstance*) override { return ++offered, false; }
    bool path(const CMPIObjectPath*) override { return ++offered, false; }
    int offered = 0;
};

TEST_F(StaticInstanceTest, AssociatorsStopAtTheFirstAnswerAStreamRefuses) {
    CallScope scope(host->broker());
    CMPIObjectPath* s1 = host->parsePath("Test_Static.Id=\"s1\"");
    RefusingStream stream;
    OperationResult all = host->associators(s1, "", "", "", "", &stream);
    EXPECT_FALSE(all.ok());
    EXPECT_EQ(stream.offered, 1);

    RefusingStream names;
    OperationResult paths = host->associatorNames(s1, "", "", "", "", &names);
    EXPECT_FALSE(paths.ok());
    EXPECT_EQ(names.offered, 1);
}

} // namespace
