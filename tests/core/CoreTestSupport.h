// Shared set-up of the core's test suites: one embedded broker per object-path dialect, alive for
// the whole test process (the registry keeps clones for good, as it does inside an object
// manager), over a small MOF class set; helpers to read typed values and log lines.
#ifndef DIAGCORE_TESTS_CORE_CORETESTSUPPORT_H
#define DIAGCORE_TESTS_CORE_CORETESTSUPPORT_H

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"
#include "host/text/PathDialect.h"

#include <cmpift.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace coretest {

using diaghost::Broker;
using diaghost::CallScope;
using diaghost::ClassRepository;
using diaghost::LogEntry;
using diaghost::LogSink;
using diaghost::PathDialect;
using diaghost::ResultSink;

// Classes every core test may use. Tests that count instances use a class of their own.
inline const char* coreMof() {
    return R"MOF(
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
Qualifier Association : boolean = false, Scope(association), Flavor(DisableOverride, ToSubclass);
Qualifier In : boolean = true, Scope(parameter);
Qualifier Out : boolean = false, Scope(parameter);

class Core_Element {
    [Key] string Name;
    [Key] string DeviceID;
    string Caption;
};
class Core_SpecialElement : Core_Element {
    uint32 Level;
};
class Core_Other {
    [Key] string Name;
};
class Core_Types {
    [Key] string Name;
    boolean B;
    uint8 U8;
    sint8 S8;
    uint16 U16;
    sint16 S16;
    uint32 U32;
    sint32 S32;
    uint64 U64;
    sint64 S64;
    real32 R32;
    real64 R64;
    string S;
    datetime DT;
    char16 C16;
    uint16 U16A[];
    string SA[];
    boolean BA[];
};
[Association] class Core_Link {
    [Key] Core_Element REF Left;
    [Key] Core_Element REF Right;
    string Note;
    uint32 EnumOrder;
};
class Core_Ordered {
    [Key] string Name;
    uint32 EnumOrder;
};
class Core_Unordered {
    [Key] string Name;
    uint32 EnumOrder;
};
class Core_Registry { [Key] string Name; string Value; };
class Core_Keying { [Key] string Name; };
class Core_Miss { [Key] string Name; };
class Core_Threads { [Key] string Name; uint32 Counter; };
class Core_Builder { [Key] string Name; string Note; uint32 Count; };

class CIM_ManagedElement {
    string Caption;
    string Description;
    string ElementName;
};
class Core_DiagService : CIM_ManagedElement {
    [Key] string SystemCreationClassName;
    [Key] string SystemName;
    [Key] string CreationClassName;
    [Key] string Name;
    datetime InstallDate;
    uint16 OperationalStatus[];
    string StatusDescriptions[];
    string Status;
    uint16 EnabledState;
    string OtherEnabledState;
    uint16 RequestedState;
    uint16 EnabledDefault;
    datetime TimeOfLastStateChange;
    string PrimaryOwnerName;
    string PrimaryOwnerContact;
    string StartMode;
    boolean Started;
    uint32 RunDiagnostic(
        [In] CIM_ManagedElement REF ManagedElement,
        [In] string DiagSetting,
        [In] string JobSettings,
        [Out] CIM_ManagedElement REF Job);
};
class Core_DiagRecord : CIM_ManagedElement {
    [Key] string InstanceID;
    string RecordFormat;
    string RecordData;
    string Locale;
    uint16 RecordType;
    string ServiceName;
    string ManagedElementName;
    datetime CreationTimeStamp;
    string ErrorCode[];
    uint32 ErrorCount[];
    uint32 LoopsFailed;
    uint32 LoopsPassed;
};
class Core_SettingData : CIM_ManagedElement {
    [Key] string InstanceID;
    string SettingID;
    uint16 LogOptions[];
    string OtherLogOptionsDescriptions[];
    boolean HaltOnError;
    boolean QuickMode;
    uint8 PercentOfTestCoverage;
    uint32 LoopControlParameter[];
    uint16 LoopControl[];
    string OtherLoopControlDescriptions[];
    uint32 ResultPersistence;
    uint16 VerbosityLevel;
};
class Core_Capabilities : CIM_ManagedElement {
    [Key] string InstanceID;
    uint16 SupportedServiceModes[];
    string OtherSupportedServiceModesDescriptions[];
    uint16 SupportedLoopControl[];
    string OtherSupportedLoopControlDescriptions[];
    uint16 SupportedLogOptions[];
    string OtherSupportedLogOptionsDescriptions[];
    uint16 SupportedExecutionControls[];
    string OtherSupportedExecutionControlsDescriptions[];
};
[Association] class Core_AvailableDiagService {
    [Key] Core_DiagService REF ServiceProvided;
    [Key] CIM_ManagedElement REF UserOfService;
    uint16 EstimatedDurationOfService;
    uint16 EstimatedDurationQualifier;
    uint32 EnumOrder;
};
class ZORQ_ComputerSystem {
    [Key] string CreationClassName;
    [Key] string Name;
};
)MOF";
}

