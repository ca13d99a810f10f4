// The registry files instances under the upper-cased class and the object-path text, and the
// instance and method entry points answer from it.
#include "CoreTestSupport.h"

#include "entry/DiagServiceProviderCommon.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

#include <new>
#include <stdexcept>

using namespace coretest;
using NQORVA20::InstanceImpl;
using NQORVA20::InstanceRegistry;

namespace {

class Plain : public InstanceImpl {
public:
    explicit Plain(std::string cls) : InstanceImpl(std::move(cls)) {}
    void init() override {}
};

class Throwing : public Plain {
public:
    using Plain::Plain;
    CMPIStatus invokeMethod(const CMPIBroker*, const CMPIContext*, const CMPIResult*,
                            const CMPIObjectPath*, std::string method, const CMPIArgs*,
                            CMPIArgs*) override {
        if (method == "Oom")
            throw std::bad_alloc();
        throw std::runtime_error("boom");
    }
};

class RegistryTest : public CoreTest {
protected:
    InstanceRegistry& registry() { return *InstanceRegistry::Singleton(); }

    Plain* add(const std::string& cls, const std::string& name,
               std::vector<std::pair<std::string, std::string>> more = {}) {
        auto* p = new Plain(cls);
        (*p)["Name"] = name;
        for (auto& [k, v] : more)
            (*p)[k] = v;
        registry().RegisterInstance(broker(), ctx(), p);
        return p;
    }
    std::vector<std::string> namesOf(const std::string& cls) {
        std::vector<CMPIInstance*> found;
        registry().GetCMPIInstances(broker(), cls, found);
        std::vector<std::string> names;
        for (CMPIInstance* i : found)
            names.push_back(text(prop(i, "Name")));
        return names;
    }
    std::vector<std::string> namesWithPrefix(const std::string& cls, const std::string& prefix) {
        std::vector<std::string> out;
        for (const std::string& n : namesOf(cls))
            if (n.rfind(prefix, 0) == 0)
                out.push_back(n);
        return out;
    }
};

TEST_P(RegistryTest, RegistrationFilesUnderUpperCasedClassAndPathText) {
    const std::string name = unique("keyed");
    Plain* p = add("core_keying", name);
    EXPECT_EQ(NQORVA20::InstanceRegistry::NormalizeClassName("Core_Keying"), "CORE_KEYING");
    // The key comes from the built path: the class as declared.
    EXPECT_EQ(p->getObjectPath(), "Core_Keying.Name=\"" + name + "\"");
    std::vector<std::string> names = namesOf("CORE_KEYING");
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end());
    InstanceRegistry::Instance* hit =
        registry().GetInstance(broker(), path("Core_Keying", {{"Name", name}}));
    ASSERT_NE(hit, nullptr);
    EXPECT_EQ(hit->impl, p);
    // The object-path text keeps the class name's case: another spelling misses.
    EXPECT_EQ(registry().GetInstance(broker(), path("core_keying", {{"Name", name}})), nullptr);
}

TEST_P(RegistryTest, RegistrationLogsTwoBuildsThenCreatedAndRegisteredLines) {
    const std::string name = unique("logged");
    Plain* p = add("Core_Registry", name, {{"Value", "v"}});
    std::vector<std::string> got = allLines();
    ASSERT_EQ(got.size(), 8u);
    const std::vector<std::string> build = {"Setting property Name to '" + name + "'",
                                            "Setting property Value to 'v'",
                                            "Exiting InstanceBuilder::build"};
    EXPECT_EQ(std::vector<std::string>(got.begin(), got.begin() + 3), build);
    EXPECT_EQ(std::vector<std::string>(got.begin() + 3, got.begin() + 6), build);
    EXPECT_EQ(got[6].rfind("Created instance: 0x", 0), 0u) << got[6];
    EXPECT_NE(got[6].find(", hdl = 0x"), std::string::npos) << got[6];
    EXPECT_EQ(got[7], ">>>>> Registered " + p->getObjectPath());
    EXPECT_EQ(lines(4).size(), 8u);
}

