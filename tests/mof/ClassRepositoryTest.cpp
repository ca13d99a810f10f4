// The repository's queries over loaded classes: hierarchy walks, namespaces, pre-resolved
// classes, redefinition, and reads running alongside a load.
#include "host/mof/ClassRepository.h"
#include "host/mof/CimTypeCodes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace diaghost;

namespace {

class ClassRepositoryTest : public ::testing::Test {
protected:
    void SetUp() override {
        repo.loadText(R"(
class T_Root { [Key] string Id; };
class T_A : T_Root { string A; };
class T_B : T_Root { string B; };
class T_A1 : T_A { string A1; };
class T_B1 : T_B { };
class T_A2 : T_A { };
class T_Other { };
)",
                      "root/x");
    }

    ClassRepository repo;
};

TEST_F(ClassRepositoryTest, SubclassNamesListEveryDescendantAfterItsParent) {
    EXPECT_EQ(repo.subclassNames("root/x", "t_root"),
              (std::vector<std::string>{"T_A", "T_B", "T_A1", "T_A2", "T_B1"}));
    EXPECT_EQ(repo.subclassNames("root/x", "T_A"), (std::vector<std::string>{"T_A1", "T_A2"}));
    EXPECT_TRUE(repo.subclassNames("root/x", "T_A1").empty());
    EXPECT_TRUE(repo.subclassNames("root/x", "Nope").empty());
    EXPECT_TRUE(repo.subclassNames("root/nope", "T_Root").empty());
}

TEST_F(ClassRepositoryTest, IsAFollowsTheSuperclassChainOnly) {
    EXPECT_TRUE(repo.isA("root/x", "T_A1", "T_Root"));
    EXPECT_TRUE(repo.isA("root/x", "T_A1", "t_a1"));
    EXPECT_FALSE(repo.isA("root/x", "T_A1", "T_B"));
    EXPECT_FALSE(repo.isA("root/x", "T_Root", "T_A"));
    EXPECT_FALSE(repo.isA("root/x", "Nope", "Nope"));
    EXPECT_FALSE(repo.isA("root/y", "T_A1", "T_Root"));
}

TEST_F(ClassRepositoryTest, ClassesAndNamespacesAreListedInDefinitionOrder) {
    EXPECT_EQ(repo.classNames("root/x"), (std::vector<std::string>{"T_Root", "T_A", "T_B", "T_A1",
                                                                   "T_B1", "T_A2", "T_Other"}));
    EXPECT_EQ(repo.classCount("ROOT/X"), 7u);
    EXPECT_EQ(repo.classCount("/root/x/"), 7u) << "slashes around a namespace do not matter";
    EXPECT_EQ(repo.classCount("root/none"), 0u);
    repo.loadText("class T_Z { };", "Root/Second");
    EXPECT_EQ(repo.namespaces(), (std::vector<std::string>{"root/x", "Root/Second"}));
    EXPECT_EQ(repo.findClass("root/x", "T_Z"), nullptr);
}

TEST_F(ClassRepositoryTest, AddedClassesTakePartInTheHierarchyAsGiven) {
    CimClass extra;
    extra.name = "T_Added";
    extra.superclass = "T_A";
    CimProperty p;
    p.name = "Id";
    p.type = 0x1600;
    p.key = true;
    p.originClass = "T_Root";
    extra.properties.push_back(p);
    p.name = "Mine";
    p.key = false;
    p.originClass.clear();
    extra.properties.push_back(p);
    repo.addClass("root/x", extra);
    const CimClass* added = repo.findClass("root/x", "t_added");
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->findProperty("Mine")->originClass, "T_Added");
    EXPECT_TRUE(repo.isA("root/x", "T_Added", "T_Root"));
    EXPECT_EQ(repo.subclassNames("root/x", "T_A").back(), "T_Added");

    // A MOF subclass of an added class inherits from it.
    repo.loadText("class T_Below : T_Added { string Low; };", "root/x");
    EXPECT_EQ(repo.findClass("root/x", "T_Below")->properties.size(), 3u);

    // Added classes may come before their superclass; the hierarchy joins up when it arrives.
    CimClass orphan;
    orphan.name = "T_Orphan";
    orphan.superclass = "T_Late";
    repo.addClass("root/x", orphan);
    repo.loadText("class T_Late { };", "root/x");
    EXPECT_EQ(repo.subclassNames("root/x", "T_Late"), (std::vector<std::string>{"T_Orphan"}));
    CimClass loop;
    loop.name = "T_Late";
    loop.superclass = "T_Orphan";
    EXPECT_ANY_THROW(repo.addClass("root/x", loop));
}

