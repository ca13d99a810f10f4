// One provider library, opened with dlopen, and the MIs made from it through the standard
// factory symbols <Provider>_Create_InstanceMI, _Create_MethodMI and _Create_AssociationMI. A
// library serves every provider and class registered with its location, so it is opened once
// however many classes it serves.
//
// The object does the loading, factory and cleanup calls; it takes no lock. Its bookkeeping
// (state, MI slots, calls in flight) belongs to the ProviderManager and is read and written only
// under that manager's mutex.
#ifndef DIAGHOST_PROVIDERS_LOADEDPROVIDER_H
#define DIAGHOST_PROVIDERS_LOADEDPROVIDER_H

#include "host/broker/OperationStatus.h"

#include <cmpidt.h>

#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace diaghost {

class LoadedProvider {
public:
    enum class MiKind { Instance, Method, Association };
    enum class State { Unloaded, Loading, Loaded, Unloading };

    // One MI of one provider of the library.
    struct MiSlot {
        void* mi = nullptr;    // CMPIInstanceMI*, CMPIMethodMI* or CMPIAssociationMI*
        bool creating = false; // its factory is running on `creator`
        std::thread::id creator;
        std::string nameSpace; // the namespace of the call that made it; cleanup's context
    };

    explicit LoadedProvider(std::string location);
    // Closes the library if still open, without cleanup calls.
    ~LoadedProvider();
    LoadedProvider(const LoadedProvider&) = delete;
    LoadedProvider& operator=(const LoadedProvider&) = delete;

    const std::string& location() const { return location_; }
    // The library's file name: lib<location>.so.
    std::string fileName() const;
    // The file the library was last opened from; empty before the first open.
    const std::string& path() const { return path_; }
    bool isOpen() const { return handle_ != nullptr; }

    // Opens lib<location>.so from the first folder of searchPath that holds it, else through
    // the system loader's own search, with RTLD_NOW | RTLD_LOCAL. Sets a message naming the
    // library, the folders tried and the loader's reason and answers false on failure.
    bool open(const std::vector<std::string>& searchPath, std::string& error);
    // dlclose; a no-op when not open.
    void close();
    // An exported symbol of the open library; null when absent or closed.
    void* symbol(const std::string& name) const;

    // Calls <providerName>_Create_<kind>MI(broker, ctx, &rc). Null with the reason in `status`
    // when the symbol is missing, the factory answers no MI or it throws.
    void* createMi(const std::string& providerName, MiKind kind, const CMPIBroker* broker,
                   const CMPIContext* ctx, OperationStatus& status) const;
    // The MI's cleanup(ctx, terminating); a provider that throws answers CMPI_RC_ERR_FAILED.
    static OperationStatus cleanupMi(void* mi, MiKind kind, const CMPIContext* ctx,
                                     bool terminating);
    static const char* kindName(MiKind kind);

    // Bookkeeping kept for the ProviderManager (guarded by its mutex).
    State state = State::Unloaded;
    std::thread::id busyThread; // the thread loading or unloading the library
    // The thread running one of the library's MI factories: they run one at a time, as
    // providers set their shared broker pointer there without a lock.
    std::thread::id factoryThread;
    int inFlight = 0;         // provider calls and factory calls running now
    bool neverUnload = false; // registered "unload: never" or answered CMPI_RC_NEVER_UNLOAD
    unsigned openCount = 0;   // how many times the manager opened the library
    std::map<std::pair<std::string, MiKind>, MiSlot> slots; // by provider name and kind

private:
    std::string location_;
    std::string path_;
    void* handle_ = nullptr;
};

} // namespace diaghost

#endif
