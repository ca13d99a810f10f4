// One RunDiagnosticService run as its CIM_ConcreteJob: the state it is in (New, Running,
// Shutting Down, then Completed, Exception, Terminated or Killed), its progress, its times, and
// the stop a client asks for, which the running test sees at its next check. The worker running
// the test and the clients reading or stopping it may call it at once.
#ifndef DIAGPROFILE_DIAGJOB_H
#define DIAGPROFILE_DIAGJOB_H

#include "profile/CimObject.h"
#include "profile/ObjectName.h"
#include "profile/ProfileClock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace NQORVA20::profile {

class DiagJob {
public:
    // JobState values of CIM_ConcreteJob.
    enum class State : std::uint16_t {
        New = 2,
        Running = 4,
        ShuttingDown = 6,
        Completed = 7,
        Terminated = 8,
        Killed = 9,
        Exception = 10,
    };
    enum class Stop { None, Terminate, Kill };

    struct Identity {
        std::string instanceId;
        std::string name;
        ObjectName service;
        ObjectName element;
        bool deleteOnCompletion = true;
        ProfileClock::Micros timeBeforeRemoval = 300 * ProfileClock::second;
    };

    DiagJob(Identity identity, const ProfileClock& clock);

    const Identity& identity() const { return identity_; }

    // ---- The worker's side.
    void started();
    // Percent done, 0 to 100; larger values count as 100.
    void progress(unsigned percent);
    // What a stop request asked for; a running test polls this.
    Stop stopRequested() const { return stop_.load(); }
    // The run is over. A requested stop decides between Terminated and Killed; otherwise an
    // error description makes it an Exception (the test could not run), none a Completed job.
    void finished(const std::string& errorDescription = {});
    // The InstanceID of the completion record the run left; empty when none was kept.
    void setRecord(std::string recordId);

    // ---- The clients' side.
    // RequestStateChange: 4 Terminate or 5 Kill. Answers its return value: 4096 when the stop is
    // on its way, 4097 for a job that has ended, 1 for the transitions jobs do not take (Start,
    // Suspend, Service), 5 for values that are no state.
    std::uint32_t requestStateChange(std::uint16_t requested);

    State state() const;
    bool ended() const;
    // Waits, in real time, at most `timeout` for the run to end; whether it has.
    bool waitForEnd(std::chrono::milliseconds timeout) const;
    std::string errorDescription() const;
    std::string record() const;
    // Whether the job is due for removal: ended, to be deleted on completion, and its time
    // before removal passed.
    bool expired(ProfileClock::Micros now) const;
    ProfileClock::Micros endTime() const;

    // The job as an instance of its class.
    CimObject toObject(const std::string& className) const;

private:
    static bool isEnd(State s);

    const Identity identity_;
    const ProfileClock& clock_;
    std::atomic<Stop> stop_{Stop::None};
    mutable std::mutex mutex_;
    mutable std::condition_variable endChanged_;
    State state_ = State::New;
    unsigned percent_ = 0;
    ProfileClock::Micros submitted_;
    ProfileClock::Micros startTime_ = 0;
    ProfileClock::Micros endTime_ = 0;
    ProfileClock::Micros lastChange_;
    std::string errorDescription_;
    std::string record_;
};

} // namespace NQORVA20::profile

#endif
