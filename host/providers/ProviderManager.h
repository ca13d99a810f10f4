// The host's provider manager: routes every operation on a class to the provider registered for
// it (the class's own, else the nearest registered ancestor's; see RegistrationTable), or to the
// MOF's static instances when none is, calling providers through ProviderLibraries. It is the
// broker's Dispatcher, so providers' upcalls are routed the same way.
//
// Enumerations and queries are polymorphic: the class and each subclass with its own registration
// are asked, each under its own class name. Association operations ask the association providers
// of the given association class and its subclasses, or every association provider of the
// namespace when no class is given. Each provider call runs inside a CallScope with a fresh
// context naming the namespace; what it returns is copied once and handed to the caller's sink,
// and its status (code and message) reaches the caller unchanged. No lock is held while provider
// code runs.
#ifndef DIAGHOST_PROVIDERS_PROVIDERMANAGER_H
#define DIAGHOST_PROVIDERS_PROVIDERMANAGER_H

#include "host/broker/Dispatcher.h"
#include "host/providers/LoadedProvider.h"
#include "host/providers/ProviderLibraries.h"
#include "host/providers/ProviderRegistration.h"
#include "host/providers/RegistrationTable.h"
#include "host/providers/StaticInstanceProvider.h"

#include <optional>
#include <string>
#include <vector>

namespace diaghost {

class Broker;
class ClassRepository;
class LogSink;

class ProviderManager : public Dispatcher {
public:
    // Becomes the broker's dispatcher; the broker, its repository and the log must outlive it.
    ProviderManager(Broker& broker, LogSink& log);
    // shutdown(), then stops being the broker's dispatcher.
    ~ProviderManager() override;
    ProviderManager(const ProviderManager&) = delete;
    ProviderManager& operator=(const ProviderManager&) = delete;

    // Folders searched, in order, for lib<location>.so.
    void addProviderDir(const std::string& dir);
    std::vector<std::string> providerPath() const;

    // Reads a registration file and adds every section of it, or none when any is wrong.
    // Throws RegistrationError, also for a class registered twice for the same kind of MI in
    // one namespace or a provider name given two different locations.
    void loadRegistrations(const std::string& path);
    void addRegistrations(const std::vector<ProviderRegistration>& regs);
    std::vector<ProviderRegistration> registrations() const;
    // What serves className's MIs of `type` in ns: its own registration, else the nearest
    // registered ancestor's; nothing when none.
    std::optional<ProviderRegistration> providerFor(const std::string& ns,
                                                    const std::string& className,
                                                    ProviderRegistration::Type type) const;

    // Offers every idle loaded library an unload; answers how many were unloaded.
    std::size_t unloadIdleProviders();
    // Waits for running calls, cleans every MI up (terminating true) and closes every library.
    // Later provider calls fail. Refused (logged) from inside a provider call.
    void shutdown();
    bool isShutDown() const;

    bool isLoaded(const std::string& location) const;
    std::vector<std::string> loadedLibraries() const;
    // How often the library has been opened so far (a reload after an unload counts again).
    unsigned openCount(const std::string& location) const;

    OperationStatus enumerateInstanceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           ResultSink& out) override;
    OperationStatus enumerateInstances(const CMPIContext* ctx, const CMPIObjectPath* op,
                                       const char** properties, ResultSink& out) override;
    OperationStatus getInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                const char** properties, ResultSink& out) override;
    OperationStatus createInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   const CMPIInstance* inst, ResultSink& out) override;
    OperationStatus modifyInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   const CMPIInstance* inst, const char** properties,
                                   ResultSink& out) override;
    OperationStatus deleteInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   ResultSink& out) override;
    OperationStatus execQuery(const CMPIContext* ctx, const CMPIObjectPath* op, const char* query,
                              const char* language, ResultSink& out) override;
    OperationStatus associators(const CMPIContext* ctx, const CMPIObjectPath* op,
                                const char* assocClass, const char* resultClass, const char* role,
                                const char* resultRole, const char** properties,
                                ResultSink& out) override;
    OperationStatus associatorNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                    const char* assocClass, const char* resultClass,
                                    const char* role, const char* resultRole,
                                    ResultSink& out) override;
    OperationStatus references(const CMPIContext* ctx, const CMPIObjectPath* op,
                               const char* resultClass, const char* role, const char** properties,
                               ResultSink& out) override;
    OperationStatus referenceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   const char* resultClass, const char* role,
                                   ResultSink& out) override;
    OperationStatus invokeMethod(const CMPIContext* ctx, const CMPIObjectPath* op,
                                 const char* method, const CMPIArgs* in, CMPIArgs* out,
                                 ResultSink& result) override;

