// The association entry points answer with the registered association instances that refer to
// the source object, filtered by association class, role, result class and result role.
#include "CoreTestSupport.h"

#include "common/ProviderScope.h"
#include "entry/DiagServiceProviderCommon.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

using namespace coretest;
using namespace NQORVA20;

namespace {

class Plain : public InstanceImpl {
public:
    explicit Plain(std::string cls) : InstanceImpl(std::move(cls)) {}
    void init() override {}
};

class AssociationTest : public CoreTest {
protected:
    // Elements a, b (Core_Element) and c (Core_SpecialElement), links a->b and c->a.
    void SetUp() override {
        CoreTest::SetUp();
        stem = unique("as");
        a = element("Core_Element", stem + "a");
        b = element("Core_Element", stem + "b");
        c = element("Core_SpecialElement", stem + "c");
        link(a, b, "ab");
        link(c, a, "ca");
        log().clear();
    }
    Plain* element(const std::string& cls, const std::string& name) {
        auto* p = new Plain(cls);
        (*p)["Name"] = name;
        (*p)["DeviceID"] = "dev";
        InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), p);
        return p;
    }
    void link(Plain* left, Plain* right, const std::string& note) {
        auto* l = new Plain("Core_Link");
        (*l)["Left"] = left->getObjectPath();
        (*l)["Right"] = right->getObjectPath();
        (*l)["Note"] = stem + note;
        InstanceRegistry::Singleton()->RegisterInstance(broker(), ctx(), l);
    }
    CMPIObjectPath* pathOf(Plain* e) {
        return path(e->getClassName(), {{"Name", (*e)["Name"]}, {"DeviceID", "dev"}});
    }
    std::vector<std::string> notes(const std::string& source, const char* assocClass,
                                   const char* resultClass, const char* role,
                                   const char* resultRole) {
        Plain* src = source == "a" ? a : source == "b" ? b : c;
        ResultSink sink(host());
        CMPIStatus st = DiagServiceProviderCommonAssociators(broker(), nullptr, ctx(), sink.cmpi(),
                                                             pathOf(src), assocClass, resultClass,
                                                             role, resultRole, nullptr);
        EXPECT_EQ(st.rc, CMPI_RC_OK);
        EXPECT_EQ(sink.calls().back(), ResultSink::Call::Done);
        std::vector<std::string> out;
        for (CMPIInstance* i : sink.instances()) {
            const std::string note = text(prop(i, "Note"));
            if (note.rfind(stem, 0) == 0)
                out.push_back(note.substr(stem.size()));
        }
        return out;
    }
    std::string stem;
    Plain *a = nullptr, *b = nullptr, *c = nullptr;
};

TEST_P(AssociationTest, SourceIsFoundThroughAnyReferenceOrTheNamedRole) {
    EXPECT_EQ(notes("a", "Core_Link", nullptr, nullptr, nullptr),
              (std::vector<std::string>{"ab", "ca"}));
    EXPECT_EQ(notes("a", "core_link", nullptr, "Left", nullptr), (std::vector<std::string>{"ab"}));
    EXPECT_EQ(notes("a", "Core_Link", nullptr, "Right", nullptr), (std::vector<std::string>{"ca"}));
    EXPECT_TRUE(notes("a", "Core_Link", nullptr, "Note", nullptr).empty());
    EXPECT_TRUE(notes("a", "Core_Link", nullptr, "NoSuchRole", nullptr).empty());
    EXPECT_TRUE(notes("b", "Core_Other", nullptr, nullptr, nullptr).empty());
}

