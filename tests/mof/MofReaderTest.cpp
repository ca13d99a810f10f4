// The MOF reader on small texts: what each construct becomes in the repository, and the errors
// it reports for malformed input.
#include "host/mof/ClassRepository.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace diaghost;

namespace {

class MofReaderTest : public ::testing::Test {
protected:
    const CimClass& load(const std::string& mof, const std::string& className) {
        repo.loadText(mof, "root/test", "test.mof");
        const CimClass* cls = repo.findClass("root/test", className);
        if (cls == nullptr) {
            throw std::runtime_error("class " + className + " was not loaded");
        }
        return *cls;
    }

    // The message of the MofError a text raises, or "" when it loads.
    std::string errorOf(const std::string& mof) {
        try {
            ClassRepository fresh;
            fresh.loadText(mof, "root/test", "bad.mof");
        } catch (const MofError& e) {
            return e.what();
        }
        return "";
    }

    const CimInstanceDecl& onlyInstance(const std::string& mof) {
        repo.loadText(mof, "root/test", "test.mof");
        instances = repo.instances("root/test");
        if (instances.size() != 1) {
            throw std::runtime_error("expected one instance");
        }
        return instances.front();
    }

    static const MofValue& valueOf(const CimInstanceDecl& inst, const std::string& name) {
        for (const auto& [n, v] : inst.values) {
            if (n == name) {
                return v;
            }
        }
        throw std::runtime_error("no value " + name);
    }

    ClassRepository repo;
    std::vector<CimInstanceDecl> instances;
};

const char* const kAllTypes = R"(
class Test_Types {
    boolean B; char16 C; string S; datetime D;
    uint8 U8; uint16 U16; uint32 U32; uint64 U64;
    sint8 S8; sint16 S16; sint32 S32; sint64 S64;
    real32 R32; real64 R64;
    uint8 Bytes[]; string Fixed[4]; datetime Times[];
    Test_Types REF Self;
};
)";

TEST_F(MofReaderTest, EveryCimTypeGetsItsCmpiTypeCodeAndArraysAddTheArrayFlag) {
    const CimClass& c = load(kAllTypes, "Test_Types");
    const std::pair<const char*, unsigned> expected[] = {
        {"B", 2},          {"C", 3},          {"S", 0x1600},   {"D", 0x1800}, {"U8", 128},
        {"U16", 144},      {"U32", 160},      {"U64", 176},    {"S8", 192},   {"S16", 208},
        {"S32", 224},      {"S64", 240},      {"R32", 8},      {"R64", 12},   {"Bytes", 0x2080},
        {"Fixed", 0x3600}, {"Times", 0x3800}, {"Self", 0x1100}};
    ASSERT_EQ(c.properties.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(c.properties[i].name, expected[i].first);
        EXPECT_EQ(c.properties[i].type, expected[i].second) << expected[i].first;
    }
    EXPECT_EQ(c.findProperty("self")->refClass, "Test_Types");
    EXPECT_TRUE(c.findProperty("S")->refClass.empty());
}

TEST_F(MofReaderTest, DefaultsAndQualifierValuesBecomeNormalisedText) {
    const CimClass& c = load(R"(
[Description ("A class " "in two parts."), Abstract]
class Test_Defaults {
    [MaxLen (64), ValueMap {"0", "1", ".."}, Override ("X"), Key] string Name = "n\t\"q\"";
    uint32 Hex = 0x1F;
    sint16 Neg = -0x10;
    uint8 Bin = 101b;
    uint16 Oct = 017;
    real64 R = -1.5e3;
    char16 Ch = '\x41';
    boolean Flag = TRUE;
    uint16 List[] = {1, 2, 3};
    string Nothing = NULL;
    [In (false)] boolean Off;
};
)",
                             "Test_Defaults");
    EXPECT_EQ(c.qualifiers.at("description"), "A class in two parts.");
    EXPECT_EQ(c.qualifiers.at("abstract"), "true");
    EXPECT_TRUE(c.abstract);
    const CimProperty& name = *c.findProperty("Name");
    EXPECT_EQ(name.qualifiers.at("maxlen"), "64");
    EXPECT_EQ(name.qualifiers.at("valuemap"), "0,1,..");
    EXPECT_EQ(name.qualifiers.at("override"), "X");
    EXPECT_TRUE(name.key);
    EXPECT_EQ(name.defaultText, "n\t\"q\"");
    EXPECT_EQ(c.findProperty("Hex")->defaultText, "31");
    EXPECT_EQ(c.findProperty("Neg")->defaultText, "-16");
    EXPECT_EQ(c.findProperty("Bin")->defaultText, "5");
    EXPECT_EQ(c.findProperty("Oct")->defaultText, "15");
    EXPECT_EQ(c.findProperty("R")->defaultText, "-1.5e3");
    EXPECT_EQ(c.findProperty("Ch")->defaultText, "A");
    EXPECT_EQ(c.findProperty("Flag")->defaultText, "true");
    EXPECT_EQ(c.findProperty("List")->defaultText, "1,2,3");
    EXPECT_FALSE(c.findProperty("Nothing")->hasDefault);
    EXPECT_FALSE(c.findProperty("Hex")->key);
    EXPECT_EQ(c.findProperty("Off")->qualifiers.at("in"), "false");
}

