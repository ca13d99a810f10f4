// The project's class MOF on its own: the ZORQ classes the providers serve load, derive from the
// intended DMTF classes, can have instances, keep their parents' keys, and the associations
// narrow their ends to the family's classes. The MOF must also pass the checks a stricter object
// manager makes: declared qualifiers, references to existing classes and only in associations.
#include "MofAgreementFiles.h"

#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

using namespace diaghost;
using namespace mofagreement;

namespace {

// Every ZORQ class and the DMTF class it derives from.
const std::map<std::string, std::string> kZorqParents = {
    {"ZORQ_ComputerSystem", "CIM_ComputerSystem"},
    {"ZORQ_LocalFileSystem", "CIM_LocalFileSystem"},
    {"ZORQ_FSDiagService", "CIM_DiagnosticService"},
    {"ZORQ_FSDiagRecord", "CIM_DiagnosticRecord"},
    {"ZORQ_FSDiagSettingData", "CIM_DiagnosticSettingData"},
    {"ZORQ_FSDiagCapabilities", "CIM_DiagnosticServiceCapabilities"},
    {"ZORQ_FSDiagLog", "CIM_DiagnosticLog"},
    {"ZORQ_FSAvailableDiagService", "CIM_AvailableDiagnosticService"},
    {"ZORQ_FSUseOfLog", "CIM_UseOfLog"},
    {"ZORQ_FSDiagJob", "CIM_ConcreteJob"},
    {"ZORQ_FSDiagCompletionRecord", "CIM_DiagnosticCompletionRecord"},
    {"ZORQ_FSDiagSettingDataRecord", "CIM_DiagnosticSettingDataRecord"},
    {"ZORQ_FSOwningJobElement", "CIM_OwningJobElement"},
    {"ZORQ_FSAffectedJobElement", "CIM_AffectedJobElement"},
    {"ZORQ_FSCorrespondingSettingDataRecord", "CIM_CorrespondingSettingDataRecord"},
    {"ZORQ_FSLogManagesRecord", "CIM_LogManagesRecord"},
    {"ZORQ_FSRecordAppliesToElement", "CIM_RecordAppliesToElement"},
    {"ZORQ_FSRegisteredProfile", "CIM_RegisteredProfile"},
    {"ZORQ_FSElementConformsToProfile", "CIM_ElementConformsToProfile"},
    {"ZORQ_NetworkPort", "CIM_NetworkPort"},
    {"ZORQ_NetDiagService", "CIM_DiagnosticService"},
    {"ZORQ_NetDiagRecord", "CIM_DiagnosticRecord"},
    {"ZORQ_NetDiagSettingData", "CIM_DiagnosticSettingData"},
    {"ZORQ_NetDiagCapabilities", "CIM_DiagnosticServiceCapabilities"},
    {"ZORQ_NetDiagLog", "CIM_DiagnosticLog"},
    {"ZORQ_NetAvailableDiagService", "CIM_AvailableDiagnosticService"},
    {"ZORQ_NetUseOfLog", "CIM_UseOfLog"},
    {"ZORQ_NetDiagJob", "CIM_ConcreteJob"},
    {"ZORQ_NetDiagCompletionRecord", "CIM_DiagnosticCompletionRecord"},
    {"ZORQ_NetDiagSettingDataRecord", "CIM_DiagnosticSettingDataRecord"},
    {"ZORQ_NetOwningJobElement", "CIM_OwningJobElement"},
    {"ZORQ_NetAffectedJobElement", "CIM_AffectedJobElement"},
    {"ZORQ_NetCorrespondingSettingDataRecord", "CIM_CorrespondingSettingDataRecord"},
    {"ZORQ_NetLogManagesRecord", "CIM_LogManagesRecord"},
    {"ZORQ_NetRecordAppliesToElement", "CIM_RecordAppliesToElement"},
    {"ZORQ_NetRegisteredProfile", "CIM_RegisteredProfile"},
    {"ZORQ_NetElementConformsToProfile", "CIM_ElementConformsToProfile"},
};

struct Family {
    const char* service;
    const char* element;
    const char* availability;
    const char* useOfLog;
    const char* record;
    const char* log;
};

const Family kFamilies[] = {
    {"ZORQ_FSDiagService", "ZORQ_LocalFileSystem", "ZORQ_FSAvailableDiagService", "ZORQ_FSUseOfLog",
     "ZORQ_FSDiagRecord", "ZORQ_FSDiagLog"},
    {"ZORQ_NetDiagService", "ZORQ_NetworkPort", "ZORQ_NetAvailableDiagService", "ZORQ_NetUseOfLog",
     "ZORQ_NetDiagRecord", "ZORQ_NetDiagLog"},
};

std::vector<std::string> keyNames(const CimClass& c) {
    std::vector<std::string> out;
    for (const CimProperty& p : c.properties) {
        if (p.key) {
            out.push_back(p.name);
        }
    }
    return out;
}

std::string lowered(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// True when the qualifier list right before "class <name>" in the MOF text names Association.
bool statesAssociation(const std::string& mof, const std::string& name) {
    const std::string text = lowered(mof);
    const std::size_t at = text.find("class " + lowered(name));
    if (at == std::string::npos) {
        return false;
    }
    const std::size_t close = text.rfind(']', at);
    const std::size_t open = close == std::string::npos ? close : text.rfind('[', close);
    if (open == std::string::npos || text.find_first_not_of(" \t\r\n", close + 1) != at) {
        return false;
    }
    const std::string list = text.substr(open + 1, close - open - 1);
    const std::size_t word = list.find("association");
    return word != std::string::npos &&
           (word == 0 || !std::isalnum(static_cast<unsigned char>(list[word - 1]))) &&
           (word + 11 == list.size() || !std::isalnum(static_cast<unsigned char>(list[word + 11])));
}

class ZorqClassTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        try {
            repo.loadFile(kOwnMof, kCimv2);
        } catch (const MofError& e) {
            loadError = e.what();
        }
    }
    void SetUp() override { ASSERT_EQ(loadError, ""); }