TEST_P(AssociationTest, ResultClassFollowsTheHierarchyThroughTheResultRole) {
    // From b, the far end a is a Core_Element; from a, the far end c is a Core_SpecialElement.
    EXPECT_EQ(notes("b", "Core_Link", "Core_Element", "Right", "Left"),
              (std::vector<std::string>{"ab"}));
    EXPECT_EQ(notes("a", "Core_Link", "Core_Element", "Right", "Left"),
              (std::vector<std::string>{"ca"}));
    EXPECT_EQ(notes("a", "Core_Link", "core_specialelement", "Right", "Left"),
              (std::vector<std::string>{"ca"}));
    EXPECT_TRUE(notes("b", "Core_Link", "Core_SpecialElement", "Right", "Left").empty());
    EXPECT_TRUE(notes("b", "Core_Link", "Core_Other", "Right", "Left").empty());
    // Without a result role every reference is tried, the source's own included.
    EXPECT_EQ(notes("b", "Core_Link", "Core_Element", nullptr, nullptr),
              (std::vector<std::string>{"ab"}));
}

TEST_P(AssociationTest, EachExaminedReferenceWritesThreeDebugLines) {
    notes("b", "Core_Link", nullptr, "Right", nullptr);
    // Every registered link is examined; only this test's are known here, so count the triples.
    const std::vector<std::string> got = allLines();
    ASSERT_EQ(got.size() % 3, 0u);
    const std::string wanted = CMPIUtil::GetObjectPathString(pathOf(b));
    bool sawMatch = false;
    for (std::size_t i = 0; i < got.size(); i += 3) {
        EXPECT_EQ(got[i], "$$$$ IsRefInstanceMatch");
        EXPECT_EQ(got[i + 2], wanted);
        sawMatch |= got[i + 1] == wanted;
    }
    EXPECT_TRUE(sawMatch);
}

TEST_P(AssociationTest, AssociatorNamesReturnsTheAssociationPaths) {
    ResultSink sink(host());
    CMPIStatus st = DiagServiceProviderCommonAssociatorNames(
        broker(), nullptr, ctx(), sink.cmpi(), pathOf(a), "Core_Link", nullptr, nullptr, nullptr);
    EXPECT_EQ(st.rc, CMPI_RC_OK);
    int mine = 0;
    for (CMPIObjectPath* p : sink.paths()) {
        EXPECT_EQ(CMPIUtil::GetClassName(p), "Core_Link");
        mine += CMPIUtil::GetObjectPathString(p).find(stem) != std::string::npos;
    }
    EXPECT_EQ(mine, 2);
    EXPECT_EQ(sink.calls().back(), ResultSink::Call::Done);
}

TEST_P(AssociationTest, WithoutAnAssociationClassEveryClassOfTheCallingProviderIsAsked) {
    EXPECT_EQ(notes("a", nullptr, nullptr, nullptr, nullptr),
              (std::vector<std::string>{"ab", "ca"}));
    EXPECT_EQ(notes("a", nullptr, nullptr, "Left", nullptr), (std::vector<std::string>{"ab"}));
    EXPECT_EQ(notes("b", nullptr, "Core_Element", "Right", "Left"),
              (std::vector<std::string>{"ab"}));
    // The classes were filed while no provider library was named: another library's call
    // without a class does not answer with them.
    int otherLibrary = 0;
    ProviderScope::enter(&otherLibrary);
    EXPECT_TRUE(notes("a", nullptr, nullptr, nullptr, nullptr).empty());
    ProviderScope::enter(nullptr);
}

TEST_P(AssociationTest, ReferenceCallsAreRefusedAndCleanupAnswersOk) {
    ResultSink refs(host());
    EXPECT_EQ(DiagServiceProviderCommonReferences(broker(), nullptr, ctx(), refs.cmpi(), pathOf(a),
                                                  nullptr, nullptr, nullptr)
                  .rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(DiagServiceProviderCommonReferenceNames(broker(), nullptr, ctx(), refs.cmpi(),
                                                      pathOf(a), nullptr, nullptr)
                  .rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_TRUE(refs.calls().empty());
    EXPECT_EQ(DiagServiceProviderCommonAssociationCleanup(broker(), nullptr, ctx(), 0).rc,
              CMPI_RC_OK);
}

INSTANTIATE_TEST_SUITE_P(Dialects, AssociationTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