TEST_P(RegistryTest, SecondRegistrationUnderTheSameTextWins) {
    const std::string name = unique("twice");
    Plain* first = add("Core_Registry", name, {{"Value", "1"}});
    // Enumerated in between, the replacement and a later newcomer are still seen.
    auto valueOf = [&](const std::string& wanted) {
        std::vector<CMPIInstance*> found;
        registry().GetCMPIInstances(broker(), "Core_Registry", found);
        for (CMPIInstance* i : found)
            if (text(prop(i, "Name")) == wanted)
                return text(prop(i, "Value"));
        return std::string("absent");
    };
    EXPECT_EQ(valueOf(name), "1");
    EXPECT_EQ(valueOf(name + "-later"), "absent");
    Plain* second = add("Core_Registry", name, {{"Value", "2"}});
    add("Core_Registry", name + "-later", {{"Value", "3"}});
    EXPECT_EQ(valueOf(name), "2");
    EXPECT_EQ(valueOf(name + "-later"), "3");
    CMPIObjectPath* op = path("Core_Registry", {{"Name", name}});
    ASSERT_NE(registry().GetInstance(broker(), op), nullptr);
    EXPECT_EQ(registry().GetInstance(broker(), op)->impl, second);
    EXPECT_EQ(first->getObjectPath(), second->getObjectPath()); // both stay alive
    EXPECT_EQ(namesWithPrefix("Core_Registry", name),
              (std::vector<std::string>{name, name + "-later"}));
}

TEST_P(RegistryTest, UnknownClassMissLogsBothWarningsAndLaterRegistrationStillWorks) {
    const std::string cls = "Core_Miss";
    CMPIObjectPath* op = path("Core_NeverRegistered", {{"Name", "x"}});
    EXPECT_EQ(registry().GetCMPIInstance(broker(), op), nullptr);
    EXPECT_EQ(lines(3), (std::vector<std::string>{" Couldn't find instanceContainer",
                                                  "Didn't find instance"}));
    log().clear();
    // A path text missing in a known class is not logged by the lookup itself.
    const std::string name = unique("miss");
    add(cls, name);
    log().clear();
    EXPECT_EQ(registry().GetInstance(broker(), path(cls, {{"Name", name + "-other"}})), nullptr);
    EXPECT_TRUE(lines(3).empty());
}

TEST_P(RegistryTest, EnumerationAfterAMissListsTheRegisteredInstances) {
    const std::string name = unique("aa");
    add("Core_Miss", name);
    // "A" sorts before every registered text.
    EXPECT_EQ(registry().GetInstance(broker(), path("Core_Miss", {{"Name", "A"}})), nullptr);
    std::vector<std::string> names = namesOf("Core_Miss");
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end());
}

TEST_P(RegistryTest, EnumerationOrdersByEnumOrderWhenFirstInstanceHasIt) {
    const std::string stem = unique("ord");
    add("Core_Ordered", stem + "a", {{"EnumOrder", "3"}});
    add("Core_Ordered", stem + "b", {{"EnumOrder", "1"}});
    add("Core_Ordered", stem + "c", {{"EnumOrder", "2"}});
    add("Core_Ordered", stem + "d", {{"EnumOrder", "4294967295"}});
    add("Core_Ordered", stem + "e", {{"EnumOrder", "0"}});
    EXPECT_EQ(
        namesWithPrefix("Core_Ordered", stem),
        (std::vector<std::string>{stem + "e", stem + "b", stem + "c", stem + "a", stem + "d"}));
    // Equal keys come in object-path-text order, on every enumeration.
    add("Core_Ordered", stem + "g", {{"EnumOrder", "2"}});
    add("Core_Ordered", stem + "f", {{"EnumOrder", "2"}});
    const std::vector<std::string> tied = {stem + "e", stem + "b", stem + "c", stem + "f",
                                           stem + "g", stem + "a", stem + "d"};
    EXPECT_EQ(namesWithPrefix("Core_Ordered", stem), tied);
    EXPECT_EQ(namesWithPrefix("Core_Ordered", stem), tied);
}