    static const CimClass& cls(const std::string& name) {
        const CimClass* c = repo.findClass(kCimv2, name);
        if (c == nullptr) {
            throw std::runtime_error(name + " is not loaded");
        }
        return *c;
    }

    static ClassRepository repo;
    static std::string loadError;
};

ClassRepository ZorqClassTest::repo;
std::string ZorqClassTest::loadError;

TEST_F(ZorqClassTest, LoadsExactlyTheZorqClassesAndTheDmtfClassesTheyBuildOn) {
    std::set<std::string> zorq;
    for (const std::string& name : repo.classNames(kCimv2)) {
        if (name.rfind("ZORQ_", 0) == 0) {
            zorq.insert(name);
        } else {
            EXPECT_EQ(name.rfind("CIM_", 0), 0u) << name << " has neither a DMTF nor a ZORQ name";
        }
    }
    std::set<std::string> expected;
    for (const auto& [name, parent] : kZorqParents) {
        expected.insert(name);
    }
    EXPECT_EQ(zorq, expected);
    const char* const bases[] = {"CIM_ManagedElement",
                                 "CIM_ManagedSystemElement",
                                 "CIM_LogicalElement",
                                 "CIM_EnabledLogicalElement",
                                 "CIM_Service",
                                 "CIM_DiagnosticService",
                                 "CIM_System",
                                 "CIM_ComputerSystem",
                                 "CIM_LogicalDevice",
                                 "CIM_LogicalPort",
                                 "CIM_NetworkPort",
                                 "CIM_FileSystem",
                                 "CIM_LocalFileSystem",
                                 "CIM_SettingData",
                                 "CIM_DiagnosticSettingData",
                                 "CIM_Capabilities",
                                 "CIM_DiagnosticServiceCapabilities",
                                 "CIM_RecordForLog",
                                 "CIM_DiagnosticRecord",
                                 "CIM_Log",
                                 "CIM_Dependency",
                                 "CIM_ServiceAvailableToElement",
                                 "CIM_AvailableDiagnosticService",
                                 "CIM_UseOfLog",
                                 "CIM_Job",
                                 "CIM_ConcreteJob",
                                 "CIM_Error",
                                 "CIM_DiagnosticServiceRecord",
                                 "CIM_DiagnosticCompletionRecord",
                                 "CIM_DiagnosticSettingDataRecord",
                                 "CIM_OwningJobElement",
                                 "CIM_AffectedJobElement",
                                 "CIM_CorrespondingSettingDataRecord",
                                 "CIM_LogManagesRecord",
                                 "CIM_RecordAppliesToElement",
                                 "CIM_RegisteredSpecification",
                                 "CIM_RegisteredProfile",
                                 "CIM_ElementConformsToProfile"};
    for (const char* name : bases) {
        EXPECT_NE(repo.findClass(kCimv2, name), nullptr) << name;
    }
}