const char* const kHierarchy = R"(
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
Qualifier Abstract : boolean = false, Scope(class, association, indication),
    Flavor(EnableOverride, Restricted);
Qualifier Override : string = null, Scope(property, reference, method), Flavor(Restricted);
Qualifier Description : string = null, Scope(any), Flavor(EnableOverride, ToSubclass, Translatable);

[Abstract, Description ("root")]
class Test_Root {
    [Key, Description ("the id")] string Id;
    string First = "one";
    string Second;
    uint32 Act([IN] string A);
};
class Test_Mid : Test_Root {
    [Override ("Second"), MaxLen (8)] string Second;
    string Own;
};
class Test_Leaf : Test_Mid {
    [Key (false), Description ("narrowed")] string Id;
    string First;
    [Override ("Act")] uint16 Act([IN, OUT] uint8 B[]);
};
)";

TEST_F(MofReaderTest, InheritedMembersComeFirstAndOverridesReplaceThemInPlace) {
    const CimClass& leaf = load(kHierarchy, "Test_Leaf");
    std::vector<std::string> names;
    for (const CimProperty& p : leaf.properties) {
        names.push_back(p.name + "@" + p.originClass);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Id@Test_Root", "First@Test_Root",
                                               "Second@Test_Root", "Own@Test_Mid"}));
    const CimProperty& id = *leaf.findProperty("id");
    EXPECT_TRUE(id.key) << "Key cannot be overridden";
    EXPECT_EQ(id.qualifiers.at("description"), "narrowed");
    EXPECT_EQ(leaf.findProperty("First")->defaultText, "one") << "an override keeps the default";
    const CimProperty& second = *leaf.findProperty("Second");
    EXPECT_EQ(second.qualifiers.at("maxlen"), "8") << "qualifiers flow down";
    EXPECT_EQ(second.qualifiers.count("override"), 0u) << "Override is restricted";

    ASSERT_EQ(leaf.methods.size(), 1u);
    const CimMethod& act = leaf.methods[0];
    EXPECT_EQ(act.originClass, "Test_Root");
    EXPECT_EQ(act.returnType, 144);
    ASSERT_EQ(act.parameters.size(), 1u);
    EXPECT_EQ(act.parameters[0].name, "B");
    EXPECT_EQ(act.parameters[0].type, 0x2080);

    EXPECT_TRUE(repo.findClass("root/test", "Test_Root")->abstract);
    EXPECT_FALSE(leaf.abstract);
    EXPECT_EQ(leaf.qualifiers.count("abstract"), 0u);
    EXPECT_EQ(leaf.qualifiers.at("description"), "root");
}

// A service and a port the way DMTF nests them: the service's keys are declared by its grandparent
// (Name overriding the root's), the port's by its great-grandparent.
const char* const kKeyLevels = R"(
class T_Element { string Caption; string Name; };
class T_Service : T_Element {
    [Key] string SystemCreationClassName; [Key] string SystemName;
    [Key] string CreationClassName; [Key, Override ("Name")] string Name;
};
class T_DiagService : T_Service { };
class T_NetDiagService : T_DiagService { };
class T_Device : T_Element {
    [Key] string SystemCreationClassName; [Key] string SystemName;
    [Key] string CreationClassName; [Key] string DeviceID;
};
class T_Port : T_Device { uint64 Speed; };
class T_NetworkPort : T_Port { [Override ("Speed")] uint64 Speed; };
class T_NetPort : T_NetworkPort { string OperState; };
class T_NameFirst : T_Element {
    [Key, Override ("Name")] string Name; [Key] string CreationClassName;
};
class T_NameFirstLeaf : T_NameFirst { };
class T_NameFirstLeaf2 : T_NameFirstLeaf { };
)";

