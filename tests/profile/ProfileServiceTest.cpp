// RunDiagnosticService through the embedded object manager, from the suite's provider library on
// the profile layer: jobs from start to their end, their records and associations, stop requests,
// refusals, the bounded log, concurrent runs, and the core's RunDiagnostic left as it is.
#include "host/Host.h"
#include "host/OperationResult.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"

#include <cmpift.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using diaghost::Host;
using diaghost::OperationResult;

// Shared by the suite: loading the library once keeps its jobs and logs across tests, as a
// long-running object manager would.
Host& sharedHost() {
    static Host* host = [] {
        Host::Options options;
        options.providerPath.push_back(PROFILE_TEST_PROVIDER_DIR);
        options.strict = true;
        options.upcallsOnOtherThread = true;
        auto* made = new Host(options);
        made->loadMof(std::string(PROFILE_TEST_DATA_DIR) + "/ProfileTest.mof");
        made->loadRegistrations(std::string(PROFILE_TEST_DATA_DIR) + "/ProfileTest.reg");
        return made;
    }();
    return *host;
}

class ProfileServiceTest : public ::testing::Test {
protected:
    // The library's cleanup stops what still runs and waits for its workers.
    static void TearDownTestSuite() { sharedHost().shutdown(); }

    Host& host = sharedHost();
    diaghost::CallScope scope{host.broker()};

    std::string service(const std::string& name) {
        auto services = host.enumerateInstanceNames("root/cimv2", "PT_DiagService");
        for (const CMPIObjectPath* path : services.paths())
            if (host.pathText(path).find("Name=\"" + name + "\"") != std::string::npos)
                return host.pathText(path);
        ADD_FAILURE() << "no service " << name;
        return {};
    }

    static std::string element(const std::string& name) {
        return "PT_Element.Name=\"" + name + "\"";
    }

    struct Started {
        std::uint32_t value = 0;
        std::string job; // path text of the job
    };

    Started run(const std::string& serviceName, const std::string& elementName,
                const std::string* settings = nullptr, const std::string* jobSettings = nullptr) {
        Host::Arguments args;
        CMPIData ref{};
        ref.type = CMPI_ref;
        ref.value.ref = host.parsePath(element(elementName));
        args.emplace_back("ManagedElement", ref);
        auto text = [&](const std::string* value, const char* name) {
            if (!value)
                return;
            CMPIData d{};
            d.type = CMPI_string;
            const CMPIBroker* broker = host.broker().cmpi();
            d.value.string = broker->eft->newString(broker, value->c_str(), nullptr);
            args.emplace_back(name, d);
        };
        text(settings, "DiagnosticSettings");
        text(jobSettings, "JobSettings");
        OperationResult result =
            host.invokeMethod(service(serviceName), "RunDiagnosticService", args);
        Started started;
        EXPECT_TRUE(result.ok()) << result.status.message;
        started.value = result.returnValue().value.uint32;
        const CMPIData job = result.outArg("Job");
        if (job.type == CMPI_ref && !(job.state & CMPI_nullValue))
            started.job = host.pathText(job.value.ref);
        return started;
    }

    // RunDiagnosticService took the run: done within the call (0) or going on as a job (4096).
    static bool taken(std::uint32_t value) { return value == 0 || value == 4096; }

    std::string logProperty(const std::string& service, const std::string& name) {
        OperationResult got = host.getInstance("PT_DiagLog.InstanceID=\"PT:" + service + ":Log\"");
        if (!got.ok() || !got.instance())
            return "<gone>";
        return host.propertyText(got.instance(), name).value_or("<null>");
    }

    std::string jobProperty(const std::string& job, const std::string& name) {
        OperationResult got = host.getInstance(job);
        if (!got.ok() || !got.instance())
            return "<gone>";
        return host.propertyText(got.instance(), name).value_or("<null>");
    }

