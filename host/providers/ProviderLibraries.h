// The provider libraries of one host: finds lib<location>.so on the search path, opens it on the
// first call, makes each provider's MI through its factory, keeps count of the calls running in
// each library, offers idle libraries an unload and cleans every MI up at shutdown. A library is
// never unloaded while one of its calls runs. Its tables are guarded by one mutex that is never
// held while provider code runs.
#ifndef DIAGHOST_PROVIDERS_PROVIDERLIBRARIES_H
#define DIAGHOST_PROVIDERS_PROVIDERLIBRARIES_H

#include "host/broker/OperationStatus.h"
#include "host/providers/LoadedProvider.h"
#include "host/providers/ProviderRegistration.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace diaghost {

class Broker;
class LogSink;

class ProviderLibraries {
public:
    using MiKind = LoadedProvider::MiKind;

    // The broker and the log must outlive the libraries.
    ProviderLibraries(Broker& broker, LogSink& log);
    // shutdown().
    ~ProviderLibraries();
    ProviderLibraries(const ProviderLibraries&) = delete;
    ProviderLibraries& operator=(const ProviderLibraries&) = delete;

    // Folders searched, in order, for lib<location>.so.
    void addProviderDir(const std::string& dir);
    std::vector<std::string> providerPath() const;

    // The library at this location is never offered an unload ("unload: never").
    void keepLoaded(const std::string& location);

    // Runs body(mi) with the provider's MI of `kind`, loading the library and making the MI
    // (in a context naming ns) first when needed; the library stays loaded until body returns.
    // A library or MI that cannot be had answers why, and body does not run.
    template <class Body>
    OperationStatus withMi(const ProviderRegistration& reg, MiKind kind, const std::string& ns,
                           Body&& body) {
        LoadedProvider* library = nullptr;
        void* mi = nullptr;
        OperationStatus got = acquire(reg, kind, ns, library, mi);
        if (!got.ok())
            return got;
        Held held(*this, library);
        return body(mi);
    }

    // Offers every idle loaded library an unload; answers how many were unloaded.
    std::size_t unloadIdle();
    // Waits for running calls, cleans every MI up (terminating true) and closes every library.
    // Later calls fail. Refused (logged) from inside a provider call.
    void shutdown();
    bool isShutDown() const;
    bool isLoaded(const std::string& location) const;
    std::vector<std::string> loadedLibraries() const;
    // How often the library has been opened so far (a reload after an unload counts again).
    unsigned openCount(const std::string& location) const;

private:
    // A call running in a library: counted as in flight, and as provider code on this thread.
    class Held {
    public:
        Held(ProviderLibraries& owner, LoadedProvider* library);
        ~Held();
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;

    private:
        ProviderLibraries& owner_;
        LoadedProvider* library_;
    };

    OperationStatus acquire(const ProviderRegistration& reg, MiKind kind, const std::string& ns,
                            LoadedProvider*& library, void*& mi);
    void release(LoadedProvider* library);
    LoadedProvider& libraryLocked(const std::string& location);
    void unloadOne(const std::string& location, std::size_t& unloaded);
    void logError(const std::string& text);

    Broker& broker_;
    LogSink& log_;
    mutable std::mutex mutex_;
    std::condition_variable changed_; // a library's state, slots or calls in flight changed
    std::vector<std::string> searchPath_;
    std::set<std::string> keptLoaded_;
    std::map<std::string, std::unique_ptr<LoadedProvider>> libraries_; // by location
    bool shuttingDown_ = false;
    bool shutDown_ = false;
};

} // namespace diaghost

#endif
