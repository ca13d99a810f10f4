// The two provider registrations: the section file for the embedded host and sfcb, and the
// registration instances for OpenPegasus. Each must name every ZORQ class once, with the kinds of
// operation the class needs, and both must say the same thing class by class.
#include "MofAgreementFiles.h"

#include "host/mof/ClassRepository.h"
#include "host/providers/ProviderRegistration.h"
#include "host/text/CimNames.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <tuple>

using namespace diaghost;
using namespace mofagreement;

namespace {

// What one registration says about one class: provider, library base name, operation kinds.
using Served = std::tuple<std::string, std::string, std::set<std::string>>;

const MofValue* valueOf(const CimInstanceDecl& inst, const std::string& name) {
    for (const auto& [n, v] : inst.values) {
        if (sameName(n, name)) {
            return &v;
        }
    }
    return nullptr;
}

// The single text of a scalar value; empty when absent or null.
std::string text(const CimInstanceDecl& inst, const std::string& name) {
    const MofValue* v = valueOf(inst, name);
    return v == nullptr || v->kind == MofValue::Kind::Null || v->elements.empty()
               ? std::string()
               : v->elements.front();
}

std::set<std::string> typeWords(const ProviderRegistration& r) {
    std::set<std::string> out;
    if (r.serves(ProviderRegistration::Instance)) {
        out.insert("instance");
    }
    if (r.serves(ProviderRegistration::Association)) {
        out.insert("association");
    }
    if (r.serves(ProviderRegistration::Method)) {
        out.insert("method");
    }
    if (r.serves(ProviderRegistration::Indication)) {
        out.insert("indication");
    }
    if (r.serves(ProviderRegistration::Property)) {
        out.insert("property");
    }
    return out;
}

class RegistrationAgreementTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        try {
            classes.loadFile(kOwnMof, kCimv2);
            pegasus.loadFile(kPegasusClasses, kCimv2);
            // Named on the command line, as cimmof -n root/PG_InterOp does.
            pegasus.loadFile(kPegasusRegistration, kInterop);
            sections = ProviderRegistration::readFile(kSfcbRegistration);
        } catch (const std::exception& e) {
            loadError = e.what();
        }
    }
    void SetUp() override { ASSERT_EQ(loadError, ""); }

    static std::set<std::string> zorqClasses() {
        std::set<std::string> out;
        for (const std::string& name : classes.classNames(kCimv2)) {
            if (name.rfind("ZORQ_", 0) == 0) {
                out.insert(name);
            }
        }
        return out;
    }

    static std::vector<CimInstanceDecl> pegasusInstances(const std::string& className) {
        std::vector<CimInstanceDecl> out;
        for (const CimInstanceDecl& inst : pegasus.instances(kInterop)) {
            if (sameName(inst.className, className)) {
                out.push_back(inst);
            }
        }
        return out;
    }

    static ClassRepository classes;
    static ClassRepository pegasus;
    static std::vector<ProviderRegistration> sections;
    static std::string loadError;
};

ClassRepository RegistrationAgreementTest::classes;
ClassRepository RegistrationAgreementTest::pegasus;
std::vector<ProviderRegistration> RegistrationAgreementTest::sections;
std::string RegistrationAgreementTest::loadError;

TEST_F(RegistrationAgreementTest, SectionFileNamesEveryZorqClassOnceInRootCimv2WithUnloadNever) {
    std::multiset<std::string> named;
    for (const ProviderRegistration& r : sections) {
        named.insert(r.className);
        EXPECT_TRUE(r.unloadNever) << r.className << " (records live in process memory)";
        EXPECT_EQ(r.namespaces, std::vector<std::string>{kCimv2}) << r.className;
    }
    std::set<std::string> expected = zorqClasses();
    EXPECT_EQ(named, std::multiset<std::string>(expected.begin(), expected.end()));
    EXPECT_EQ(expected.size(), 37u);
}

TEST_F(RegistrationAgreementTest, SectionTypesFitTheClassesAndEachLibraryHasOneProvider) {
    std::map<std::string, std::set<std::string>> providersOf;
    for (const ProviderRegistration& r : sections) {
        const CimClass* c = classes.findClass(kCimv2, r.className);
        ASSERT_NE(c, nullptr) << r.className;
        EXPECT_TRUE(r.serves(ProviderRegistration::Instance)) << r.className;
        EXPECT_EQ(r.serves(ProviderRegistration::Association), c->association) << r.className;
        EXPECT_EQ(r.serves(ProviderRegistration::Method), !c->methods.empty()) << r.className;
        EXPECT_FALSE(r.serves(ProviderRegistration::Indication)) << r.className;
        providersOf[r.location].insert(r.providerName);
    }
    const std::map<std::string, std::set<std::string>> expected = {
        {"zorqcs", {"ZORQ_ComputerSystemProvider"}},
        {"zorqfsdiag", {"ZORQ_FSDiagProvider"}},
        {"zorqnetdiag", {"ZORQ_NetDiagProvider"}}};
    EXPECT_EQ(providersOf, expected);
}