    // Waits until the job has ended; its JobState.
    std::string waitForEnd(const std::string& job) {
        for (int i = 0; i < 1000; ++i) {
            const std::string state = jobProperty(job, "JobState");
            if (state != "2" && state != "4" && state != "6")
                return state;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return "<still running>";
    }
};

TEST_F(ProfileServiceTest, ARunBecomesAJobThatCompletesWithItsRecordsAndAssociations) {
    Started started = run("Plain", "pass");
    ASSERT_TRUE(taken(started.value)) << started.value;
    ASSERT_FALSE(started.job.empty());
    EXPECT_EQ("7", waitForEnd(started.job)); // Completed
    EXPECT_EQ("100", jobProperty(started.job, "PercentComplete"));

    OperationResult owners = host.associatorNames(started.job, "PT_OwningJobElement");
    ASSERT_TRUE(owners.ok()) << owners.status.message;
    ASSERT_EQ(1u, owners.paths().size());
    EXPECT_NE(std::string::npos, host.pathText(owners.paths()[0]).find("Plain"));
    OperationResult affected = host.associators(started.job, "PT_AffectedJobElement");
    ASSERT_EQ(1u, affected.instances().size());
    EXPECT_EQ("pass", host.propertyText(affected.instances()[0], "Name").value_or(""));

    // The completion record of the run, tied to its settings and its element.
    OperationResult records = host.enumerateInstances("root/cimv2", "PT_CompletionRecord");
    const CMPIInstance* record = nullptr;
    for (const CMPIInstance* r : records.instances())
        if (host.propertyText(r, "InstanceID")
                .value_or("")
                .rfind(jobProperty(started.job, "InstanceID"), 0) == 0)
            record = r;
    ASSERT_NE(nullptr, record);
    EXPECT_EQ("2", host.propertyText(record, "CompletionState").value_or("")); // OK
    EXPECT_EQ("1", host.propertyText(record, "LoopsPassed").value_or(""));
    EXPECT_EQ("Plain", host.propertyText(record, "ServiceName").value_or(""));
    const std::string recordPath = host.pathText(record->ft->getObjectPath(record, nullptr));
    OperationResult settings = host.associators(recordPath, "PT_CorrespondingSettingDataRecord");
    ASSERT_EQ(1u, settings.instances().size());
    EXPECT_NE(std::string::npos, host.propertyText(settings.instances()[0], "Settings")
                                     .value_or("")
                                     .find("<INSTANCE CLASSNAME=\"PT_Setting\">"));
    OperationResult logs = host.associatorNames(recordPath, "PT_LogManagesRecord");
    ASSERT_EQ(1u, logs.paths().size());
    EXPECT_NE(std::string::npos, host.pathText(logs.paths()[0]).find("PT:Plain:Log"));
    OperationResult applies = host.associatorNames(recordPath, "PT_RecordAppliesToElement");
    ASSERT_EQ(1u, applies.paths().size());

    // The profile and the services that conform to it.
    OperationResult profiles = host.enumerateInstances("root/cimv2", "PT_RegisteredProfile");
    ASSERT_EQ(1u, profiles.instances().size());
    const CMPIInstance* profile = profiles.instances()[0];
    EXPECT_EQ("2", host.propertyText(profile, "RegisteredOrganization").value_or("")); // DMTF
    EXPECT_EQ("Diagnostics", host.propertyText(profile, "RegisteredName").value_or(""));
    EXPECT_EQ("2.0.0", host.propertyText(profile, "RegisteredVersion").value_or(""));
    OperationResult conforming =
        host.enumerateInstances("root/cimv2", "PT_ElementConformsToProfile");
    EXPECT_EQ(3u, conforming.instances().size());
}

TEST_F(ProfileServiceTest, FailuresAndExceptionsEndTheirJobsAsSuch) {
    Started failed = run("Plain", "fail");
    ASSERT_TRUE(taken(failed.value)) << failed.value;
    EXPECT_EQ("7", waitForEnd(failed.job)); // the test ran: Completed, its record Failed
    // Looping until the errors exceed 2: three failed passes, their one code counted once.
    const std::string errors =
        "<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY.ARRAY NAME=\"LoopControl\" TYPE=\"uint16\">"
        "<VALUE.ARRAY><VALUE>5</VALUE></VALUE.ARRAY></PROPERTY.ARRAY><PROPERTY.ARRAY "
        "NAME=\"LoopControlParameter\" TYPE=\"string\"><VALUE.ARRAY><VALUE>2</VALUE></VALUE.ARRAY>"
        "</PROPERTY.ARRAY></INSTANCE>";
    Started looped = run("Plain", "fail", &errors);
    EXPECT_EQ("7", waitForEnd(looped.job));
    const std::string recordPath = "PT_CompletionRecord.InstanceID=\"" +
                                   jobProperty(looped.job, "InstanceID") + ":Completion\"";
    OperationResult record = host.getInstance(recordPath);
    ASSERT_TRUE(record.ok() && record.instance()) << recordPath;
    EXPECT_EQ("3", host.propertyText(record.instance(), "LoopsFailed").value_or(""));
    EXPECT_EQ("{PT_BROKEN}", host.propertyText(record.instance(), "ErrorCode").value_or(""));
    EXPECT_EQ("{3}", host.propertyText(record.instance(), "ErrorCount").value_or(""));

    Started thrown = run("Plain", "throws");
    EXPECT_EQ("10", waitForEnd(thrown.job)); // Exception
    OperationResult error = host.invokeMethod(thrown.job, "GetError");
    ASSERT_TRUE(error.ok()) << error.status.message;
    const CMPIData text = error.outArg("Error");
    ASSERT_EQ(CMPI_string, text.type);
    const std::string embedded = text.value.string->ft->getCharPtr(text.value.string, nullptr);
    EXPECT_NE(std::string::npos, embedded.find("the element vanished")) << embedded;
}

TEST_F(ProfileServiceTest, AStopRequestEndsALoopingRunAtItsNextCheck) {
    const std::string settings =
        "<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY.ARRAY NAME=\"LoopControl\" TYPE=\"uint16\">"
        "<VALUE.ARRAY><VALUE>2</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
    for (std::uint16_t request : {std::uint16_t{4}, std::uint16_t{5}}) {
        Started started = run("Plain", "slow", &settings);
        ASSERT_EQ(4096u, started.value);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        CMPIData state{};
        state.type = CMPI_uint16;
        state.value.uint16 = request;
        OperationResult asked =
            host.invokeMethod(started.job, "RequestStateChange", {{"RequestedState", state}});
        ASSERT_TRUE(asked.ok()) << asked.status.message;
        EXPECT_EQ(4096u, asked.returnValue().value.uint32);
        EXPECT_EQ(request == 4 ? "8" : "9", waitForEnd(started.job)); // Terminated / Killed
        // An ended job takes no more changes.
        asked = host.invokeMethod(started.job, "RequestStateChange", {{"RequestedState", state}});
        EXPECT_EQ(4097u, asked.returnValue().value.uint32);
    }
}

TEST_F(ProfileServiceTest, RunsThatCannotBeServedAreRefusedWithoutAJob) {
    const std::size_t jobsBefore =
        host.enumerateInstanceNames("root/cimv2", "PT_Job").paths().size();
    // Not an element the service is available to.
    Host::Arguments args;
    CMPIData ref{};
    ref.type = CMPI_ref;
    ref.value.ref = host.parsePath("PT_Element.Name=\"elsewhere\"");
    args.emplace_back("ManagedElement", ref);
    EXPECT_EQ(5u, host.invokeMethod(service("Plain"), "RunDiagnosticService", args)
                      .returnValue()
                      .value.uint32);
    // Settings that do not read, or of another class.
    for (const std::string& bad :
         {std::string("<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY NAME=\"HaltOnError\" "
                      "TYPE=\"boolean\"><VALUE>perhaps</VALUE></PROPERTY></INSTANCE>"),
          std::string("<INSTANCE CLASSNAME=\"PT_Job\"></INSTANCE>"), std::string("<INSTANCE"),
          std::string("<!DOCTYPE x [<!ENTITY e SYSTEM \"/etc/passwd\">]><INSTANCE "
                      "CLASSNAME=\"PT_Setting\"><PROPERTY NAME=\"QuickMode\"><VALUE>&e;</VALUE>"
                      "</PROPERTY></INSTANCE>")})
        EXPECT_EQ(5u, run("Plain", "pass", &bad).value) << bad;
    // A destructive test asked to be non-destructive.
    const std::string gentle =
        "<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY NAME=\"NonDestructive\" "
        "TYPE=\"boolean\"><VALUE>TRUE</VALUE></PROPERTY></INSTANCE>";
    EXPECT_EQ(5u, run("Exclusive", "pass", &gentle).value);
    EXPECT_EQ(jobsBefore, host.enumerateInstanceNames("root/cimv2", "PT_Job").paths().size());
    // Each refusal tells the administrator why.
    std::string logged;
    for (const std::string& line : host.log().texts("diagprofile"))
        logged += line + "\n";
    for (const char* why : {"not available to \"PT_Element.Name=", "HaltOnError", "PT_Job",
                            "NonDestructive was asked for"})
        EXPECT_NE(std::string::npos, logged.find(why)) << why << " in\n" << logged;
}

TEST_F(ProfileServiceTest, AnExclusiveTestKeepsItsElementBusy) {
    const std::string forever =
        "<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY.ARRAY NAME=\"LoopControl\" TYPE=\"uint16\">"
        "<VALUE.ARRAY><VALUE>2</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
    const std::string quick =
        "<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY NAME=\"QuickMode\" TYPE=\"boolean\">"
        "<VALUE>TRUE</VALUE></PROPERTY></INSTANCE>";
    Started exclusive = run("Exclusive", "slow", &forever);
    ASSERT_EQ(4096u, exclusive.value);
    EXPECT_EQ(6u, run("Plain", "slow").value);      // Busy
    EXPECT_EQ(6u, run("Exclusive", "slow").value);  // Busy
    EXPECT_TRUE(taken(run("Plain", "pass").value)); // another element is free
    CMPIData kill{};
    kill.type = CMPI_uint16;
    kill.value.uint16 = 5;
    host.invokeMethod(exclusive.job, "RequestStateChange", {{"RequestedState", kill}});
    EXPECT_EQ("9", waitForEnd(exclusive.job));
    // Ended, the exclusive run gives its element back.
    Started after = run("Exclusive", "slow", &quick);
    EXPECT_EQ(4096u, after.value);
    waitForEnd(after.job);
}

TEST_F(ProfileServiceTest, RunsBeyondTheModulesLimitAreBusyUntilOthersEnd) {
    const std::string forever =
        "<INSTANCE CLASSNAME=\"PT_Setting\"><PROPERTY.ARRAY NAME=\"LoopControl\" TYPE=\"uint16\">"
        "<VALUE.ARRAY><VALUE>2</VALUE></VALUE.ARRAY></PROPERTY.ARRAY></INSTANCE>";
    std::vector<Started> runs;
    for (int i = 0; i < 32; ++i) {
        runs.push_back(run("Plain", "slow", &forever));
        ASSERT_EQ(4096u, runs.back().value) << i;
    }
    EXPECT_EQ(6u, run("Plain", "pass").value);
    CMPIData kill{};
    kill.type = CMPI_uint16;
    kill.value.uint16 = 5;
    for (const Started& s : runs)
        host.invokeMethod(s.job, "RequestStateChange", {{"RequestedState", kill}});
    for (const Started& s : runs)
        EXPECT_EQ("9", waitForEnd(s.job));
    Started after = run("Plain", "pass");
    EXPECT_TRUE(taken(after.value)) << after.value;
    waitForEnd(after.job);
}

TEST_F(ProfileServiceTest, ALogThatNeverOverwritesRefusesRunsOnceFullUntilCleared) {
    EXPECT_EQ("2", logProperty("SmallLog", "MaxNumberOfRecords"));
    EXPECT_EQ("7", logProperty("SmallLog", "OverwritePolicy")); // Never Overwrites
    std::vector<Started> runs;
    for (int i = 0; i < 2; ++i) {
        runs.push_back(run("SmallLog", "pass"));
        ASSERT_TRUE(taken(runs.back().value)) << runs.back().value;
        waitForEnd(runs.back().job);
        EXPECT_EQ(std::to_string(i + 1), logProperty("SmallLog", "CurrentNumberOfRecords"));
    }
    EXPECT_EQ(6u, run("SmallLog", "pass").value); // Busy: the log is full
    OperationResult cleared =
        host.invokeMethod("PT_DiagLog.InstanceID=\"PT:SmallLog:Log\"", "ClearLog");
    ASSERT_TRUE(cleared.ok()) << cleared.status.message;
    EXPECT_EQ(0u, cleared.returnValue().value.uint32);
    EXPECT_EQ("0", logProperty("SmallLog", "CurrentNumberOfRecords"));
    Started again = run("SmallLog", "pass");
    EXPECT_TRUE(taken(again.value)) << again.value;
    waitForEnd(again.job);

    // Enumerated, every service's log shows its own figures.
    OperationResult logs = host.enumerateInstances("root/cimv2", "PT_DiagLog");
    ASSERT_EQ(3u, logs.instances().size());
    for (const CMPIInstance* log : logs.instances()) {
        const bool small = host.propertyText(log, "InstanceID").value_or("") == "PT:SmallLog:Log";
        EXPECT_EQ(small ? "2" : "1000", host.propertyText(log, "MaxNumberOfRecords").value_or(""));
        EXPECT_EQ(small ? "7" : "2", host.propertyText(log, "OverwritePolicy").value_or(""));
        EXPECT_TRUE(host.propertyText(log, "CurrentNumberOfRecords").has_value());
    }
}

TEST_F(ProfileServiceTest, AQuickRunAnswersDoneWithItsJobAndASlowOneAJobStarted) {
    // A run that ends within the call answers 0; its job is there, already Completed.
    bool done = false;
    for (int i = 0; i < 5 && !done; ++i) {
        Started quick = run("Plain", "pass");
        ASSERT_TRUE(taken(quick.value)) << quick.value;
        ASSERT_FALSE(quick.job.empty());
        if (quick.value == 0) {
            done = true;
            EXPECT_EQ("7", jobProperty(quick.job, "JobState"));
        }
        waitForEnd(quick.job);
    }
    EXPECT_TRUE(done);
    Started slow = run("Plain", "slow");
    EXPECT_EQ(4096u, slow.value);
    CMPIData kill{};
    kill.type = CMPI_uint16;
    kill.value.uint16 = 5;
    host.invokeMethod(slow.job, "RequestStateChange", {{"RequestedState", kill}});
    EXPECT_EQ("9", waitForEnd(slow.job));
}

TEST_F(ProfileServiceTest, CapabilitiesAdvertiseWhatTheLayerServes) {
    OperationResult all = host.enumerateInstances("root/cimv2", "PT_Capabilities");
    ASSERT_EQ(3u, all.instances().size());
    for (const CMPIInstance* capabilities : all.instances()) {
        const std::string id = host.propertyText(capabilities, "InstanceID").value_or("");
        // NonDestructive (7) only where the test is not destructive.
        EXPECT_EQ(id == "PT:Exclusive:Capabilities" ? "{2, 3, 4, 5}" : "{2, 3, 4, 5, 7}",
                  host.propertyText(capabilities, "SupportedServiceModes").value_or(""))
            << id;
        EXPECT_EQ("{2, 3, 4, 5}",
                  host.propertyText(capabilities, "SupportedLoopControl").value_or(""));
        EXPECT_EQ("{3, 5}",
                  host.propertyText(capabilities, "SupportedExecutionControls").value_or(""));
        EXPECT_EQ("{2}", host.propertyText(capabilities, "SupportedLogStorage").value_or(""));
    }
}

TEST_F(ProfileServiceTest, ConcurrentRunsAndEnumerationsAllComplete) {
    std::vector<std::thread> clients;
    std::atomic<int> completed{0};
    for (int t = 0; t < 4; ++t)
        clients.emplace_back([&] {
            diaghost::CallScope threadScope(host.broker());
            for (int i = 0; i < 5; ++i) {
                Started s = run("Plain", i % 2 ? "pass" : "fail");
                if (taken(s.value) && waitForEnd(s.job) == "7")
                    ++completed;
                host.enumerateInstances("root/cimv2", "PT_Job");
                host.enumerateInstances("root/cimv2", "PT_CompletionRecord");
            }
        });
    for (std::thread& c : clients)
        c.join();
    EXPECT_EQ(20, completed.load());
}

TEST_F(ProfileServiceTest, TheCoreMethodStaysAsItWas) {
    Host::Arguments args;
    CMPIData ref{};
    ref.type = CMPI_ref;
    ref.value.ref = host.parsePath(element("pass"));
    args.emplace_back("ManagedElement", ref);
    OperationResult legacy = host.invokeMethod(service("Plain"), "RunDiagnostic", args);
    ASSERT_TRUE(legacy.ok()) << legacy.status.message;
    EXPECT_EQ(0u, legacy.returnValue().value.uint32);
    EXPECT_EQ(CMPI_RC_ERR_METHOD_NOT_FOUND,
              host.invokeMethod(service("Plain"), "Reboot", args).status.rc);
}

} // namespace
