// Our own MOF of the DMTF classes must declare every class it names exactly as the DMTF schema
// does: same superclass, same properties with the same types, keys and defaults, and the same
// signatures for the methods it keeps. Skipped when the shared schema is not there.
#include "MofAgreementFiles.h"

#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

using namespace diaghost;
using namespace mofagreement;

namespace {

// The qualifiers that change what a property or parameter means to a client; the rest
// (descriptions, value maps, units) are documentation our MOF leaves out.
const char* const kMeaningfulQualifiers[] = {
    "key", "required", "write", "embeddedobject", "embeddedinstance", "in", "out"};

std::string qualifierValue(const CimQualifiers& q, const char* name) {
    auto it = q.find(name);
    return it == q.end() ? "(none)" : it->second;
}

void compareQualifiers(const std::string& where, const CimQualifiers& ours,
                       const CimQualifiers& theirs, std::vector<std::string>& faults) {
    for (const char* name : kMeaningfulQualifiers) {
        std::string a = qualifierValue(ours, name);
        std::string b = qualifierValue(theirs, name);
        // An absent boolean qualifier and an explicit false say the same.
        if ((a == "(none)" && b == "false") || (a == "false" && b == "(none)")) {
            continue;
        }
        if (a != b) {
            faults.push_back(where + ": qualifier " + name + " is " + a + ", the schema has " + b);
        }
    }
}

std::set<std::string> lowered(const std::vector<std::string>& words) {
    std::set<std::string> out;
    for (const std::string& w : words) {
        out.insert(lowerName(w));
    }
    return out;
}

class DmtfAgreementTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!std::filesystem::exists(kDmtfSchema)) {
            return;
        }
        ours = std::make_unique<ClassRepository>();
        dmtf = std::make_unique<ClassRepository>();
        try {
            ours->loadFile(kOwnMof, kCimv2);
            dmtf->loadFile(kDmtfSchema, kCimv2);
        } catch (const MofError& e) {
            loadError = e.what();
        }
    }
    static void TearDownTestSuite() {
        ours.reset();
        dmtf.reset();
    }
    void SetUp() override {
        if (dmtf == nullptr) {
            GTEST_SKIP() << kDmtfSchema << " is not there";
        }
        ASSERT_EQ(loadError, "");
    }

    // Every class of ours with a DMTF name.
    static std::vector<const CimClass*> ownCimClasses() {
        std::vector<const CimClass*> out;
        for (const std::string& name : ours->classNames(kCimv2)) {
            if (lowerName(name).rfind("cim_", 0) == 0) {
                out.push_back(ours->findClass(kCimv2, name));
            }
        }
        return out;
    }

    static std::unique_ptr<ClassRepository> ours;
    static std::unique_ptr<ClassRepository> dmtf;
    static std::string loadError;
};

std::unique_ptr<ClassRepository> DmtfAgreementTest::ours;
std::unique_ptr<ClassRepository> DmtfAgreementTest::dmtf;
std::string DmtfAgreementTest::loadError;

TEST_F(DmtfAgreementTest, EveryOwnCimClassIsASchemaClassWithTheSameSuperclassAndKind) {
    std::vector<const CimClass*> own = ownCimClasses();
    ASSERT_GE(own.size(), 25u);
    std::vector<std::string> faults;
    for (const CimClass* c : own) {
        const CimClass* d = dmtf->findClass(kCimv2, c->name);
        if (d == nullptr) {
            faults.push_back(c->name + " is not a class of the schema");
            continue;
        }
        if (c->name != d->name) {
            faults.push_back(c->name + " is spelled " + d->name + " in the schema");
        }
        if (!sameName(c->superclass, d->superclass)) {
            faults.push_back(c->name + " derives from '" + c->superclass +
                             "', the schema's from '" + d->superclass + "'");
        }
        if (c->association != d->association) {
            faults.push_back(c->name + (d->association ? " must" : " must not") +
                             " be an association");
        }
        if (c->abstract != d->abstract) {
            faults.push_back(c->name + (d->abstract ? " must" : " must not") + " be abstract");
        }
    }
    EXPECT_EQ(faults, std::vector<std::string>{});
}

