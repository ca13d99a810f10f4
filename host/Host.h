// The embedded object manager as one object: a class repository, a log, a CMPI broker and a
// provider manager, wired together. Load MOF and registration files, then run client operations
// by CMPIObjectPath or by DMTF path text; each answers an OperationResult owning its copies.
// Client operations may run on several threads at once. The destructor shuts the providers down.
#ifndef DIAGHOST_HOST_H
#define DIAGHOST_HOST_H

#include "host/OperationResult.h"
#include "host/broker/ResultSink.h"
#include "host/text/PathDialect.h"

#include <cmpidt.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace diaghost {

class Broker;
class ClassRepository;
class Dispatcher;
class LogSink;
class ProviderManager;

class Host {
public:
    struct Options {
        PathDialect dialect = PathDialect::Pegasus;
        std::vector<std::string> providerPath; // folders holding lib<location>.so
        int logEchoLevel = 0;                  // echo log entries of severity 1..level; 0: none
        std::ostream* logEcho = nullptr;       // where to echo; std::cerr when null
        // Serve providers' upcalls on another thread, as OpenPegasus does, instead of on the
        // calling thread.
        bool upcallsOnOtherThread = false;
        // The broker's strict mode (see Broker::setStrict).
        bool strict = false;
        // How many log entries the host keeps for reading back (the oldest go first); a
        // long-running server keeps few, tests keep many.
        std::size_t logCapacity = std::size_t{1} << 20;
    };
    using Arguments = std::vector<std::pair<std::string, CMPIData>>;

    Host();
    explicit Host(Options options);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Throws MofError.
    void loadMof(const std::string& path, const std::string& ns = "root/cimv2");
    // Throws RegistrationError.
    void loadRegistrations(const std::string& path);
    void addProviderDir(const std::string& dir);

    Broker& broker() { return *broker_; }
    ClassRepository& classes() { return *classes_; }
    LogSink& log() { return *log_; }
    ProviderManager& providers() { return *providers_; }
    PathDialect dialect() const { return dialect_; }

    std::size_t unloadIdleProviders();
    void shutdown();

    // ---- Client operations. Path text without a namespace is taken in defaultNs; text that
    // does not parse answers CMPI_RC_ERR_INVALID_PARAMETER with the parser's message. Empty
    // filter strings mean "not given". Where an operation takes a stream, the instances or paths
    // the providers return go to it as they come, and the result keeps only the status.
    OperationResult enumerateInstances(const std::string& ns, const std::string& className,
                                       ResultSink::Stream* stream = nullptr);
    // With a property list: the request asks for those properties only.
    OperationResult enumerateInstances(const std::string& ns, const std::string& className,
                                       const std::vector<std::string>& properties,
                                       ResultSink::Stream* stream = nullptr);
    OperationResult enumerateInstanceNames(const std::string& ns, const std::string& className,
                                           ResultSink::Stream* stream = nullptr);
    OperationResult getInstance(const CMPIObjectPath* path);
    OperationResult getInstance(const std::string& pathText);
    OperationResult getInstance(const std::string& pathText,
                                const std::vector<std::string>& properties);
    OperationResult getInstance(const CMPIObjectPath* path,
                                const std::vector<std::string>& properties);
    OperationResult createInstance(const CMPIInstance* instance);
    OperationResult deleteInstance(const CMPIObjectPath* path);
    OperationResult deleteInstance(const std::string& pathText);
    OperationResult execQuery(const std::string& ns, const std::string& className,
                              const std::string& query, const std::string& language = "WQL");
    OperationResult associators(const CMPIObjectPath* path, const std::string& assocClass = "",
                                const std::string& resultClass = "", const std::string& role = "",
                                const std::string& resultRole = "",
                                ResultSink::Stream* stream = nullptr);
    OperationResult associators(const std::string& pathText, const std::string& assocClass = "",
                                const std::string& resultClass = "", const std::string& role = "",
                                const std::string& resultRole = "");
    OperationResult associatorNames(const CMPIObjectPath* path, const std::string& assocClass = "",
                                    const std::string& resultClass = "",
                                    const std::string& role = "",
                                    const std::string& resultRole = "",
                                    ResultSink::Stream* stream = nullptr);
    OperationResult associatorNames(const std::string& pathText, const std::string& assocClass = "",
                                    const std::string& resultClass = "",
                                    const std::string& role = "",
                                    const std::string& resultRole = "");
    OperationResult references(const CMPIObjectPath* path, const std::string& resultClass = "",
                               const std::string& role = "", ResultSink::Stream* stream = nullptr);
    OperationResult references(const std::string& pathText, const std::string& resultClass = "",
                               const std::string& role = "");
    OperationResult referenceNames(const CMPIObjectPath* path, const std::string& resultClass = "",
                                   const std::string& role = "",
                                   ResultSink::Stream* stream = nullptr);
    OperationResult referenceNames(const std::string& pathText, const std::string& resultClass = "",
                                   const std::string& role = "");
    OperationResult invokeMethod(const CMPIObjectPath* path, const std::string& method,
                                 const Arguments& args = {});
    OperationResult invokeMethod(const std::string& pathText, const std::string& method,
                                 const Arguments& args = {});
    OperationResult invokeMethod(const CMPIObjectPath* path, const std::string& method,
                                 const CMPIArgs* args);
    OperationResult invokeMethod(const std::string& pathText, const std::string& method,
                                 const CMPIArgs* args);

    // ---- Conveniences.
    // A CMPIObjectPath from DMTF text, keys typed as the class declares them; it belongs to the
    // calling thread's current CallScope, or to the broker when none is open. Throws
    // ObjectPathError.
    CMPIObjectPath* parsePath(const std::string& pathText,
                              const std::string& defaultNs = "root/cimv2");
    // A property's value as plain text (strings unquoted, booleans true/false, references as
    // path text in the host's dialect); nothing when the property is absent or NULL.
    std::optional<std::string> propertyText(const CMPIInstance* instance, const std::string& name);
    // "instance of Class {\n    Prop = value;\n};" over the non-NULL properties, in the
    // instance's order, values as MOF literals.
    std::string mofText(const CMPIInstance* instance);
    // The path as the host's dialect renders it.
    std::string pathText(const CMPIObjectPath* path);

    static const char* defaultNamespace() { return "root/cimv2"; }

private:
    template <class Op>
    OperationResult run(const CMPIObjectPath* path, Op&& op, ResultSink::Stream* stream = nullptr);
    template <class Op>
    OperationResult runText(const std::string& pathText, Op&& op);
    // Parses a path text in one call scope and hands the path to `use`; a text that does not
    // parse gives CMPI_RC_ERR_INVALID_PARAMETER with the parser's message.
    template <class Use>
    OperationResult onPathText(const std::string& pathText, Use&& use);

    PathDialect dialect_;
    std::unique_ptr<ClassRepository> classes_;
    std::unique_ptr<LogSink> log_;
    std::unique_ptr<Broker> broker_;
    std::unique_ptr<ProviderManager> providers_;
    std::unique_ptr<Dispatcher> upcalls_; // set when upcalls run on another thread
};

} // namespace diaghost

#endif
