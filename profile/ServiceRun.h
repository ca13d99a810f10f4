// One RunDiagnosticService run on its worker thread: attaches the thread to the object manager,
// runs the service's test as the settings ask (a count of loops, a time, until a number of
// errors, continuously; halting on the first error when asked), answers stop requests at each
// check, files the completion record and the setting-data record in the service's log, and ends
// the job. Whatever the test throws ends the job as an Exception; nothing leaves the thread.
#ifndef DIAGPROFILE_SERVICERUN_H
#define DIAGPROFILE_SERVICERUN_H

#include "profile/DiagJob.h"
#include "profile/ObjectName.h"
#include "profile/RunSettings.h"

#include <cmpidt.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace NQORVA20::profile {

class ProfileDiagService;

class ServiceRun {
public:
    struct Plan {
        ProfileDiagService* service = nullptr;
        std::shared_ptr<DiagJob> job;
        ObjectName element;
        RunSettings settings;
        // The settings as the embedded CIM_DiagnosticSettingData text the setting record keeps.
        std::string settingsText;
        const CMPIBroker* broker = nullptr;
        // The context prepareAttachThread made for this thread; null when the broker made none.
        CMPIContext* context = nullptr;
        // Called on the worker thread once the run is over, whatever happened, just before the
        // job ends.
        std::function<void()> done;
    };

    explicit ServiceRun(Plan plan);
    // The run, on the thread that is to carry it.
    void operator()() noexcept;

private:
    struct Outcome {
        unsigned passed = 0;
        unsigned failed = 0;
        // Each error code the test reported, in the order first seen, with the sum of its
        // counts over the passes; at most maxErrorCodes codes, so that a long run of failing
        // passes keeps its record small.
        std::vector<std::pair<std::string, unsigned long long>> errors;
        void addError(const std::string& code, unsigned long long count);
        std::string recordData;
        std::string elementName;
    };
    static constexpr std::size_t maxErrorCodes = 64;

    Outcome loop();
    void file(const Outcome& outcome, const std::string& error);

    Plan plan_;
};

} // namespace NQORVA20::profile

#endif