TEST_F(DmtfAgreementTest, EveryOwnCimClassHasExactlyTheSchemasPropertiesTypesKeysAndDefaults) {
    std::vector<std::string> faults;
    std::size_t compared = 0;
    for (const CimClass* c : ownCimClasses()) {
        const CimClass* d = dmtf->findClass(kCimv2, c->name);
        if (d == nullptr) {
            continue; // reported by the superclass check
        }
        for (const CimProperty& theirs : d->properties) {
            if (c->findProperty(theirs.name) == nullptr) {
                faults.push_back(c->name + " lacks " + theirs.name);
            }
        }
        for (const CimProperty& p : c->properties) {
            const std::string where = c->name + "." + p.name;
            const CimProperty* theirs = d->findProperty(p.name);
            if (theirs == nullptr) {
                faults.push_back(where + " is not in the schema");
                continue;
            }
            ++compared;
            if (p.name != theirs->name) {
                faults.push_back(where + " is spelled " + theirs->name + " in the schema");
            }
            if (p.type != theirs->type || !sameName(p.refClass, theirs->refClass)) {
                faults.push_back(where + " is " + typeText(p) + ", the schema's " +
                                 typeText(*theirs));
            }
            if (!sameName(p.originClass, theirs->originClass)) {
                faults.push_back(where + " is first declared in " + p.originClass +
                                 ", in the schema in " + theirs->originClass);
            }
            if (p.key != theirs->key) {
                faults.push_back(where + (theirs->key ? " must" : " must not") + " be a key");
            }
            if (p.hasDefault != theirs->hasDefault || p.defaultText != theirs->defaultText) {
                faults.push_back(where + " defaults to '" +
                                 (p.hasDefault ? p.defaultText : "(none)") +
                                 "', the schema's to '" +
                                 (theirs->hasDefault ? theirs->defaultText : "(none)") + "'");
            }
            compareQualifiers(where, p.qualifiers, theirs->qualifiers, faults);
        }
    }
    EXPECT_EQ(faults, std::vector<std::string>{});
    EXPECT_GT(compared, 200u);
}

TEST_F(DmtfAgreementTest, DeclaredMethodsHaveTheSchemasSignatures) {
    std::vector<std::string> faults;
    for (const CimClass* c : ownCimClasses()) {
        const CimClass* d = dmtf->findClass(kCimv2, c->name);
        if (d == nullptr) {
            continue;
        }
        for (const CimMethod& m : c->methods) {
            const std::string where = c->name + "." + m.name + "()";
            const CimMethod* theirs = d->findMethod(m.name);
            if (theirs == nullptr) {
                faults.push_back(where + " is not in the schema");
                continue;
            }
            if (m.returnType != theirs->returnType) {
                faults.push_back(where + " returns " + typeText(m.returnType, "") +
                                 ", the schema's " + typeText(theirs->returnType, ""));
            }
            if (!sameName(m.originClass, theirs->originClass)) {
                faults.push_back(where + " is first declared in " + m.originClass);
            }
            if (m.parameters.size() != theirs->parameters.size()) {
                faults.push_back(where + " has " + std::to_string(m.parameters.size()) +
                                 " parameters, the schema's " +
                                 std::to_string(theirs->parameters.size()));
                continue;
            }
            for (std::size_t i = 0; i < m.parameters.size(); ++i) {
                const CimParameter& a = m.parameters[i];
                const CimParameter& b = theirs->parameters[i];
                const std::string at = where + " parameter " + std::to_string(i + 1);
                if (a.name != b.name) {
                    faults.push_back(at + " is " + a.name + ", the schema's " + b.name);
                }
                if (a.type != b.type || !sameName(a.refClass, b.refClass)) {
                    faults.push_back(at + " is " + typeText(a.type, a.refClass) +
                                     ", the schema's " + typeText(b.type, b.refClass));
                }
                if (a.in != b.in || a.out != b.out) {
                    faults.push_back(at + " differs in direction (in/out)");
                }
                compareQualifiers(at, a.qualifiers, b.qualifiers, faults);
            }
        }
    }
    EXPECT_EQ(faults, std::vector<std::string>{});
    const CimMethod* run =
        ours->findClass(kCimv2, "CIM_DiagnosticService")->findMethod("RunDiagnostic");
    ASSERT_NE(run, nullptr) << "the one method the core serves";
    EXPECT_NE(ours->findClass(kCimv2, "CIM_DiagnosticService")->findMethod("RunDiagnosticService"),
              nullptr)
        << "the method the profile layer serves";
}

TEST_F(DmtfAgreementTest, QualifierDeclarationsMatchTheSchemasDeclarations) {
    const char* const used[] = {"Abstract",  "Association", "EmbeddedInstance", "EmbeddedObject",
                                "Exception", "In",          "Indication",       "Key",
                                "Out",       "Override",    "Required",         "Write"};
    for (const char* name : used) {
        const CimQualifierDecl* a = ours->findQualifier(kCimv2, name);
        const CimQualifierDecl* b = dmtf->findQualifier(kCimv2, name);
        ASSERT_NE(a, nullptr) << name << " is not declared in our MOF";
        ASSERT_NE(b, nullptr) << name;
        EXPECT_EQ(a->type, b->type) << name;
        EXPECT_EQ(lowerName(a->defaultText), lowerName(b->defaultText)) << name;
        EXPECT_EQ(lowered(a->scope), lowered(b->scope)) << name;
        EXPECT_EQ(lowered(a->flavor), lowered(b->flavor)) << name;
    }
}

} // namespace