// One object manager per dialect for the whole process.
struct DialectBroker {
    ClassRepository classes;
    LogSink log{0};
    std::unique_ptr<Broker> broker;
};

inline DialectBroker& dialectBroker(PathDialect dialect) {
    static DialectBroker* brokers[2] = {nullptr, nullptr};
    static std::once_flag once[2];
    const int index = dialect == PathDialect::Sfcb ? 1 : 0;
    std::call_once(once[index], [&] {
        auto* b = new DialectBroker;
        b->classes.loadText(coreMof());
        b->broker = std::make_unique<Broker>(b->classes, b->log, dialect);
        b->broker->setStrict(true);
        brokers[index] = b;
    });
    return *brokers[index];
}

inline std::string dialectSuffix(const testing::TestParamInfo<PathDialect>& info) {
    return diaghost::dialectName(info.param);
}

// A unique key text so that tests sharing the process-wide registry never collide.
inline std::string unique(const std::string& stem) {
    static std::atomic<int> counter{0};
    return stem + std::to_string(++counter);
}

class CoreTest : public testing::TestWithParam<PathDialect> {
protected:
    void SetUp() override {
        env_ = &dialectBroker(GetParam());
        scope_ = std::make_unique<CallScope>(*env_->broker);
        env_->log.clear();
        ctx_ = env_->broker->newContext("root/cimv2");
    }
    void TearDown() override { scope_.reset(); }

    const CMPIBroker* broker() { return env_->broker->cmpi(); }
    Broker& host() { return *env_->broker; }
    LogSink& log() { return env_->log; }
    const CMPIContext* ctx() { return ctx_; }
    bool sfcb() const { return GetParam() == PathDialect::Sfcb; }

    // A path made by the broker, with string keys added in the given order.
    CMPIObjectPath* path(const std::string& cls,
                         const std::vector<std::pair<std::string, std::string>>& keys = {},
                         const char* ns = "root/cimv2") {
        CMPIObjectPath* op = broker()->eft->newObjectPath(broker(), ns, cls.c_str(), nullptr);
        for (const auto& [name, value] : keys)
            op->ft->addKey(op, name.c_str(), reinterpret_cast<const CMPIValue*>(value.c_str()),
                           CMPI_chars);
        return op;
    }

    // The texts logged under "diagcore" with the given severity, in order.
    std::vector<std::string> lines(int severity) {
        std::vector<std::string> out;
        for (const LogEntry& e : log().entries())
            if (!e.trace && e.id == "diagcore" && e.severity == severity)
                out.push_back(e.text);
        return out;
    }
    std::vector<std::string> allLines() { return log().texts("diagcore"); }

    static std::string text(const CMPIData& d) {
        if (d.type != CMPI_string || (d.state & CMPI_nullValue) || d.value.string == nullptr)
            return "<not a string>";
        const char* chars = d.value.string->ft->getCharPtr(d.value.string, nullptr);
        return chars ? chars : "<null>";
    }
    static CMPIData prop(const CMPIInstance* inst, const char* name) {
        return inst->ft->getProperty(inst, name, nullptr);
    }
    static std::string rendered(const CMPIObjectPath* op) {
        CMPIString* s = op->ft->toString(op, nullptr);
        return s ? s->ft->getCharPtr(s, nullptr) : "";
    }

    DialectBroker* env_ = nullptr;
    std::unique_ptr<CallScope> scope_;
    const CMPIContext* ctx_ = nullptr;
};

} // namespace coretest

#endif