TEST_F(RegistrationAgreementTest, PegasusRegistrationLoadsIntoTheInteropNamespaceOnly) {
    EXPECT_EQ(pegasus.classCount(kCimv2), 0u);
    EXPECT_TRUE(pegasus.instances(kCimv2).empty());
    EXPECT_EQ(pegasusInstances("PG_ProviderModule").size(), 3u);
    EXPECT_EQ(pegasusInstances("PG_Provider").size(), 3u);
    EXPECT_EQ(pegasusInstances("PG_ProviderCapabilities").size(), 37u);
    EXPECT_EQ(pegasus.instances(kInterop).size(), 43u);
}

TEST_F(RegistrationAgreementTest, PegasusModulesAreCmpiLibrariesNamedByTheirBaseName) {
    std::set<std::string> names;
    for (const CimInstanceDecl& m : pegasusInstances("PG_ProviderModule")) {
        const std::string name = text(m, "Name");
        EXPECT_TRUE(names.insert(name).second) << name << " twice";
        EXPECT_EQ(text(m, "InterfaceType"), "CMPI") << name;
        EXPECT_EQ(text(m, "InterfaceVersion"), "2.0.0") << name;
        EXPECT_FALSE(text(m, "Vendor").empty()) << name;
        EXPECT_FALSE(text(m, "Version").empty()) << name;
        const std::string location = text(m, "Location");
        EXPECT_EQ(location.rfind("lib", 0), std::string::npos) << location;
        EXPECT_EQ(location.find(".so"), std::string::npos) << location;
        EXPECT_EQ(location.find('/'), std::string::npos) << location;
    }
}

TEST_F(RegistrationAgreementTest, PegasusCapabilitiesBelongToDeclaredProvidersAndUseKnownTypes) {
    std::set<std::string> modules;
    for (const CimInstanceDecl& m : pegasusInstances("PG_ProviderModule")) {
        modules.insert(text(m, "Name"));
    }
    std::set<std::pair<std::string, std::string>> providers;
    for (const CimInstanceDecl& p : pegasusInstances("PG_Provider")) {
        EXPECT_EQ(modules.count(text(p, "ProviderModuleName")), 1u) << text(p, "Name");
        providers.insert({text(p, "ProviderModuleName"), text(p, "Name")});
    }
    std::set<std::tuple<std::string, std::string, std::string>> ids;
    for (const CimInstanceDecl& c : pegasusInstances("PG_ProviderCapabilities")) {
        const std::string cls = text(c, "ClassName");
        EXPECT_EQ(providers.count({text(c, "ProviderModuleName"), text(c, "ProviderName")}), 1u)
            << cls;
        EXPECT_TRUE(ids.insert({text(c, "ProviderModuleName"), text(c, "ProviderName"),
                                text(c, "CapabilityID")})
                        .second)
            << "CapabilityID " << text(c, "CapabilityID") << " twice";
        const MofValue* ns = valueOf(c, "Namespaces");
        ASSERT_NE(ns, nullptr) << cls;
        EXPECT_TRUE(ns->array);
        EXPECT_EQ(ns->elements, std::vector<std::string>{kCimv2}) << cls;
        const MofValue* types = valueOf(c, "ProviderType");
        ASSERT_NE(types, nullptr) << cls;
        EXPECT_TRUE(types->array);
        std::set<std::string> seen(types->elements.begin(), types->elements.end());
        EXPECT_EQ(seen.size(), types->elements.size()) << cls << " repeats a provider type";
        for (const std::string& t : types->elements) {
            EXPECT_TRUE(t == "2" || t == "3" || t == "5") << cls << " has provider type " << t;
        }
        for (const char* all : {"SupportedProperties", "SupportedMethods"}) {
            const MofValue* v = valueOf(c, all);
            EXPECT_TRUE(v == nullptr || v->kind == MofValue::Kind::Null)
                << cls << "." << all << " must be null: the provider serves all of them";
        }
    }
}

TEST_F(RegistrationAgreementTest, BothRegistrationsSayTheSameClassByClass) {
    std::map<std::string, Served> fromSections;
    for (const ProviderRegistration& r : sections) {
        fromSections[r.className] = Served{r.providerName, r.location, typeWords(r)};
    }
    std::map<std::string, std::string> locationOf;
    for (const CimInstanceDecl& m : pegasusInstances("PG_ProviderModule")) {
        locationOf[text(m, "Name")] = text(m, "Location");
    }
    const std::map<std::string, std::string> kinds = {
        {"2", "instance"}, {"3", "association"}, {"4", "indication"}, {"5", "method"}};
    std::map<std::string, Served> fromPegasus;
    for (const CimInstanceDecl& c : pegasusInstances("PG_ProviderCapabilities")) {
        std::set<std::string> words;
        for (const std::string& t : valueOf(c, "ProviderType")->elements) {
            auto it = kinds.find(t);
            words.insert(it == kinds.end() ? "type " + t : it->second);
        }
        fromPegasus[text(c, "ClassName")] =
            Served{text(c, "ProviderName"), locationOf[text(c, "ProviderModuleName")], words};
    }
    EXPECT_EQ(fromPegasus, fromSections);
}

} // namespace