private:
    using MiKind = LoadedProvider::MiKind;

    // One class to ask in an operation: through a provider, or from the static instances.
    struct Step {
        const ProviderRegistration* provider = nullptr; // null: the static instances
        std::string className;
    };
    // What an operation is about: its namespace and class.
    struct Target {
        std::string ns;
        std::string className;
        // The operation's path, carrying the namespace (a copy in the routing scope when the
        // caller's path named none and the namespace came from the context).
        const CMPIObjectPath* path = nullptr;
    };
    OperationStatus resolve(const CMPIContext* ctx, const CMPIObjectPath* op, Target& target) const;
    // Runs an operation body, turning any exception into CMPI_RC_ERR_FAILED: the dispatcher is
    // called from the broker's C function tables.
    template <class Body>
    OperationStatus shielded(const char* operation, Body&& body);
    // The frame of every client operation: exceptions shielded, one call scope for the routing,
    // the path resolved; then body(target).
    template <class Body>
    OperationStatus routed(const char* operation, const CMPIContext* ctx, const CMPIObjectPath* op,
                           Body&& body);
    // Calls `call(mi, ctx, result)` on the instance MI of a registration and closes the result.
    template <class Call>
    OperationStatus callInstanceProvider(const ProviderRegistration& reg, const Target& target,
                                         const CMPIContext* ctx, ResultSink& out, Call&& call);
    // The same for the instance provider registered for the target's own class;
    // CMPI_RC_ERR_NOT_SUPPORTED ("no provider <verb> instances of <class>") when there is none.
    // Calls `call(mi, ctx, result, classPath)` on the instance provider of an enumeration step,
    // classPath naming the step's class in the target's namespace.
    template <class Call>
    OperationStatus onStepClass(const Step& step, const Target& target, const CMPIContext* ctx,
                                ResultSink& out, Call&& call);
    template <class Call>
    OperationStatus ownInstanceProvider(const Target& target, const char* verb,
                                        const CMPIContext* ctx, ResultSink& out, Call&& call);
    std::vector<Step> enumerationSteps(const Target& target) const;
    OperationStatus associationSteps(const std::string& ns, const char* assocClass,
                                     std::vector<Step>& steps) const;

    // Runs `call(mi, ctx, rslt)` on the provider's MI of `kind` inside a CallScope, copying
    // what it returns into `out`.
    template <class Call>
    OperationStatus callProvider(const ProviderRegistration& reg, MiKind kind,
                                 const std::string& ns, const CMPIContext* callerCtx,
                                 ResultSink& out, Call&& call);

    OperationStatus enumerate(const CMPIContext* ctx, const CMPIObjectPath* op,
                              const char** properties, bool namesOnly, ResultSink& out);
    OperationStatus referencesOf(const CMPIContext* ctx, const CMPIObjectPath* op,
                                 const char* resultClass, const char* role, const char** properties,
                                 bool namesOnly, ResultSink& out);
    OperationStatus associatorsOf(const CMPIContext* ctx, const CMPIObjectPath* op,
                                  const char* assocClass, const char* resultClass, const char* role,
                                  const char* resultRole, const char** properties, bool namesOnly,
                                  ResultSink& out);

    Broker& broker_;
    const ClassRepository& classes_;
    StaticInstanceProvider statics_;
    ProviderLibraries libraries_;
    RegistrationTable registrations_;
};

} // namespace diaghost

#endif
