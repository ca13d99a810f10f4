// A provider library on the profile layer whose test the suite steers through the element it is
// run on: "pass" and "fail" finish at once, "slow" runs for seconds reporting progress and
// stopping when asked, "throws" throws. Three services: a plain one, an exclusive and destructive
// one, and one whose log holds two runs and never overwrites.
#include "diag/AvailableDiagnosticService.h"
#include "diag/DiagServiceCapabilitiesData.h"
#include "instance/InstanceRegistry.h"
#include "profile/ProfileDiagService.h"
#include "profile/ProfileProvider.h"
#include "profile/RunControl.h"

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace NQORVA20;
using NQORVA20::profile::ProfileDiagService;
using NQORVA20::profile::RunControl;

class Element : public InstanceImpl {
public:
    explicit Element(const std::string& name) : InstanceImpl("PT_Element") {
        (*this)["Name"] = name;
    }
    void init() override {}
};

class Log : public InstanceImpl {
public:
    explicit Log(const std::string& service) : InstanceImpl("PT_DiagLog") {
        (*this)["InstanceID"] = "PT:" + service + ":Log";
        (*this)["Name"] = service + " log";
    }
    void init() override {}
};

class TestService : public ProfileDiagService {
public:
    TestService(const std::string& name, Traits traits)
        : ProfileDiagService("PT_DiagService", "PT_DiagRecord", "", "20260101000000.000000+000",
                             "pt-system", traits) {
        get("Name") = name;
        get("ElementName") = name;
    }

    unsigned int runTest(InstanceImpl* element, DiagnosticRecord* record) override {
        const std::string name = (*element)["Name"];
        (*element)["DeviceID"] = name;
        if (name == "fail") {
            record->fail(1, "PT_BROKEN", 1, "the element is broken");
            return 1;
        }
        if (name == "throws")
            throw std::runtime_error("the element vanished");
        if (name == "slow") {
            const RunControl& control = RunControl::current();
            // Quick mode: a tenth of the steps.
            const unsigned steps = control.quickMode() ? 50 : 500;
            for (unsigned step = 0; step < steps; ++step) {
                if (control.stopRequested()) {
                    record->fail(1, "PT_STOPPED", 1, "stopped on request");
                    return 3;
                }
                control.progress(step * 100 / steps);
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        record->pass(1);
        record->get("RecordData") = "checked " + name;
        return 0;
    }
};

void publish(const CMPIBroker* broker, const CMPIContext* ctx, InstanceImpl* impl) {
    InstanceRegistry::Singleton()->RegisterInstance(broker, ctx, impl);
}

void startup(const CMPIBroker* broker, const CMPIContext* ctx) {
    std::vector<Element*> elements;
    for (const char* name : {"pass", "fail", "slow", "throws"}) {
        elements.push_back(new Element(name));
        publish(broker, ctx, elements.back());
    }
    ProfileDiagService::Traits plain;
    ProfileDiagService::Traits exclusive;
    exclusive.exclusive = true;
    exclusive.destructive = true;
    ProfileDiagService::Traits small;
    small.logSize = 2;
    small.logWraps = false;
    unsigned order = 1;
    for (auto [name, traits] : {std::pair{"Plain", plain}, std::pair{"Exclusive", exclusive},
                                std::pair{"SmallLog", small}}) {
        auto* service = new TestService(name, traits);
        publish(broker, ctx, service);
        auto* log = new Log(name);
        publish(broker, ctx, log);
        service->setLogInstanceId((*log)["InstanceID"]);
        auto* capabilities = new DiagServiceCapabilitiesData("PT_Capabilities");
        (*capabilities)["InstanceID"] = std::string("PT:") + name + ":Capabilities";
        service->describeCapabilities(*capabilities);
        publish(broker, ctx, capabilities);
        for (Element* element : elements) {
            auto* available = new AvailableDiagnosticService("PT_Available");
            (*available)["ServiceProvided"] = service->getObjectPath();
            (*available)["UserOfService"] = element->getObjectPath();
            (*available)["EnumOrder"] = std::to_string(order++);
            publish(broker, ctx, available);
        }
    }
}

NQORVA20::profile::ProfileClasses classes() {
    NQORVA20::profile::ProfileClasses c;
    c.job = "PT_Job";
    c.completionRecord = "PT_CompletionRecord";
    c.settingRecord = "PT_SettingRecord";
    c.owningJob = "PT_OwningJobElement";
    c.affectedJob = "PT_AffectedJobElement";
    c.correspondingSetting = "PT_CorrespondingSettingDataRecord";
    c.logManagesRecord = "PT_LogManagesRecord";
    c.recordAppliesTo = "PT_RecordAppliesToElement";
    c.registeredProfile = "PT_RegisteredProfile";
    c.conformsToProfile = "PT_ElementConformsToProfile";
    c.log = "PT_DiagLog";
    c.available = "PT_Available";
    c.setting = "PT_Setting";
    return c;
}

} // namespace

DIAGCORE_PROFILE_PROVIDER(PT_ProfileProvider, startup, classes)