TEST_F(MofReaderTest, SfcbKeyOrderReversesInheritedKeysAtEachLevelAndKeepsOwnDeclarationsInPlace) {
    repo.loadText(kKeyLevels, "root/test", "keys.mof");
    auto sfcbKeys = [&](const char* className) {
        const CimClass* c = repo.findClass("root/test", className);
        std::vector<std::string> names;
        for (std::uint32_t at : c->sfcbKeyOrder)
            names.push_back(c->properties.at(at).name);
        return names;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(sfcbKeys("T_Service"),
              (Names{"SystemCreationClassName", "SystemName", "CreationClassName", "Name"}));
    EXPECT_EQ(sfcbKeys("T_DiagService"),
              (Names{"Name", "CreationClassName", "SystemName", "SystemCreationClassName"}));
    // The orders sfcb gives the DMTF services and network ports.
    EXPECT_EQ(sfcbKeys("T_NetDiagService"),
              (Names{"SystemCreationClassName", "SystemName", "CreationClassName", "Name"}));
    EXPECT_EQ(sfcbKeys("T_NetPort"),
              (Names{"DeviceID", "CreationClassName", "SystemName", "SystemCreationClassName"}));
    // An override counts where it is written, not where the property was first declared.
    EXPECT_EQ(sfcbKeys("T_NameFirstLeaf2"), (Names{"Name", "CreationClassName"}));
    EXPECT_EQ(sfcbKeys("T_NameFirstLeaf"), (Names{"CreationClassName", "Name"}));
    // The properties themselves keep the declaration order.
    EXPECT_EQ(repo.findClass("root/test", "T_NetDiagService")->properties[1].name, "Name");
}

TEST_F(MofReaderTest, AssociationAndIndicationFlagsInheritButAbstractDoesNot) {
    load(R"(
[Association, Abstract] class Test_Assoc { [Key] Test_X REF A; [Key] Test_X REF B; };
class Test_SubAssoc : Test_Assoc { Test_Y REF A; };
[Indication] class Test_Ind { string Message; };
class Test_SubInd : Test_Ind { };
class Test_X { }; class Test_Y : Test_X { };
)",
         "Test_Assoc");
    const CimClass& sub = *repo.findClass("root/test", "test_subassoc");
    EXPECT_TRUE(sub.association);
    EXPECT_FALSE(sub.abstract);
    EXPECT_EQ(sub.findProperty("A")->refClass, "Test_Y");
    EXPECT_TRUE(sub.findProperty("A")->key);
    EXPECT_EQ(sub.findProperty("B")->refClass, "Test_X");
    EXPECT_TRUE(repo.findClass("root/test", "Test_SubInd")->indication);
    EXPECT_FALSE(repo.findClass("root/test", "Test_SubInd")->association);
}

TEST_F(MofReaderTest, MethodParametersTakeInByDefaultAndKeepRefAndArrayTypes) {
    const CimClass& c = load(R"(
class Test_Svc {
    [Description ("run")] uint32 Run(
        [IN] Test_Svc REF Target,
        [IN (false), OUT] Test_Svc REF Job,
        string Plain,
        [OUT] string Messages[],
        [IN, OUT] Test_Svc REF Many[]);
    Test_Svc REF Locate();
};
)",
                             "Test_Svc");
    const CimMethod& run = *c.findMethod("RUN");
    EXPECT_EQ(run.originClass, "Test_Svc");
    EXPECT_EQ(run.qualifiers.at("description"), "run");
    ASSERT_EQ(run.parameters.size(), 5u);
    struct Expect {
        const char* name;
        unsigned type;
        const char* ref;
        bool in, out;
    };
    const Expect expected[] = {{"Target", 0x1100, "Test_Svc", true, false},
                               {"Job", 0x1100, "Test_Svc", false, true},
                               {"Plain", 0x1600, "", true, false},
                               {"Messages", 0x3600, "", true, true},
                               {"Many", 0x3100, "Test_Svc", true, true}};
    for (std::size_t i = 0; i < 5; ++i) {
        const CimParameter& p = run.parameters[i];
        EXPECT_EQ(p.name, expected[i].name);
        EXPECT_EQ(p.type, expected[i].type) << p.name;
        EXPECT_EQ(p.refClass, expected[i].ref) << p.name;
        EXPECT_EQ(p.in, expected[i].in) << p.name;
        EXPECT_EQ(p.out, expected[i].out) << p.name;
    }
    EXPECT_EQ(c.findMethod("Locate")->returnType, 0x1100);
    EXPECT_TRUE(c.findMethod("Locate")->parameters.empty());
}

