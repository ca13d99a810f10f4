#include "host/providers/ProviderLibraries.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"

#include <cmpift.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace diaghost {

namespace {

const char* const logId = "host.providers";

// How many provider functions (factories, operations, cleanups) run on this thread right now.
thread_local int tProviderDepth = 0;

struct ProviderDepth {
    ProviderDepth() { ++tProviderDepth; }
    ~ProviderDepth() { --tProviderDepth; }
    ProviderDepth(const ProviderDepth&) = delete;
    ProviderDepth& operator=(const ProviderDepth&) = delete;
};

} // namespace

ProviderLibraries::ProviderLibraries(Broker& broker, LogSink& log) : broker_(broker), log_(log) {}

ProviderLibraries::~ProviderLibraries() {
    shutdown();
}

void ProviderLibraries::addProviderDir(const std::string& dir) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (std::find(searchPath_.begin(), searchPath_.end(), dir) == searchPath_.end())
        searchPath_.push_back(dir);
}

std::vector<std::string> ProviderLibraries::providerPath() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return searchPath_;
}

void ProviderLibraries::keepLoaded(const std::string& location) {
    std::lock_guard<std::mutex> lock(mutex_);
    keptLoaded_.insert(location);
    auto it = libraries_.find(location);
    if (it != libraries_.end())
        it->second->neverUnload = true;
}

ProviderLibraries::Held::Held(ProviderLibraries& owner, LoadedProvider* library)
    : owner_(owner), library_(library) {
    ++tProviderDepth;
}

ProviderLibraries::Held::~Held() {
    --tProviderDepth;
    owner_.release(library_);
}

LoadedProvider& ProviderLibraries::libraryLocked(const std::string& location) {
    auto it = libraries_.find(location);
    if (it != libraries_.end())
        return *it->second;
    auto lib = std::make_unique<LoadedProvider>(location);
    if (keptLoaded_.count(location))
        lib->neverUnload = true;
    return *libraries_.emplace(location, std::move(lib)).first->second;
}

void ProviderLibraries::logError(const std::string& message) {
    log_.write(LogEntry{1, logId, message, false});
}

OperationStatus ProviderLibraries::acquire(const ProviderRegistration& reg, MiKind kind,
                                           const std::string& ns, LoadedProvider*& library,
                                           void*& mi) {
    const std::thread::id me = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        if (shuttingDown_ || shutDown_)
            return OperationStatus::make(CMPI_RC_ERR_FAILED, "provider " + reg.providerName +
                                                                 " cannot be called: the host "
                                                                 "is shut down");
        LoadedProvider& lib = libraryLocked(reg.location);
        if (lib.state == LoadedProvider::State::Loading ||
            lib.state == LoadedProvider::State::Unloading) {
            if (lib.busyThread == me)
                return OperationStatus::make(CMPI_RC_ERR_FAILED,
                                             "provider library " + lib.fileName() +
                                                 " was called while it is being loaded or "
                                                 "unloaded on the same thread");
            changed_.wait(lock);
            continue;
        }
        if (lib.state == LoadedProvider::State::Unloaded) {
            lib.state = LoadedProvider::State::Loading;
            lib.busyThread = me;
            std::vector<std::string> path = searchPath_;
            lock.unlock();
            std::string error;
            bool opened = lib.open(path, error);
            lock.lock();
            lib.state = opened ? LoadedProvider::State::Loaded : LoadedProvider::State::Unloaded;
            lib.busyThread = std::thread::id();
            if (opened)
                ++lib.openCount;
            changed_.notify_all();
            if (!opened) {
                lock.unlock();
                error += " (provider " + reg.providerName + ", registered at " + reg.where() + ")";
                logError(error);
                return OperationStatus::make(CMPI_RC_ERR_FAILED, error);
            }
            continue;
        }
        LoadedProvider::MiSlot& slot = lib.slots[{reg.providerName, kind}];
        if (slot.mi) {
            ++lib.inFlight;
            library = &lib;
            mi = slot.mi;
            return OperationStatus::make(CMPI_RC_OK);
        }
        if (slot.creating) {
            if (slot.creator == me)
                return OperationStatus::make(CMPI_RC_ERR_FAILED,
                                             "provider " + reg.providerName +
                                                 " was called from inside its own MI factory");
            changed_.wait(lock);
            continue;
        }
        if (lib.factoryThread != std::thread::id() && lib.factoryThread != me) {
            changed_.wait(lock);
            continue;
        }
        bool firstFactory = lib.factoryThread == std::thread::id();
        lib.factoryThread = me;
        slot.creating = true;
        slot.creator = me;
        slot.nameSpace = ns;
        ++lib.inFlight; // keeps the library loaded while its factory runs
        lock.unlock();
        OperationStatus made;
        void* created = nullptr;
        {
            CallScope scope(broker_);
            CMPIContext* ctx = broker_.newContext(ns);
            ProviderDepth depth;
            created = lib.createMi(reg.providerName, kind, broker_.cmpi(), ctx, made);
        }
        lock.lock();
        if (firstFactory)
            lib.factoryThread = std::thread::id();
        slot.creating = false;
        slot.creator = std::thread::id();
        slot.mi = created;
        changed_.notify_all();
        if (!created) {
            if (--lib.inFlight == 0)
                changed_.notify_all();
            lock.unlock();
            logError(made.message);
            return made;
        }
        library = &lib;
        mi = created;
        return OperationStatus::make(CMPI_RC_OK);
    }
}

void ProviderLibraries::release(LoadedProvider* library) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (--library->inFlight == 0)
        changed_.notify_all();
}

