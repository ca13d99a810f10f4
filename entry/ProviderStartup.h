// Runs a provider library's start-up (creating and registering its services, settings,
// capabilities, logs and associations) once per process, before the first operation it serves.
// Other threads wait for it to finish; a call that the start-up itself causes on its own thread
// (an upcall that enumerates the provider's own element class) goes ahead at once. A start-up
// that throws is logged and not run again.
#ifndef DIAGCORE_ENTRY_PROVIDERSTARTUP_H
#define DIAGCORE_ENTRY_PROVIDERSTARTUP_H

#include "common/Export.h"

#include <cmpidt.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace NQORVA20 {

class DIAGCORE_EXPORT ProviderStartup {
public:
    using Function = void (*)(const CMPIBroker* broker, const CMPIContext* ctx);

    explicit ProviderStartup(Function function);
    void ensure(const CMPIBroker* broker, const CMPIContext* ctx) noexcept;
    bool done();

    // What a generated cleanup answers: the core's status on a terminating cleanup, and
    // CMPI_RC_NEVER_UNLOAD to an idle-unload offer, since the registry lives in process memory.
    static CMPIStatus cleanupAnswer(CMPIStatus core, CMPIBoolean terminating);

private:
    enum class State { NotStarted, Running, Done };
    Function function_;
    std::mutex mutex_;
    std::condition_variable finished_;
    State state_ = State::NotStarted;
    std::thread::id runner_;
};

} // namespace NQORVA20

#endif