TEST_F(ZorqClassTest, EveryZorqClassDerivesFromItsDmtfParentAndCanHaveInstances) {
    for (const auto& [name, parent] : kZorqParents) {
        const CimClass& c = cls(name);
        EXPECT_EQ(c.superclass, parent) << name;
        EXPECT_FALSE(c.abstract) << name << " is served by a provider, so it cannot be abstract";
        EXPECT_EQ(c.association, cls(parent).association) << name;
        EXPECT_EQ(keyNames(c), keyNames(cls(parent))) << name << " must keep its parent's keys";
    }
}

TEST_F(ZorqClassTest, AvailabilityAssociationsTieTheFamilyServiceToItsElementsInEnumOrder) {
    for (const Family& f : kFamilies) {
        const CimClass& c = cls(f.availability);
        const CimProperty* order = c.findProperty("EnumOrder");
        ASSERT_NE(order, nullptr) << f.availability;
        EXPECT_EQ(order->type, cimtype::uint32) << f.availability;
        EXPECT_FALSE(order->key) << "EnumOrder orders the instances; it does not name one";
        const CimProperty* service = c.findProperty("ServiceProvided");
        const CimProperty* user = c.findProperty("UserOfService");
        ASSERT_TRUE(service != nullptr && user != nullptr) << f.availability;
        EXPECT_EQ(service->refClass, f.service);
        EXPECT_EQ(user->refClass, f.element);
        EXPECT_EQ(keyNames(c), (std::vector<std::string>{"ServiceProvided", "UserOfService"}));
    }
}

TEST_F(ZorqClassTest, UseOfLogAssociationsTieTheFamilyLogToTheFamilyService) {
    for (const Family& f : kFamilies) {
        const CimClass& c = cls(f.useOfLog);
        const CimProperty* dependent = c.findProperty("Dependent");
        const CimProperty* antecedent = c.findProperty("Antecedent");
        ASSERT_TRUE(dependent != nullptr && antecedent != nullptr) << f.useOfLog;
        EXPECT_EQ(dependent->refClass, f.service);
        EXPECT_EQ(antecedent->refClass, f.log);
        EXPECT_EQ(keyNames(c), (std::vector<std::string>{"Antecedent", "Dependent"}));
    }
}

TEST_F(ZorqClassTest, ServicesKeepRunDiagnosticAndRecordsDeclareTheCountsTheCoreFills) {
    for (const Family& f : kFamilies) {
        const CimMethod* run = cls(f.service).findMethod("RunDiagnostic");
        ASSERT_NE(run, nullptr) << f.service;
        EXPECT_EQ(run->returnType, cimtype::uint32);
        ASSERT_EQ(run->parameters.size(), 4u);
        EXPECT_EQ(run->parameters[0].name, "ManagedElement");
        EXPECT_TRUE(repo.isA(kCimv2, f.element, run->parameters[0].refClass))
            << f.element << " must be acceptable as the ManagedElement argument";
        EXPECT_TRUE(run->parameters[3].out && !run->parameters[3].in);

        // The core writes these on every record; the instance builder drops what the class
        // does not declare.
        const CimClass& record = cls(f.record);
        const std::pair<const char*, CimTypeCode> counts[] = {
            {"LoopsFailed", cimtype::uint32},
            {"LoopsPassed", cimtype::uint32},
            {"ErrorCode", cimtype::string | cimtype::arrayFlag},
            {"ErrorCount", cimtype::uint32 | cimtype::arrayFlag}};
        for (const auto& [name, type] : counts) {
            const CimProperty* p = record.findProperty(name);
            ASSERT_NE(p, nullptr) << f.record << "." << name;
            EXPECT_EQ(typeText(*p), typeText(type, "")) << f.record << "." << name;
        }
        EXPECT_EQ(keyNames(record), std::vector<std::string>{"InstanceID"});
    }
}