TEST_F(MofReaderTest, QualifierDeclarationsKeepTypeDefaultScopeAndFlavor) {
    repo.loadText(R"(
Qualifier ValueMap : string[], Scope(property, method, parameter);
Qualifier MaxLen : uint32 = null, Scope(property, method, parameter), Flavor(ToSubclass);
Qualifier Stamp : datetime = "20240101120000.000000+000", Scope(any),
    Flavor(DisableOverride, Restricted, Translatable);
qualifier Enabled : BOOLEAN = TRUE, scope(CLASS), flavor(enableoverride);
)",
                  "root/test");
    const CimQualifierDecl* vm = repo.findQualifier("root/test", "valuemap");
    ASSERT_NE(vm, nullptr);
    EXPECT_EQ(vm->type, 0x3600);
    EXPECT_EQ(vm->scope, (std::vector<std::string>{"property", "method", "parameter"}));
    EXPECT_TRUE(vm->flavor.empty());
    EXPECT_EQ(repo.findQualifier("root/test", "MaxLen")->type, 160);
    const CimQualifierDecl* stamp = repo.findQualifier("ROOT/TEST", "STAMP");
    ASSERT_NE(stamp, nullptr);
    EXPECT_EQ(stamp->defaultText, "20240101120000.000000+000");
    EXPECT_EQ(stamp->flavor,
              (std::vector<std::string>{"disableoverride", "restricted", "translatable"}));
    EXPECT_EQ(repo.findQualifier("root/test", "Enabled")->defaultText, "true");
    EXPECT_EQ(repo.findQualifier("root/test", "Enabled")->scope,
              (std::vector<std::string>{"class"}));
    EXPECT_EQ(repo.findQualifier("root/other", "MaxLen"), nullptr);
}

const char* const kInstances = R"(
class Test_Thing {
    [Key] string Name;
    [Key] uint8 Slot;
    sint64 Big; real32 Ratio; boolean On; char16 Letter; datetime When;
    uint16 Codes[]; string Labels[]; Test_Thing REF Peer;
};
[Association] class Test_Link {
    [Key] Test_Thing REF Left;
    [Key] Test_Thing REF Right;
    Test_Thing REF Others[];
};
)";

TEST_F(MofReaderTest, InstanceValuesOfEveryKindAreUnquotedAndUnescaped) {
    const CimInstanceDecl& inst = onlyInstance(std::string(kInstances) + R"(
instance of test_thing {
    name = "a\x4A\"\\";  Slot = 0x0F;
    Big = -9223372036854775808; Ratio = 2; On = false; Letter = 'z';
    When = "20240102030405.000000+060";
    Codes = {1, 0x10, 11b, 010}; Labels = {"x", "y" "z"}; Peer = NULL;
};
)");
    EXPECT_EQ(inst.className, "Test_Thing");
    EXPECT_TRUE(inst.alias.empty());
    ASSERT_EQ(inst.values.size(), 10u);
    EXPECT_EQ(inst.values[0].first, "Name") << "names take the class's spelling";
    const MofValue& name = valueOf(inst, "Name");
    EXPECT_EQ(name.kind, MofValue::Kind::String);
    EXPECT_EQ(name.elements, (std::vector<std::string>{"aJ\"\\"}));
    EXPECT_EQ(valueOf(inst, "Slot").elements[0], "15");
    EXPECT_EQ(valueOf(inst, "Big").elements[0], "-9223372036854775808");
    EXPECT_EQ(valueOf(inst, "Ratio").kind, MofValue::Kind::Real);
    EXPECT_EQ(valueOf(inst, "On").kind, MofValue::Kind::Boolean);
    EXPECT_EQ(valueOf(inst, "On").elements[0], "false");
    EXPECT_EQ(valueOf(inst, "Letter").kind, MofValue::Kind::Char);
    EXPECT_EQ(valueOf(inst, "When").elements[0], "20240102030405.000000+060");
    const MofValue& codes = valueOf(inst, "Codes");
    EXPECT_TRUE(codes.array);
    EXPECT_EQ(codes.kind, MofValue::Kind::Integer);
    EXPECT_EQ(codes.elements, (std::vector<std::string>{"1", "16", "3", "8"}));
    EXPECT_EQ(valueOf(inst, "Labels").elements, (std::vector<std::string>{"x", "yz"}));
    EXPECT_EQ(valueOf(inst, "Peer").kind, MofValue::Kind::Null);
    EXPECT_TRUE(valueOf(inst, "Peer").elements.empty());
}