std::size_t ProviderLibraries::unloadIdle() {
    std::vector<std::string> locations;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (shuttingDown_ || shutDown_)
            return 0;
        for (const auto& entry : libraries_)
            locations.push_back(entry.first);
    }
    std::size_t unloaded = 0;
    for (const std::string& location : locations)
        unloadOne(location, unloaded);
    return unloaded;
}

void ProviderLibraries::unloadOne(const std::string& location, std::size_t& unloaded) {
    struct Offer {
        std::pair<std::string, MiKind> key;
        void* mi;
        std::string ns;
        OperationStatus answer;
    };
    std::unique_lock<std::mutex> lock(mutex_);
    auto it = libraries_.find(location);
    if (it == libraries_.end())
        return;
    LoadedProvider& lib = *it->second;
    if (shuttingDown_ || shutDown_ || lib.state != LoadedProvider::State::Loaded ||
        lib.inFlight > 0 || lib.neverUnload)
        return;
    lib.state = LoadedProvider::State::Unloading;
    lib.busyThread = std::this_thread::get_id();
    std::vector<Offer> offers;
    for (const auto& [key, slot] : lib.slots)
        if (slot.mi)
            offers.push_back(Offer{key, slot.mi, slot.nameSpace, {}});
    lock.unlock();

    bool agreed = true;
    bool never = false;
    for (Offer& offer : offers) {
        {
            CallScope scope(broker_);
            CMPIContext* ctx = broker_.newContext(offer.ns);
            ProviderDepth depth;
            offer.answer = LoadedProvider::cleanupMi(offer.mi, offer.key.second, ctx, false);
        }
        if (offer.answer.ok())
            continue;
        agreed = false;
        if (offer.answer.rc == CMPI_RC_NEVER_UNLOAD)
            never = true;
        else if (offer.answer.rc != CMPI_RC_DO_NOT_UNLOAD)
            log_.write(LogEntry{3, logId,
                                "cleanup of " + offer.key.first + " (" +
                                    LoadedProvider::kindName(offer.key.second) + " MI) answered " +
                                    rcName(offer.answer.rc) + " " + offer.answer.message +
                                    "; the library stays loaded",
                                false});
    }
    if (agreed)
        lib.close();

    lock.lock();
    if (agreed) {
        lib.slots.clear();
        lib.state = LoadedProvider::State::Unloaded;
        ++unloaded;
    } else {
        // An MI that agreed has cleaned up; the next call makes it afresh.
        for (const Offer& offer : offers)
            if (offer.answer.ok())
                lib.slots.erase(offer.key);
        lib.state = LoadedProvider::State::Loaded;
        if (never)
            lib.neverUnload = true;
    }
    lib.busyThread = std::thread::id();
    changed_.notify_all();
    lock.unlock();
    if (agreed)
        log_.write(LogEntry{2, logId, "provider library " + lib.fileName() + " unloaded", false});
}

void ProviderLibraries::shutdown() {
    if (tProviderDepth > 0) {
        logError("shutdown refused: it was asked for from inside a provider call");
        return;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    if (shutDown_)
        return;
    if (shuttingDown_) {
        changed_.wait(lock, [this] { return shutDown_; });
        return;
    }
    shuttingDown_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] {
        for (const auto& entry : libraries_) {
            const LoadedProvider& lib = *entry.second;
            if (lib.inFlight > 0 || lib.state == LoadedProvider::State::Loading ||
                lib.state == LoadedProvider::State::Unloading)
                return false;
        }
        return true;
    });
    for (auto& entry : libraries_) {
        LoadedProvider& lib = *entry.second;
        if (lib.state != LoadedProvider::State::Loaded)
            continue;
        lib.state = LoadedProvider::State::Unloading;
        lib.busyThread = std::this_thread::get_id();
        std::vector<std::pair<std::pair<std::string, MiKind>, LoadedProvider::MiSlot>> slots(
            lib.slots.begin(), lib.slots.end());
        lock.unlock();
        for (const auto& [key, slot] : slots) {
            if (!slot.mi)
                continue;
            OperationStatus answer;
            {
                CallScope scope(broker_);
                CMPIContext* ctx = broker_.newContext(slot.nameSpace);
                ProviderDepth depth;
                answer = LoadedProvider::cleanupMi(slot.mi, key.second, ctx, true);
            }
            if (!answer.ok())
                log_.write(LogEntry{
                    3, logId,
                    "cleanup of " + key.first + " (" + LoadedProvider::kindName(key.second) +
                        " MI) at shutdown answered " + rcName(answer.rc) + " " + answer.message,
                    false});
        }
        lib.close();
        lock.lock();
        lib.slots.clear();
        lib.state = LoadedProvider::State::Unloaded;
        lib.busyThread = std::thread::id();
    }
    shuttingDown_ = false;
    shutDown_ = true;
    changed_.notify_all();
}

bool ProviderLibraries::isShutDown() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return shutDown_;
}

bool ProviderLibraries::isLoaded(const std::string& location) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = libraries_.find(location);
    return it != libraries_.end() && it->second->state == LoadedProvider::State::Loaded;
}

std::vector<std::string> ProviderLibraries::loadedLibraries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (const auto& entry : libraries_)
        if (entry.second->state == LoadedProvider::State::Loaded)
            out.push_back(entry.first);
    return out;
}

unsigned ProviderLibraries::openCount(const std::string& location) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = libraries_.find(location);
    return it == libraries_.end() ? 0 : it->second->openCount;
}

} // namespace diaghost