TEST_P(RegistryTest, EnumerationKeepsPathOrderWhenFirstInstanceLacksEnumOrder) {
    const std::string stem = unique("!unord"); // '!' sorts before letters: this one is first
    add("Core_Unordered", stem + "a");
    add("Core_Unordered", stem + "b", {{"EnumOrder", "9"}});
    add("Core_Unordered", stem + "c", {{"EnumOrder", "1"}});
    EXPECT_EQ(namesWithPrefix("Core_Unordered", stem),
              (std::vector<std::string>{stem + "a", stem + "b", stem + "c"}));
}

TEST_P(RegistryTest, EnumInstancesReturnsEveryInstanceThenDoneIgnoringThePropertyList) {
    const std::string name = unique("e");
    add("Core_Registry", name, {{"Value", "x"}});
    log().clear();
    ResultSink sink(host());
    const char* onlyName[] = {"Name", nullptr};
    CMPIStatus st = DiagServiceProviderCommonEnumInstances(broker(), nullptr, ctx(), sink.cmpi(),
                                                           path("Core_Registry"), onlyName);
    EXPECT_EQ(st.rc, CMPI_RC_OK);
    EXPECT_EQ(st.msg, nullptr);
    ASSERT_FALSE(sink.calls().empty());
    EXPECT_EQ(sink.calls().back(), ResultSink::Call::Done);
    EXPECT_EQ(sink.calls().size(), sink.instances().size() + 1);
    bool seen = false;
    for (CMPIInstance* i : sink.instances())
        if (text(prop(i, "Name")) == name) {
            seen = true;
            EXPECT_EQ(text(prop(i, "Value")), "x"); // not filtered away
        }
    EXPECT_TRUE(seen);
    EXPECT_EQ(allLines().front(), "+++ EnumInstances");
}

TEST_P(RegistryTest, EnumerationOfAnEmptyClassIsDoneAndOk) {
    ResultSink sink(host());
    CMPIStatus st = DiagServiceProviderCommonEnumInstances(broker(), nullptr, ctx(), sink.cmpi(),
                                                           path("Core_Other"), nullptr);
    EXPECT_EQ(st.rc, CMPI_RC_OK);
    EXPECT_EQ(sink.calls(), (std::vector<ResultSink::Call>{ResultSink::Call::Done}));
    ResultSink names(host());
    st = DiagServiceProviderCommonEnumInstanceNames(broker(), nullptr, ctx(), names.cmpi(),
                                                    path("Core_Other"));
    EXPECT_EQ(st.rc, CMPI_RC_OK);
    EXPECT_EQ(names.calls(), (std::vector<ResultSink::Call>{ResultSink::Call::Done}));
}

TEST_P(RegistryTest, EnumInstanceNamesReturnsPathsThatGetInstanceFinds) {
    const std::string name = unique("n");
    add("Core_Registry", name);
    log().clear();
    ResultSink sink(host());
    CMPIStatus st = DiagServiceProviderCommonEnumInstanceNames(broker(), nullptr, ctx(),
                                                               sink.cmpi(), path("Core_Registry"));
    EXPECT_EQ(st.rc, CMPI_RC_OK); // the last getObjectPath's status
    EXPECT_EQ(sink.calls().back(), ResultSink::Call::Done);
    EXPECT_EQ(allLines().front(), "+++ EnumInstanceNames");
    bool found = false;
    for (CMPIObjectPath* p : sink.paths()) {
        ResultSink got(host());
        EXPECT_EQ(
            DiagServiceProviderCommonGetInstance(broker(), nullptr, ctx(), got.cmpi(), p, nullptr)
                .rc,
            CMPI_RC_OK);
        ASSERT_EQ(got.instances().size(), 1u);
        found |= text(prop(got.instances()[0], "Name")) == name;
        EXPECT_EQ(got.calls(), (std::vector<ResultSink::Call>{ResultSink::Call::Instance,
                                                              ResultSink::Call::Done}));
    }
    EXPECT_TRUE(found);
}