TEST_F(MofReaderTest, AliasesResolveToObjectPathsEvenWhenUsedBeforeTheirInstance) {
    repo.loadText(std::string(kInstances) + R"(
instance of Test_Link {
    Left = $first; Right = "Test_Thing.Name=\"raw\",Slot=1"; Others = {$Second, $first};
};
instance of Test_Thing as $First { Name = "one \"1\""; Slot = 1; Peer = $second; };
instance of Test_Thing as $Second { Slot = 2; Name = "two"; };
instance of Test_Link as $L { Left = $First; Right = $Second; };
instance of Test_Thing { Name = "three"; Slot = 3; Peer = $L; };
)",
                  "root/test");
    std::vector<CimInstanceDecl> all = repo.instances("root/test");
    ASSERT_EQ(all.size(), 5u);
    const std::string first = R"(Test_Thing.Name="one \"1\"",Slot=1)";
    const std::string second = R"(Test_Thing.Name="two",Slot=2)";
    EXPECT_EQ(valueOf(all[0], "Left").kind, MofValue::Kind::Reference);
    EXPECT_EQ(valueOf(all[0], "Left").elements[0], first);
    EXPECT_EQ(valueOf(all[0], "Right").kind, MofValue::Kind::Reference);
    EXPECT_EQ(valueOf(all[0], "Right").elements[0], "Test_Thing.Name=\"raw\",Slot=1");
    EXPECT_EQ(valueOf(all[0], "Others").elements, (std::vector<std::string>{second, first}));
    EXPECT_EQ(all[1].alias, "First");
    EXPECT_EQ(valueOf(all[1], "Peer").elements[0], second);
    EXPECT_EQ(valueOf(all[4], "Peer").elements[0],
              "Test_Link.Left=\"Test_Thing.Name=\\\"one \\\\\\\"1\\\\\\\"\\\",Slot=1\","
              "Right=\"Test_Thing.Name=\\\"two\\\",Slot=2\"");
}

TEST_F(MofReaderTest, PragmaIncludeIsRelativeToTheIncludingFileAndNamespaceStaysInItsFile) {
    repo.loadFile(DIAGCORE_SOURCE_DIR "/tests/mof/data/include_main.mof", "root/start");
    EXPECT_NE(repo.findClass("root/leaf", "Test_Leaf"), nullptr);
    EXPECT_EQ(repo.findClass("root/start", "Test_Leaf"), nullptr);
    EXPECT_NE(repo.findClass("root/start", "Test_Base"), nullptr);
    const CimClass* child = repo.findClass("root/start", "Test_Child");
    ASSERT_NE(child, nullptr);
    EXPECT_TRUE(child->findProperty("Name")->key);
    EXPECT_NE(repo.findClass("root/other", "Test_Other"), nullptr);
    EXPECT_EQ(repo.namespaces(),
              (std::vector<std::string>{"root/leaf", "root/start", "root/other"}));
}

TEST_F(MofReaderTest, KeywordsTypesAndNamesIgnoreCase) {
    const CimClass& c = load(R"(
#PRAGMA Locale ("en_US")
QUALIFIER Key : BOOLEAN = FALSE, SCOPE(PROPERTY), FLAVOR(DISABLEOVERRIDE);
[KEY, association] CLASS Test_Case { [key] test_case ref Me; UINT8 n = 1; String S = Null; };
INSTANCE OF TEST_CASE AS $x { ME = "Test_Case.Me=\"\""; N = 2; };
)",
                             "TEST_CASE");
    EXPECT_EQ(c.name, "Test_Case");
    EXPECT_TRUE(c.association);
    EXPECT_EQ(c.findProperty("ME")->type, 0x1100);
    EXPECT_TRUE(c.findProperty("me")->key);
    EXPECT_EQ(c.findProperty("N")->type, 128);
    EXPECT_FALSE(c.findProperty("s")->hasDefault);
    EXPECT_TRUE(repo.isA("ROOT/Test", "test_case", "TEST_CASE"));
    ASSERT_EQ(repo.instances("root/TEST").size(), 1u);
}

