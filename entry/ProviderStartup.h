// Runs a provider library's start-up (creating and registering its services, settings,
// capabilities, logs and associations) once per process, before the first operation it serves.
//
// A call on the start-up's own thread goes ahead at once, and so does a call on another thread
// for a class the start-up is enumerating through the broker at that moment (an object manager
// may serve the upcall by calling this provider on another thread): both are answered from what
// is already published. Any other call waits for the start-up, but never longer than the wait
// limit; then it is refused with CMPI_RC_ERR_FAILED, "provider start-up is still running". A
// start-up that throws is logged and not run again.
#ifndef DIAGCORE_ENTRY_PROVIDERSTARTUP_H
#define DIAGCORE_ENTRY_PROVIDERSTARTUP_H

#include "common/Export.h"
#include "common/ProviderScope.h"

#include <cmpidt.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace NQORVA20 {

class DIAGCORE_EXPORT ProviderStartup : private ProviderScope::UpcallListener {
public:
    using Function = void (*)(const CMPIBroker* broker, const CMPIContext* ctx);
    static constexpr std::chrono::milliseconds defaultWaitLimit{std::chrono::seconds(30)};

    explicit ProviderStartup(Function function,
                             std::chrono::milliseconds waitLimit = defaultWaitLimit);
    // Runs the start-up if nobody has, and names this provider as the one the thread serves.
    // CMPI_RC_OK when the call may go on. op: the object path of the call (its class decides
    // whether it is the start-up's own upcall); null when it has none.
    CMPIStatus ensure(const CMPIBroker* broker, const CMPIContext* ctx,
                      const CMPIObjectPath* op = nullptr) noexcept;
    bool done();

    // What a generated cleanup answers: the core's status on a terminating cleanup, and
    // CMPI_RC_NEVER_UNLOAD to an idle-unload offer, since the registry lives in process memory.
    static CMPIStatus cleanupAnswer(CMPIStatus core, CMPIBoolean terminating);

private:
    enum class State { NotStarted, Running, Done };
    void run(const CMPIBroker* broker, const CMPIContext* ctx) noexcept;
    void upcallBegins(const std::string& className) noexcept override;
    void upcallEnds(const std::string& className) noexcept override;
    // Whether the start-up is enumerating the class of op through the broker; mutex_ held.
    bool isOwnUpcall(const CMPIObjectPath* op) const;

    Function function_;
    std::chrono::milliseconds waitLimit_;
    std::mutex mutex_;
    std::condition_variable finished_;
    State state_ = State::NotStarted;
    std::thread::id runner_;
    // The classes (upper-cased) of the upcalls the start-up has made and the object manager
    // has not yet answered.
    std::vector<std::string> upcallClasses_;
};

} // namespace NQORVA20

#endif