// The classes the Diagnostics-profile layer serves for a family, beside the family's own.
struct ProfileFamily {
    const char* prefix; // "ZORQ_FS", "ZORQ_Net"
    const char* service;
    const char* element;
    const char* log;
};

const ProfileFamily kProfileFamilies[] = {
    {"ZORQ_FS", "ZORQ_FSDiagService", "ZORQ_LocalFileSystem", "ZORQ_FSDiagLog"},
    {"ZORQ_Net", "ZORQ_NetDiagService", "ZORQ_NetworkPort", "ZORQ_NetDiagLog"},
};

TEST_F(ZorqClassTest, ProfileAssociationsTieTheFamilysJobsRecordsAndProfileToItsClasses) {
    for (const ProfileFamily& f : kProfileFamilies) {
        const std::string p = f.prefix;
        // Association, then each end with the class it points to, in key order.
        const std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>>
            ends = {
                {p + "OwningJobElement",
                 {{"OwningElement", f.service}, {"OwnedElement", p + "DiagJob"}}},
                {p + "AffectedJobElement",
                 {{"AffectedElement", f.element}, {"AffectingElement", p + "DiagJob"}}},
                {p + "CorrespondingSettingDataRecord",
                 {{"DataRecord", p + "DiagCompletionRecord"},
                  {"SettingsRecord", p + "DiagSettingDataRecord"}}},
                {p + "LogManagesRecord", {{"Log", f.log}, {"Record", "CIM_DiagnosticRecord"}}},
                {p + "RecordAppliesToElement",
                 {{"Antecedent", "CIM_DiagnosticRecord"}, {"Dependent", f.element}}},
                {p + "ElementConformsToProfile",
                 {{"ConformantStandard", p + "RegisteredProfile"}, {"ManagedElement", f.service}}},
            };
        for (const auto& [name, refs] : ends) {
            const CimClass& c = cls(name);
            std::vector<std::string> keys;
            for (const auto& [end, target] : refs) {
                keys.push_back(end);
                const CimProperty* r = c.findProperty(end);
                ASSERT_NE(r, nullptr) << name << "." << end;
                EXPECT_EQ(r->type, cimtype::ref) << name << "." << end;
                EXPECT_EQ(r->refClass, target) << name << "." << end;
            }
            EXPECT_EQ(keyNames(c), keys) << name;
        }
    }
}

TEST_F(ZorqClassTest, ServicesJobsAndLogsDeclareTheMethodsTheProfileLayerServes) {
    for (const ProfileFamily& f : kProfileFamilies) {
        const std::string p = f.prefix;
        const CimMethod* run = cls(f.service).findMethod("RunDiagnosticService");
        ASSERT_NE(run, nullptr) << f.service;
        EXPECT_EQ(run->returnType, cimtype::uint32);
        ASSERT_EQ(run->parameters.size(), 4u);
        EXPECT_TRUE(repo.isA(kCimv2, f.element, run->parameters[0].refClass));
        EXPECT_EQ(run->parameters[1].qualifiers.at("embeddedinstance"),
                  "CIM_DiagnosticSettingData");
        EXPECT_EQ(run->parameters[2].qualifiers.at("embeddedinstance"), "CIM_JobSettingData");
        EXPECT_TRUE(run->parameters[3].out && !run->parameters[3].in);
        EXPECT_TRUE(repo.isA(kCimv2, p + "DiagJob", run->parameters[3].refClass));

        const CimClass& job = cls(p + "DiagJob");
        EXPECT_EQ(keyNames(job), std::vector<std::string>{"InstanceID"});
        const CimMethod* change = job.findMethod("RequestStateChange");
        ASSERT_NE(change, nullptr);
        ASSERT_EQ(change->parameters.size(), 2u);
        EXPECT_EQ(change->parameters[0].type, cimtype::uint16);
        EXPECT_EQ(change->parameters[1].type, cimtype::datetime);
        const CimMethod* error = job.findMethod("GetError");
        ASSERT_NE(error, nullptr);
        ASSERT_EQ(error->parameters.size(), 1u);
        EXPECT_TRUE(error->parameters[0].out);
        EXPECT_EQ(error->parameters[0].qualifiers.at("embeddedinstance"), "CIM_Error");

        EXPECT_NE(cls(f.log).findMethod("ClearLog"), nullptr) << f.log;
        for (const char* record : {"DiagCompletionRecord", "DiagSettingDataRecord"}) {
            EXPECT_EQ(keyNames(cls(p + record)), std::vector<std::string>{"InstanceID"});
        }
        EXPECT_EQ(keyNames(cls(p + "RegisteredProfile")), std::vector<std::string>{"InstanceID"});
    }
}

