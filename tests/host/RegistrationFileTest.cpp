// Reading provider registration files and adding them to the provider manager.
#include "HostTestSupport.h"

#include "host/providers/ProviderManager.h"
#include "host/providers/ProviderRegistration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace hosttest;
using diaghost::ProviderRegistration;
using diaghost::RegistrationError;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class RegistrationFileTest : public testing::Test {
protected:
    static std::vector<ProviderRegistration> read(const std::string& text) {
        return ProviderRegistration::readText(text, "test.reg");
    }
};

TEST_F(RegistrationFileTest, ReadsEverySectionWithItsFields) {
    auto regs = read("# leading comment\n"
                     "[CIM_A]   # trailing comment\n"
                     "   provider: A_Provider\n"
                     "   location: aprov\n"
                     "   type: instance association   method\n"
                     "   namespace: root/cimv2\n"
                     "   namespace: root/interop root/cimv2\n"
                     "   group: ignored\n"
                     "\n"
                     "[CIM_B]\n"
                     "Provider: B_Provider\n"
                     "LOCATION: bprov\n"
                     "type: Method\n"
                     "namespace: root/b\n"
                     "unload: never\n");
    ASSERT_EQ(regs.size(), 2u);
    EXPECT_EQ(regs[0].className, "CIM_A");
    EXPECT_EQ(regs[0].providerName, "A_Provider");
    EXPECT_EQ(regs[0].location, "aprov");
    EXPECT_EQ(regs[0].typeText(), "instance method association");
    EXPECT_THAT(regs[0].namespaces, ElementsAre("root/cimv2", "root/interop"));
    EXPECT_FALSE(regs[0].unloadNever);
    EXPECT_EQ(regs[0].file, "test.reg");
    EXPECT_EQ(regs[0].line, 2);
    EXPECT_TRUE(regs[1].serves(ProviderRegistration::Method));
    EXPECT_FALSE(regs[1].serves(ProviderRegistration::Instance));
    EXPECT_TRUE(regs[1].unloadNever);
    EXPECT_EQ(regs[1].line, 10);

    auto fromFile = ProviderRegistration::readFile(dataFile("TestHost.reg"));
    EXPECT_EQ(fromFile.size(), 8u);
}

TEST_F(RegistrationFileTest, MalformedTextNamesFileAndLine) {
    const std::string good = "provider: P\nlocation: l\ntype: instance\nnamespace: root/x\n";
    struct Case {
        std::string text;
        int line;
        const char* says;
    };
    const Case cases[] = {
        {"provider: P\n", 1, "before the first [ClassName]"},
        {"[CIM_A\n" + good, 1, "closing ']'"},
        {"[]\n" + good, 1, "not a class name"},
        {"[CIM A]\n" + good, 1, "not a class name"},
        {"[CIM_A]\njust words\n", 2, "expected \"key: value\""},
        {"[CIM_A]\n" + good + "colour: blue\n", 6, "unknown key \"colour\""},
        {"[CIM_A]\nprovider: P\nlocation: l\ntype: instance gadget\n", 4, "unknown provider type"},
        {"[CIM_A]\nprovider:\n", 2, "has no value"},
        {"[CIM_A]\n" + good + "provider: Q\n", 6, "given twice"},
        {"[CIM_A]\n" + good + "unload: sometimes\n", 6, "only \"never\""},
        {"[CIM_A]\nlocation: l\ntype: instance\nnamespace: root/x\n", 1, "no \"provider\""},
        {"[CIM_A]\nprovider: P\ntype: instance\nnamespace: root/x\n", 1, "no \"location\""},
        {"[CIM_A]\nprovider: P\nlocation: l\nnamespace: root/x\n", 1, "no \"type\""},
        {"[CIM_A]\nprovider: P\nlocation: l\ntype: method\n\n[CIM_B]\n", 1, "no \"namespace\""},
        {"[CIM_A]\nprovider: P\nlocation: a b\n", 3, "not a library base name"},
        {"[CIM_A]\nprovider: P\nnamespace: root/x y\"z\n", 3, "not a namespace name"},
        {std::string("[CIM_A]\nprov\0ider: P\n", 21), 2, "binary data"},
    };
    for (const Case& c : cases) {
        try {
            read(c.text);
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const RegistrationError& e) {
            EXPECT_EQ(e.file(), "test.reg") << c.text;
            EXPECT_EQ(e.line(), c.line) << c.text << " -> " << e.what();
            EXPECT_THAT(e.what(), HasSubstr(c.says)) << c.text;
            EXPECT_THAT(e.what(), HasSubstr("test.reg:" + std::to_string(c.line) + ": "));
        }
    }
    EXPECT_THROW(ProviderRegistration::readFile(dataFile("no-such-file.reg")), RegistrationError);
}

TEST_F(RegistrationFileTest, ConflictingRegistrationsAreRejectedWithoutAddingAny) {
    auto host = loadedHost();
    auto& manager = host->providers();
    std::size_t before = manager.registrations().size();

    // Test_Element already has an instance provider in root/cimv2 (TestHost.reg line 3).
    auto clash = read("[Test_Other]\nprovider: O\nlocation: o\ntype: instance\nnamespace: root/x\n"
                      "[test_element]\nprovider: X\nlocation: x\ntype: method instance\n"
                      "namespace: ROOT/CIMV2\n");
    try {
        manager.addRegistrations(clash);
        ADD_FAILURE() << "a second instance provider for Test_Element was accepted";
    } catch (const RegistrationError& e) {
        EXPECT_EQ(e.line(), 6);
        EXPECT_THAT(e.what(), HasSubstr("already registered for instance method"));
        EXPECT_THAT(e.what(), HasSubstr("TestHost.reg:3"));
    }
    EXPECT_EQ(manager.registrations().size(), before);

    auto moved = read("[Test_Other]\nprovider: Test_ElementProvider\nlocation: elsewhere\n"
                      "type: instance\nnamespace: root/cimv2\n");
    EXPECT_THROW(manager.addRegistrations(moved), RegistrationError);

    // Within one file too.
    auto twice = read("[C]\nprovider: P\nlocation: p\ntype: instance\nnamespace: root/x\n"
                      "[C]\nprovider: Q\nlocation: q\ntype: instance\nnamespace: root/x\n");
    EXPECT_THROW(manager.addRegistrations(twice), RegistrationError);
    EXPECT_EQ(manager.registrations().size(), before);
}

TEST_F(RegistrationFileTest, KindsOfOneClassMayGoToDifferentProviders) {
    auto host = loadedHost();
    auto& manager = host->providers();
    manager.addRegistrations(
        read("[Test_Static]\nprovider: S_Methods\nlocation: smeth\ntype: method\n"
             "namespace: root/cimv2\n"));
    auto method =
        manager.providerFor("root/cimv2", "Test_StaticChild", ProviderRegistration::Method);
    ASSERT_TRUE(method.has_value());
    EXPECT_EQ(method->providerName, "S_Methods");
    EXPECT_EQ(method->className, "Test_Static");
    EXPECT_FALSE(manager.providerFor("root/cimv2", "Test_Static", ProviderRegistration::Instance));
    // Registrations are per namespace: none in a namespace the class is not registered in.
    EXPECT_FALSE(manager.providerFor("root/other", "Test_Element", ProviderRegistration::Instance));
    // Without instance provider the static instances still answer enumerations.
    EXPECT_EQ(host->enumerateInstances("root/cimv2", "Test_Static").instances().size(), 3u);
}

} // namespace
