#include "profile/ServiceRun.h"

#include "builder/InstanceBuilder.h"
#include "diag/DiagnosticRecord.h"
#include "profile/ProfileDiagService.h"
#include "profile/ProfileModule.h"
#include "profile/RecordFields.h"
#include "profile/RecordLog.h"
#include "profile/RunControl.h"

#include <cmpift.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <thread>

namespace NQORVA20::profile {

namespace {

// Between passes of a run that repeats for a while, so that a quick test does not keep a
// processor busy.
constexpr std::chrono::milliseconds repeatPause{100};

std::string field(InstanceImpl& instance, const char* name) {
    auto it = instance.find(name);
    return it != instance.end() ? it->second : std::string();
}

// The count a record gives for its error code; 1 when it gives none that reads.
unsigned long long countOf(const std::string& text) {
    char* end = nullptr;
    const unsigned long long count = std::strtoull(text.c_str(), &end, 10);
    return text.empty() || end == text.c_str() || *end != '\0' || text[0] == '-' ? 1 : count;
}

} // namespace

void ServiceRun::Outcome::addError(const std::string& code, unsigned long long count) {
    for (auto& [known, sum] : errors)
        if (known == code) {
            sum = count > ~0ULL - sum ? ~0ULL : sum + count;
            return;
        }
    if (errors.size() < maxErrorCodes)
        errors.emplace_back(code, count);
}

ServiceRun::ServiceRun(Plan plan) : plan_(std::move(plan)) {}

ServiceRun::Outcome ServiceRun::loop() {
    DiagJob& job = *plan_.job;
    const RunSettings& settings = plan_.settings;
    ProfileClock& clock = ProfileModule::current().clock();
    const ProfileClock::Micros start = clock.now();
    unsigned pass = 0;
    RunControl control([&job] { return job.stopRequested() != DiagJob::Stop::None; },
                       [&job](unsigned percent) { job.progress(percent); }, settings.quickMode,
                       settings.percentOfTestCoverage);
    RunControl::Scope current(control);
    Outcome outcome;
    for (;;) {
        if (job.stopRequested() != DiagJob::Stop::None)
            break;
        ParseInstanceImpl element;
        element.setClassName(plan_.element.className);
        for (const auto& [key, value] : plan_.element.keys)
            element[key] = value;
        DiagnosticRecord record("CIM_DiagnosticRecord");
        const unsigned value = plan_.service->runTest(&element, &record);
        ++pass;
        const std::string errorCode = field(record, "ErrorCode");
        const bool failed = value != 0 || !errorCode.empty();
        if (failed) {
            ++outcome.failed;
            if (!errorCode.empty())
                outcome.addError(errorCode, countOf(field(record, "ErrorCount")));
        } else {
            ++outcome.passed;
        }
        outcome.recordData = field(record, "RecordData");
        outcome.elementName = field(element, "DeviceID");

        const ProfileClock::Micros elapsed = clock.now() - start;
        const RunSettings::Progress progress =
            settings.progressAfter(pass, outcome.failed, elapsed);
        job.progress(progress.percent);
        if (progress.done || (failed && settings.haltOnError))
            break;
        std::this_thread::sleep_for(repeatPause);
    }
    if (outcome.elementName.empty())
        outcome.elementName = plan_.element.text();
    return outcome;
}

void ServiceRun::file(const Outcome& outcome, const std::string& error) {
    DiagJob& job = *plan_.job;
    RecordLog& log = plan_.service->records();
    const std::uint32_t persistence = plan_.settings.resultPersistence;
    if (!RecordLog::kept(persistence))
        return;
    const ProfileClock::Micros now = ProfileModule::current().clock().now();
    const std::optional<ProfileClock::Micros> expires = RecordLog::expiryFor(persistence, now);
    const std::string id = job.identity().instanceId;

    // CompletionState: 2 OK, 4 Incomplete, 5 Failed, 6 Aborted, 7 Stopped.
    const DiagJob::Stop stop = job.stopRequested();
    const char* state = !error.empty()                     ? "4"
                        : stop == DiagJob::Stop::Kill      ? "6"
                        : stop == DiagJob::Stop::Terminate ? "7"
                        : outcome.failed > 0               ? "5"
                                                           : "2";
    RecordLog::Entry entry;
    entry.id = id + ":Completion";
    entry.created = now;
    entry.expires = expires;
    entry.elementPath = plan_.element.text();
    entry.jobId = id;
    const std::string serviceName = plan_.service->serviceName();
    auto common = [&](RecordFields::Fields& fields, const std::string& instanceId) {
        fields["InstanceID"] = instanceId;
        fields["ServiceName"] = serviceName;
        fields["ManagedElementName"] = outcome.elementName;
        fields["CreationTimeStamp"] = ProfileClock::timestampText(now);
        fields["RecordType"] = "2";
        if (expires)
            fields["ExpirationDate"] = ProfileClock::timestampText(*expires);
    };
    common(entry.completion, entry.id);
    entry.completion["CompletionState"] = state;
    entry.completion["LoopsPassed"] = std::to_string(outcome.passed);
    entry.completion["LoopsFailed"] = std::to_string(outcome.failed);
    if (!outcome.errors.empty()) {
        std::vector<std::string> codes;
        std::vector<std::string> counts;
        for (const auto& [code, count] : outcome.errors) {
            codes.push_back(code);
            // ErrorCount holds uint32s.
            counts.push_back(std::to_string(std::min<unsigned long long>(count, 0xFFFFFFFFu)));
        }
        entry.completion["ErrorCode"] = RecordFields::join(codes);
        entry.completion["ErrorCount"] = RecordFields::join(counts);
    }
    entry.completion["RecordData"] = error.empty() ? outcome.recordData : error;
    common(entry.setting, id + ":Settings");
    entry.setting["Settings"] = plan_.settingsText;
    if (log.add(std::move(entry)))
        job.setRecord(id + ":Completion");
}

void ServiceRun::operator()() noexcept {
    const CMPIBroker* broker = plan_.broker;
    const bool attached = plan_.context != nullptr && broker != nullptr && broker->bft != nullptr &&
                          broker->bft->attachThread(broker, plan_.context).rc == CMPI_RC_OK;
    std::string error;
    Outcome outcome;
    try {
        plan_.job->started();
        outcome = loop();
    } catch (const std::exception& e) {
        error = std::string("the test stopped: ") + e.what();
    } catch (...) {
        error = "the test stopped on an unknown error";
    }
    try {
        file(outcome, error);
    } catch (...) {
        // The job still ends; only its records are missing.
    }
    // The element and the run's place are given back before the job shows it has ended, so
    // that a client who sees the end can run again at once.
    if (plan_.done) {
        try {
            plan_.done();
        } catch (...) {
        }
    }
    plan_.job->finished(error);
    if (attached)
        broker->bft->detachThread(broker, plan_.context);
}

} // namespace NQORVA20::profile