TEST_F(ZorqClassTest, OverriddenReferencesNarrowToSubclassesOfTheInheritedClass) {
    std::size_t narrowed = 0;
    for (const std::string& name : repo.classNames(kCimv2)) {
        const CimClass& c = cls(name);
        if (c.superclass.empty()) {
            continue;
        }
        const CimClass& parent = cls(c.superclass);
        for (const CimProperty& p : c.properties) {
            const CimProperty* inherited = parent.findProperty(p.name);
            if (inherited == nullptr || p.type != cimtype::ref) {
                continue;
            }
            EXPECT_EQ(inherited->type, cimtype::ref) << name << "." << p.name;
            if (!sameName(p.refClass, inherited->refClass)) {
                ++narrowed;
                EXPECT_TRUE(repo.isA(kCimv2, p.refClass, inherited->refClass))
                    << name << "." << p.name << " points to " << p.refClass << ", which is no "
                    << inherited->refClass;
            }
        }
    }
    EXPECT_GE(narrowed, 25u);
}

// The reader lets a subclass inherit the Association qualifier, but MOF requires every
// association class to state it. Each class lives in a file named after it.
TEST_F(ZorqClassTest, EveryAssociationClassStatesTheAssociationQualifier) {
    std::size_t checked = 0;
    for (const std::string& name : repo.classNames(kCimv2)) {
        if (!cls(name).association) {
            continue;
        }
        const std::string folder = name.rfind("ZORQ_", 0) == 0 ? "zorq" : "dmtf";
        const std::string path = DIAGCORE_SOURCE_DIR "/mof/" + folder + "/" + name + ".mof";
        std::ifstream in(path);
        ASSERT_TRUE(in) << path;
        std::ostringstream text;
        text << in.rdbuf();
        EXPECT_TRUE(statesAssociation(text.str(), name)) << name << " in " << path;
        ++checked;
    }
    EXPECT_EQ(checked, 26u);
}

// Checks our host does not make but other object managers do: every qualifier in use is
// declared, every reference names a class that exists, and only associations have references.
TEST_F(ZorqClassTest, MofPassesTheChecksOfAStricterObjectManager) {
    std::vector<std::string> faults;
    auto declared = [&](const CimQualifiers& q, const std::string& where) {
        for (const auto& [name, value] : q) {
            if (repo.findQualifier(kCimv2, name) == nullptr) {
                faults.push_back(where + " uses the undeclared qualifier " + name);
            }
        }
    };
    auto known = [&](const std::string& refClass, const std::string& where) {
        if (repo.findClass(kCimv2, refClass) == nullptr) {
            faults.push_back(where + " refers to the unknown class " + refClass);
        }
    };
    for (const std::string& name : repo.classNames(kCimv2)) {
        const CimClass& c = cls(name);
        declared(c.qualifiers, name);
        for (const CimProperty& p : c.properties) {
            const std::string where = name + "." + p.name;
            declared(p.qualifiers, where);
            if (p.type == cimtype::ref) {
                known(p.refClass, where);
                if (!c.association) {
                    faults.push_back(where + " is a reference outside an association");
                }
            }
        }
        for (const CimMethod& m : c.methods) {
            declared(m.qualifiers, name + "." + m.name + "()");
            for (const CimParameter& a : m.parameters) {
                const std::string where = name + "." + m.name + "(" + a.name + ")";
                declared(a.qualifiers, where);
                if (cimtype::elementType(a.type) == cimtype::ref) {
                    known(a.refClass, where);
                }
            }
        }
    }
    EXPECT_EQ(faults, std::vector<std::string>{});
}

} // namespace
