// The host's CMPI broker: the broker, encapsulated-data, operating-system and memory function
// tables a provider calls, over the host's class repository and log sink. Objects it makes belong
// to the innermost open CallScope of the calling thread (or to the broker itself when none is
// open, released with it); clones live until released. Whatever it does not support answers
// CMPI_RC_ERR_NOT_SUPPORTED. Safe to call from several threads at once.
#ifndef DIAGHOST_BROKER_BROKER_H
#define DIAGHOST_BROKER_BROKER_H

#include "host/broker/FaultHook.h"
#include "host/text/PathDialect.h"

#include <cmpidt.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace diaghost {

class CallArena;
class ClassRepository;
class Dispatcher;
class LogSink;

class Broker {
public:
    Broker(const ClassRepository& classes, LogSink& log,
           PathDialect dialect = PathDialect::Pegasus);
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    // The CMPIBroker to hand to providers.
    const CMPIBroker* cmpi() const;
    // The Broker behind a CMPIBroker made by cmpi(); null for anything else.
    static Broker* from(const CMPIBroker* broker);

    PathDialect dialect() const;
    // Strict: the broker behaves as the harsher of the real object managers where they differ:
    // an enumeration marks each instance it holds null in its data state, and a result sink
    // filters the instances handed to it in place (see ResultSink).
    void setStrict(bool strict);
    bool strict() const;
    const ClassRepository& classes() const;
    LogSink& log() const;

    // The time newDateTime answers: the system clock unless a test sets its own (null: back to
    // the system clock). Set it before providers call the broker.
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    void setClock(Clock clock);
    std::chrono::system_clock::time_point now() const;

    // Where upcalls (enumerateInstances and the rest of the broker function table) go; without a
    // dispatcher they answer CMPI_RC_ERR_NOT_SUPPORTED.
    void setDispatcher(Dispatcher* dispatcher);
    Dispatcher* dispatcher() const;

    // A context as the host passes to a provider call: CMPIInitNameSpace set to ns,
    // CMPIInvocationFlags 0, CMPIPrincipal "root". Owned like any other broker object.
    CMPIContext* newContext(const std::string& ns);
    // The same, carrying every entry of callerCtx (invocation flags, principal, what a provider
    // added) except its namespace; callerCtx may be null.
    CMPIContext* newContext(const std::string& ns, const CMPIContext* callerCtx);

    // The arena holding the objects made while no call scope of this broker is open on the
    // calling thread; they are freed with the broker.
    CallArena& ownArena();

    // Asks hook (not owned; null for none) from now on whether a function is to fail. The hook
    // must outlive the broker or be detached first.
    void setFaultHook(FaultHook* hook);
    // Asked at the top of an injectable function: true when this call fails, with *rc set to
    // CMPI_RC_ERR_FAILED and a message naming the function.
    bool injectFault(FaultHook::Function f, CMPIStatus* rc);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace diaghost

#endif