TEST_F(ClassRepositoryTest, AddedClassesGetTheirDefaultTextsAsTypedInitializers) {
    CimClass hand;
    hand.name = "T_Hand";
    auto withDefault = [&](const char* name, CimTypeCode type, const char* text) {
        CimProperty p;
        p.name = name;
        p.type = type;
        p.hasDefault = true;
        p.defaultText = text;
        hand.properties.push_back(p);
    };
    using namespace cimtype;
    withDefault("Count", uint16, "7");
    withDefault("Flag", boolean, "true");
    withDefault("Codes", uint16 | arrayFlag, "1,2");
    withDefault("Labels", string | arrayFlag, "");
    withDefault("Caption", string, "a,b"); // a single string: the comma is text
    repo.addClass("root/x", hand);
    const CimClass* added = repo.findClass("root/x", "T_Hand");
    ASSERT_NE(added, nullptr);
    using Kind = MofValue::Kind;
    auto initializer = [&](const char* name) { return added->findProperty(name)->defaultValue; };
    EXPECT_EQ(initializer("Count").kind, Kind::Integer);
    EXPECT_EQ(initializer("Count").elements, (std::vector<std::string>{"7"}));
    EXPECT_EQ(initializer("Flag").kind, Kind::Boolean);
    EXPECT_TRUE(initializer("Codes").array);
    EXPECT_EQ(initializer("Codes").elements, (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(initializer("Labels").array);
    EXPECT_TRUE(initializer("Labels").elements.empty());
    EXPECT_EQ(initializer("Caption").elements, (std::vector<std::string>{"a,b"}));
}

TEST_F(ClassRepositoryTest, RedefiningAClassReresolvesItsSubclasses) {
    repo.loadText("class T_A : T_Root { string A; uint32 Added = 7; };", "root/x");
    const CimClass* a1 = repo.findClass("root/x", "T_A1");
    ASSERT_NE(a1, nullptr);
    const CimProperty* added = a1->findProperty("Added");
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->originClass, "T_A");
    EXPECT_EQ(added->defaultText, "7");
    EXPECT_EQ(added->defaultValue.elements, (std::vector<std::string>{"7"}));
    EXPECT_EQ(a1->properties.back().name, "A1");
    EXPECT_EQ(repo.classCount("root/x"), 7u);
    EXPECT_EQ(repo.subclassNames("root/x", "T_A"), (std::vector<std::string>{"T_A1", "T_A2"}));

    // A class found before a redefinition is found anew after it.
    EXPECT_EQ(repo.findClass("root/x", "T_A2")->findProperty("Added")->defaultText, "7");
    // A redefinition its subclasses cannot accept is refused and changes nothing.
    repo.loadText("class T_A2 : T_A { [Override (\"Added\")] uint32 Added = 9; };", "root/x");
    EXPECT_THROW(repo.loadText("class T_A : T_Root { string A; };", "root/x"), MofError);
    EXPECT_NE(repo.findClass("root/x", "T_A")->findProperty("Added"), nullptr);
    EXPECT_EQ(repo.findClass("root/x", "T_A2")->findProperty("Added")->defaultText, "9");
    EXPECT_EQ(repo.findClass("root/x", "T_A2")->findProperty("Added")->defaultValue.elements,
              (std::vector<std::string>{"9"}));
}

TEST_F(ClassRepositoryTest, ReadersRunWhileAnotherThreadLoads) {
    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                if (repo.isA("root/x", "T_A1", "T_Root") &&
                    repo.subclassNames("root/x", "T_Root").size() >= 5) {
                    ++reads;
                }
                repo.classNames("root/x");
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        repo.loadText("class T_Gen" + std::to_string(i) + " : T_Root { };", "root/x");
    }
    while (reads == 0) {
        std::this_thread::yield();
    }
    done = true;
    for (std::thread& t : readers) {
        t.join();
    }
    EXPECT_EQ(repo.classCount("root/x"), 207u);
}

} // namespace