TEST_F(MofReaderTest, EachErrorNamesTheFileAndLineOfItsCause) {
    struct Case {
        const char* mof;
        const char* where; // "bad.mof:<line>:"
        const char* says;
    };
    const Case cases[] = {
        {"class A {\n string S\n};", "bad.mof:3:", "expected ';'"},
        {"class A {\n  strin S;\n};", "bad.mof:2:", "unknown type 'strin'"},
        {"\n\nclass B : Missing { };", "bad.mof:3:", "superclass Missing"},
        {"class A { };\nclass B : A { };\nclass B { };", "bad.mof:3:", "superclass"},
        {"class A { };\n#pragma include (\"no/such.mof\")", "bad.mof:2:", "no/such.mof"},
        {"class A { };\n#pragma include (\"/dev/zero\")", "bad.mof:2:", "/dev/zero"},
        {"class A {\n string S = \"open;\n};", "bad.mof:2:", "unterminated string"},
        {"class A { };\n/* never closed", "bad.mof:2:", "unterminated comment"},
        {"class A {\n uint64 N = 18446744073709551616;\n};", "bad.mof:2:", "64 bits"},
        {"class A {\n uint8 N = 256;\n};", "bad.mof:2:", "out of its range"},
        {"class A {\n sint8 N = -129;\n};", "bad.mof:2:", "out of its range"},
        {"class A {\n uint8 N = -1;\n};", "bad.mof:2:", "out of its range"},
        {"class A {\n string S = 5;\n};", "bad.mof:2:", "integer value"},
        {"class A {\n string S[] = \"x\";\n};", "bad.mof:2:", "single value"},
        {"class A {\n datetime D = \"2024\";\n};", "bad.mof:2:", "not a date-time"},
        {"class A {\n string S;\n\n string s;\n};", "bad.mof:4:", "twice"},
        {"class A { string S; };\ninstance of A {\n T = 1; };", "bad.mof:3:", "no property T"},
        {"instance of Nope { };", "bad.mof:1:", "undefined class Nope"},
        {"[Abstract] class A { string S; };\ninstance of A { S = \"\"; };",
         "bad.mof:2:", "abstract"},
        {"class A { A REF R; };\ninstance of A {\n R = $nobody; };",
         "bad.mof:3:", "undefined alias $nobody"},
        {"class A { [Key] string S; };\ninstance of A as $a { S = \"1\"; };\n"
         "instance of A as $A { S = \"2\"; };",
         "bad.mof:3:", "already given"},
        {"class A { string S; };\ninstance of A { S = $x; };", "bad.mof:2:", "only a reference"},
        {"class A { string S = $x; };", "bad.mof:1:", "instance declaration"},
        {"class A {\n string S = 'ab';\n};", "bad.mof:2:", "char literal"},
        {"class A {\n string S = \"\\q\";\n};", "bad.mof:2:", "unknown escape"},
        {"class A {\n uint8 L[] = {1, NULL};\n};", "bad.mof:2:", "NULL"},
        {"Qualifier Q : boolean;", "bad.mof:1:", "needs a Scope"},
        {"Qualifier Q : boolean, Scope(nowhere);", "bad.mof:1:", "unknown scope"},
        {"class A { };\n\n#pragma namespace (\"\")", "bad.mof:3:", "namespace"},
        {"class A {\n  uint32 Go(string X, uint8 x);\n};", "bad.mof:2:", "two parameters"},
        {"class A { };\nclass B : A {\n [Override (\"Gone\")] string Gone; };",
         "bad.mof:2:", "overrides Gone"},
        {"class A { }\n\nclass B { };", "bad.mof:3:", "expected ';'"},
        {"class A : A { };", "bad.mof:1:", "own superclass"},
        {"\n12ab", "bad.mof:2:", "malformed number"},
        {"class A {\n uint8 N = 09;\n};", "bad.mof:2:", "octal"},
        {"class A { } ; \x01", "bad.mof:1:", "byte 0x01"},
        {"class A {\n  uint8 N\n", "bad.mof:3:", "end of file"},
    };
    for (const Case& c : cases) {
        std::string message = errorOf(c.mof);
        EXPECT_EQ(message.rfind(c.where, 0), 0u) << c.mof << "\n=> " << message;
        EXPECT_NE(message.find(c.says), std::string::npos) << c.mof << "\n=> " << message;
    }
}