TEST_P(RegistryTest, GetInstanceMissFailsWithMessageAndTouchesNoResult) {
    const std::string name = unique("g");
    add("Core_Registry", name);
    log().clear();
    ResultSink sink(host());
    CMPIStatus st = DiagServiceProviderCommonGetInstance(
        broker(), nullptr, ctx(), sink.cmpi(), path("Core_Registry", {{"Name", name + "x"}}),
        nullptr);
    EXPECT_EQ(st.rc, CMPI_RC_ERR_FAILED);
    ASSERT_NE(st.msg, nullptr);
    EXPECT_STREQ(st.msg->ft->getCharPtr(st.msg, nullptr), "Could not find or construct instance");
    EXPECT_TRUE(sink.calls().empty());
    EXPECT_EQ(allLines(), (std::vector<std::string>{"+++ GetInstance", "Didn't find instance"}));
}

TEST_P(RegistryTest, ChangingOperationsAreRefusedWithoutTouchingTheResult) {
    ResultSink sink(host());
    CMPIObjectPath* op = path("Core_Registry", {{"Name", "x"}});
    EXPECT_EQ(
        DiagServiceProviderCommonCreateInstance(broker(), nullptr, ctx(), sink.cmpi(), op, nullptr)
            .rc,
        CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(DiagServiceProviderCommonModifyInstance(broker(), nullptr, ctx(), sink.cmpi(), op,
                                                      nullptr, nullptr)
                  .rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(DiagServiceProviderCommonDeleteInstance(broker(), nullptr, ctx(), sink.cmpi(), op).rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(DiagServiceProviderCommonExecQuery(broker(), nullptr, ctx(), sink.cmpi(), op,
                                                 "select * from X", "WQL")
                  .rc,
              CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_TRUE(sink.calls().empty());
    EXPECT_TRUE(allLines().empty());
    EXPECT_EQ(DiagServiceProviderCommonCleanup(broker(), nullptr, ctx(), 0).rc, CMPI_RC_OK);
    EXPECT_EQ(DiagServiceProviderCommonMethodCleanup(broker(), nullptr, ctx(), 1).rc, CMPI_RC_OK);
}

TEST_P(RegistryTest, InvokeMethodAnswersNotFoundAndMethodNotFound) {
    ResultSink sink(host());
    CMPIStatus st = DiagServiceProviderCommonInvokeMethod(
        broker(), nullptr, ctx(), sink.cmpi(), path("Core_Registry", {{"Name", "nobody"}}),
        "RunDiagnostic", nullptr, nullptr);
    EXPECT_EQ(st.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(st.msg, nullptr);
    const std::string name = unique("m");
    add("Core_Registry", name);
    st = DiagServiceProviderCommonInvokeMethod(broker(), nullptr, ctx(), sink.cmpi(),
                                               path("Core_Registry", {{"Name", name}}), "Any",
                                               nullptr, nullptr);
    EXPECT_EQ(st.rc, CMPI_RC_ERR_METHOD_NOT_FOUND);
    EXPECT_TRUE(sink.calls().empty());
}

TEST_P(RegistryTest, ExceptionsInsideAnEntryBecomeFailedStatusAndAnErrorLine) {
    const std::string name = unique("t");
    auto* t = new Throwing("Core_Registry");
    (*t)["Name"] = name;
    registry().RegisterInstance(broker(), ctx(), t);
    for (const char* method : {"Oom", "Other"}) {
        log().clear();
        ResultSink sink(host());
        CMPIStatus st = DiagServiceProviderCommonInvokeMethod(
            broker(), nullptr, ctx(), sink.cmpi(), path("Core_Registry", {{"Name", name}}), method,
            nullptr, nullptr);
        EXPECT_EQ(st.rc, CMPI_RC_ERR_FAILED);
        ASSERT_NE(st.msg, nullptr);
        EXPECT_NE(std::string(st.msg->ft->getCharPtr(st.msg, nullptr)).find("InvokeMethod"),
                  std::string::npos);
        EXPECT_EQ(lines(1).size(), 1u);
    }
}

INSTANTIATE_TEST_SUITE_P(Dialects, RegistryTest,
                         testing::Values(PathDialect::Pegasus, PathDialect::Sfcb), dialectSuffix);

} // namespace