TEST_F(MofReaderTest, IncludeCyclesAndMissingIncludesStopTheLoadButKeepEarlierClasses) {
    const std::string dir = DIAGCORE_SOURCE_DIR "/tests/mof/data/";
    try {
        repo.loadFile(dir + "cycle_a.mof", "root/test");
        FAIL() << "an include cycle loaded";
    } catch (const MofError& e) {
        EXPECT_NE(std::string(e.what()).find("include cycle"), std::string::npos) << e.what();
        EXPECT_EQ(e.file(), dir + "cycle_b.mof");
        EXPECT_EQ(e.line(), 4);
    }
    try {
        repo.loadFile(dir + "missing_include.mof", "root/test");
        FAIL() << "a missing include loaded";
    } catch (const MofError& e) {
        EXPECT_EQ(e.line(), 4);
    }
    EXPECT_NE(repo.findClass("root/test", "Test_BeforeCycle"), nullptr);
    EXPECT_NE(repo.findClass("root/test", "Test_BeforeMissing"), nullptr);
    EXPECT_THROW(repo.loadFile(dir + "no_such_file.mof"), MofError);
    EXPECT_THROW(repo.loadFile(dir), MofError) << "a directory is not a MOF file";
}

TEST_F(MofReaderTest, FailedLoadStoresNoneOfItsInstances) {
    EXPECT_NE(errorOf(std::string(kInstances) + R"(
instance of Test_Thing as $a { Name = "a"; Slot = 1; };
instance of Test_Link { Left = $a; Right = $b; };
)"),
              "");
    try {
        repo.loadText(std::string(kInstances) + R"(
instance of Test_Thing { Name = "kept?"; Slot = 1; };
instance of Test_Link { Left = $missing; };
)",
                      "root/test");
    } catch (const MofError&) {
    }
    EXPECT_TRUE(repo.instances("root/test").empty());
    EXPECT_NE(repo.findClass("root/test", "Test_Link"), nullptr);
}

TEST_F(MofReaderTest, AliasCycleThroughKeysIsAnErrorNotARecursion) {
    std::string message = errorOf(R"(
[Association] class A { [Key] A REF Other; };
instance of A as $x { Other = $y; };
instance of A as $y { Other = $x; };
)");
    EXPECT_NE(message.find("refer back"), std::string::npos) << message;
}

// Every prefix of a valid text, and many corrupted copies of it, either loads or raises MofError.
TEST_F(MofReaderTest, TruncatedOrCorruptedInputNeverCrashes) {
    const std::string text = std::string(kHierarchy) + kInstances + R"(
instance of Test_Thing as $t { Name = "x\x41"; Slot = 0x1; Codes = {1, 2}; Letter = '\n'; };
instance of Test_Link { Left = $t; Right = $t; };
#pragma include ("missing.mof")
)";
    std::size_t loaded = 0;
    auto attempt = [&](const std::string& mof) {
        ClassRepository fresh;
        try {
            fresh.loadText(mof, "root/fuzz", "fuzz.mof");
            ++loaded;
        } catch (const MofError& e) {
            EXPECT_EQ(std::string(e.what()).rfind("fuzz.mof:", 0), 0u) << e.what();
        }
    };
    for (std::size_t n = 0; n <= text.size(); ++n) {
        attempt(text.substr(0, n));
    }
    EXPECT_GT(loaded, 5u);
    std::mt19937 random(20240607);
    const char bytes[] = "{}()[];,:=#$\"'\\/*-+.0x9aZ \n\x80\xff";
    for (int round = 0; round < 3000; ++round) {
        std::string mutated = text;
        for (int k = 0; k < 3; ++k) {
            mutated[random() % mutated.size()] = bytes[random() % (sizeof bytes - 1)];
        }
        attempt(mutated);
    }
}

} // namespace
