#include "host/providers/ProviderManager.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <set>
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

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

bool iequals(const std::string& a, const std::string& b) {
    return a.size() == b.size() && lower(a) == lower(b);
}

std::string normalNamespace(const std::string& ns) {
    std::size_t b = ns.find_first_not_of('/');
    if (b == std::string::npos)
        return {};
    std::size_t e = ns.find_last_not_of('/');
    return lower(ns.substr(b, e - b + 1));
}

std::string indexKey(const std::string& ns, const std::string& className) {
    return normalNamespace(ns) + '\n' + lower(className);
}

std::string text(const CMPIString* s) {
    if (!s || !s->ft)
        return {};
    const char* p = s->ft->getCharPtr(s, nullptr);
    return p ? p : "";
}

bool given(const char* s) {
    return s && *s;
}

const char* orNull(const char* s) {
    return given(s) ? s : nullptr;
}

CMPIStatus status(CMPIrc rc) {
    return CMPIStatus{rc, nullptr};
}

// The MI function's answer, or CMPI_RC_ERR_NOT_SUPPORTED when the provider leaves it out.
template <class Fn, class... Args>
CMPIStatus ifServed(Fn fn, Args... args) {
    return fn ? fn(args...) : status(CMPI_RC_ERR_NOT_SUPPORTED);
}

std::string where(const ProviderRegistration& reg) {
    return reg.file + ":" + std::to_string(reg.line);
}

// Copies everything one sink received into another, in the order received, except the Done.
void forward(const ResultSink& from, ResultSink& to) {
    const CMPIResult* r = to.cmpi();
    std::size_t d = 0;
    std::size_t i = 0;
    std::size_t p = 0;
    std::size_t e = 0;
    for (ResultSink::Call call : from.calls()) {
        switch (call) {
        case ResultSink::Call::Data:
            if (d < from.data().size()) {
                const CMPIData& v = from.data()[d++];
                bool null = (v.state & CMPI_nullValue) != 0;
                r->ft->returnData(r, null ? nullptr : &v.value, v.type);
            }
            break;
        case ResultSink::Call::Instance:
            if (i < from.instances().size())
                r->ft->returnInstance(r, from.instances()[i++]);
            break;
        case ResultSink::Call::ObjectPath:
            if (p < from.paths().size())
                r->ft->returnObjectPath(r, from.paths()[p++]);
            break;
        case ResultSink::Call::Error:
            if (e < from.errors().size())
                r->ft->returnError(r, from.errors()[e++]);
            break;
        case ResultSink::Call::Done:
            break;
        }
    }
}

OperationStatus done(ResultSink& out) {
    const CMPIResult* r = out.cmpi();
    r->ft->returnDone(r);
    return OperationStatus::make(CMPI_RC_OK);
}

} // namespace

// ---- Construction, registrations, search path ------------------------------------------------

ProviderManager::ProviderManager(Broker& broker, LogSink& log)
    : broker_(broker), classes_(broker.classes()), log_(log), statics_(broker) {
    broker_.setDispatcher(this);
}

ProviderManager::~ProviderManager() {
    shutdown();
    if (broker_.dispatcher() == this)
        broker_.setDispatcher(nullptr);
}

void ProviderManager::addProviderDir(const std::string& dir) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (std::find(searchPath_.begin(), searchPath_.end(), dir) == searchPath_.end())
        searchPath_.push_back(dir);
}

std::vector<std::string> ProviderManager::providerPath() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return searchPath_;
}

void ProviderManager::loadRegistrations(const std::string& path) {
    addRegistrations(ProviderRegistration::readFile(path));
}

void ProviderManager::addRegistrations(const std::vector<ProviderRegistration>& regs) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto conflict = [](const ProviderRegistration& reg, const ProviderRegistration& other) {
        if (reg.providerName == other.providerName && reg.location != other.location)
            throw RegistrationError(reg.file, reg.line,
                                    "provider " + reg.providerName + " is located in lib" +
                                        reg.location + ".so here but in lib" + other.location +
                                        ".so at " + where(other));
        if (!iequals(reg.className, other.className) || !(reg.types & other.types))
            return;
        for (const std::string& ns : reg.namespaces)
            for (const std::string& otherNs : other.namespaces)
                if (normalNamespace(ns) == normalNamespace(otherNs)) {
                    ProviderRegistration both;
                    both.types = reg.types & other.types;
                    throw RegistrationError(reg.file, reg.line,
                                            "class " + reg.className + " in namespace " + ns +
                                                " is already registered for " + both.typeText() +
                                                " by provider " + other.providerName + " at " +
                                                where(other));
                }
    };
    for (std::size_t n = 0; n < regs.size(); ++n) {
        const ProviderRegistration& reg = regs[n];
        if (reg.className.empty() || reg.providerName.empty() || reg.location.empty() ||
            reg.types == 0 || reg.namespaces.empty())
            throw RegistrationError(reg.file, reg.line,
                                    "a registration needs a class, provider, location, type "
                                    "and namespace");
        for (const ProviderRegistration& other : registrations_)
            conflict(reg, other);
        for (std::size_t m = 0; m < n; ++m)
            conflict(reg, regs[m]);
    }
    for (const ProviderRegistration& reg : regs) {
        std::size_t idx = registrations_.size();
        registrations_.push_back(reg);
        for (const std::string& ns : reg.namespaces)
            index_[indexKey(ns, reg.className)].push_back(idx);
        if (reg.unloadNever) {
            auto it = libraries_.find(reg.location);
            if (it != libraries_.end())
                it->second->neverUnload = true;
        }
    }
}

std::vector<ProviderRegistration> ProviderManager::registrations() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {registrations_.begin(), registrations_.end()};
}

const ProviderRegistration* ProviderManager::ownLocked(const std::string& ns,
                                                       const std::string& className,
                                                       ProviderRegistration::Type type) const {
    auto it = index_.find(indexKey(ns, className));
    if (it == index_.end())
        return nullptr;
    for (std::size_t idx : it->second)
        if (registrations_[idx].serves(type))
            return &registrations_[idx];
    return nullptr;
}

const ProviderRegistration* ProviderManager::findLocked(const std::string& ns,
                                                        const std::string& className,
                                                        ProviderRegistration::Type type) const {
    std::string name = className;
    // Bounded: a repository never holds a cycle, but a bound costs nothing.
    for (int hops = 0; hops < 1024 && !name.empty(); ++hops) {
        if (const ProviderRegistration* reg = ownLocked(ns, name, type))
            return reg;
        const CimClass* cls = classes_.findClass(ns, name);
        if (!cls)
            break;
        name = cls->superclass;
    }
    return nullptr;
}

const ProviderRegistration* ProviderManager::find(const std::string& ns,
                                                  const std::string& className,
                                                  ProviderRegistration::Type type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return findLocked(ns, className, type);
}

std::optional<ProviderRegistration>
ProviderManager::providerFor(const std::string& ns, const std::string& className,
                             ProviderRegistration::Type type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (const ProviderRegistration* reg = findLocked(ns, className, type))
        return *reg;
    return std::nullopt;
}

// ---- Loading, calls in flight and unloading ------------------------------------------------

LoadedProvider& ProviderManager::libraryLocked(const std::string& location) {
    auto it = libraries_.find(location);
    if (it != libraries_.end())
        return *it->second;
    auto lib = std::make_unique<LoadedProvider>(location);
    for (const ProviderRegistration& reg : registrations_)
        if (reg.location == location && reg.unloadNever)
            lib->neverUnload = true;
    return *libraries_.emplace(location, std::move(lib)).first->second;
}

void ProviderManager::logError(const std::string& message) {
    log_.write(LogEntry{1, logId, message, false});
}

OperationStatus ProviderManager::acquire(const ProviderRegistration& reg, MiKind kind,
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
                error += " (provider " + reg.providerName + ", registered at " + where(reg) + ")";
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

void ProviderManager::release(LoadedProvider* library) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (--library->inFlight == 0)
        changed_.notify_all();
}

CMPIContext* ProviderManager::contextFor(const std::string& ns, const CMPIContext* callerCtx) {
    CMPIContext* ctx = broker_.newContext(ns);
    if (!ctx || !callerCtx || !callerCtx->ft)
        return ctx;
    // The caller's own entries (invocation flags, principal, anything a provider added) travel
    // with the request; the namespace is the one this call is about.
    CMPICount n = callerCtx->ft->getEntryCount(callerCtx, nullptr);
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData d = callerCtx->ft->getEntryAt(callerCtx, i, &name, &st);
        std::string entry = text(name);
        if (st.rc != CMPI_RC_OK || entry.empty() || entry == CMPIInitNameSpace ||
            (d.state & CMPI_nullValue))
            continue;
        ctx->ft->addEntry(ctx, entry.c_str(), &d.value, d.type);
    }
    return ctx;
}

template <class Call>
OperationStatus ProviderManager::callProvider(const ProviderRegistration& reg, MiKind kind,
                                              const std::string& ns, const CMPIContext* callerCtx,
                                              ResultSink& out, Call&& call) {
    LoadedProvider* library = nullptr;
    void* mi = nullptr;
    OperationStatus result = acquire(reg, kind, ns, library, mi);
    if (!result.ok())
        return result;
    struct Release {
        ProviderManager* manager;
        LoadedProvider* library;
        ~Release() { manager->release(library); }
    } release{this, library};
    ResultSink returned(broker_);
    returned.setRequestProperties(out);
    {
        CallScope scope(broker_);
        CMPIContext* ctx = contextFor(ns, callerCtx);
        CMPIStatus st{CMPI_RC_OK, nullptr};
        try {
            ProviderDepth depth;
            st = call(mi, ctx, returned.cmpi());
            result = OperationStatus::fromCmpi(st);
        } catch (const std::exception& e) {
            result = OperationStatus::make(CMPI_RC_ERR_FAILED,
                                           "provider " + reg.providerName + " threw: " + e.what());
        } catch (...) {
            result = OperationStatus::make(CMPI_RC_ERR_FAILED,
                                           "provider " + reg.providerName + " threw an exception");
        }
    }
    forward(returned, out);
    return result;
}

std::size_t ProviderManager::unloadIdleProviders() {
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

void ProviderManager::unloadOne(const std::string& location, std::size_t& unloaded) {
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

void ProviderManager::shutdown() {
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

bool ProviderManager::isShutDown() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return shutDown_;
}

bool ProviderManager::isLoaded(const std::string& location) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = libraries_.find(location);
    return it != libraries_.end() && it->second->state == LoadedProvider::State::Loaded;
}

std::vector<std::string> ProviderManager::loadedLibraries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (const auto& entry : libraries_)
        if (entry.second->state == LoadedProvider::State::Loaded)
            out.push_back(entry.first);
    return out;
}

unsigned ProviderManager::openCount(const std::string& location) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = libraries_.find(location);
    return it == libraries_.end() ? 0 : it->second->openCount;
}

// ---- Routing ----------------------------------------------------------------------------

OperationStatus ProviderManager::resolve(const CMPIContext* ctx, const CMPIObjectPath* op,
                                         Target& target) const {
    if (!op || !op->ft)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, "no object path given");
    target.ns = text(op->ft->getNameSpace(op, nullptr));
    if (target.ns.empty() && ctx && ctx->ft) {
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData d = ctx->ft->getEntry(ctx, CMPIInitNameSpace, &st);
        if (st.rc == CMPI_RC_OK && !(d.state & CMPI_nullValue)) {
            if (d.type == CMPI_string)
                target.ns = text(d.value.string);
            else if (d.type == CMPI_chars && d.value.chars)
                target.ns = d.value.chars;
        }
    }
    if (target.ns.empty())
        return OperationStatus::make(CMPI_RC_ERR_INVALID_NAMESPACE,
                                     "the object path names no namespace");
    if (classes_.classCount(target.ns) == 0)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_NAMESPACE,
                                     "namespace " + target.ns + " is not known");
    std::string className = text(op->ft->getClassName(op, nullptr));
    const CimClass* cls = className.empty() ? nullptr : classes_.findClass(target.ns, className);
    if (!cls)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_CLASS, "class " + className +
                                                                    " is not known in namespace " +
                                                                    target.ns);
    target.className = cls->name;
    target.path = op;
    if (text(op->ft->getNameSpace(op, nullptr)).empty()) {
        // Providers read the namespace from the path they are given.
        const CMPIBroker* mb = broker_.cmpi();
        CMPIObjectPath* copy =
            mb->eft->newObjectPath(mb, target.ns.c_str(), className.c_str(), nullptr);
        if (!copy)
            return OperationStatus::make(CMPI_RC_ERR_FAILED, "the path cannot be copied");
        std::string host = text(op->ft->getHostname(op, nullptr));
        if (!host.empty())
            copy->ft->setHostname(copy, host.c_str());
        CMPICount n = op->ft->getKeyCount(op, nullptr);
        for (CMPICount i = 0; i < n; ++i) {
            CMPIString* name = nullptr;
            CMPIData key = op->ft->getKeyAt(op, i, &name, nullptr);
            if (!(key.state & CMPI_nullValue))
                copy->ft->addKey(copy, text(name).c_str(), &key.value, key.type);
        }
        target.path = copy;
    }
    return OperationStatus::make(CMPI_RC_OK);
}

template <class Body>
OperationStatus ProviderManager::shielded(const char* operation, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        return OperationStatus::make(CMPI_RC_ERR_FAILED,
                                     std::string(operation) + " failed: " + e.what());
    } catch (...) {
        return OperationStatus::make(CMPI_RC_ERR_FAILED,
                                     std::string(operation) + " failed with an exception");
    }
}

std::vector<ProviderManager::Step> ProviderManager::enumerationSteps(const Target& target) const {
    std::vector<Step> steps;
    std::lock_guard<std::mutex> lock(mutex_);
    steps.push_back(Step{findLocked(target.ns, target.className, ProviderRegistration::Instance),
                         target.className});
    for (const std::string& sub : classes_.subclassNames(target.ns, target.className)) {
        if (const ProviderRegistration* own =
                ownLocked(target.ns, sub, ProviderRegistration::Instance))
            steps.push_back(Step{own, sub});
        else if (!findLocked(target.ns, sub, ProviderRegistration::Instance))
            steps.push_back(Step{nullptr, sub});
    }
    return steps;
}

OperationStatus ProviderManager::associationSteps(const std::string& ns, const char* assocClass,
                                                  std::vector<Step>& steps) const {
    const auto type = ProviderRegistration::Association;
    if (given(assocClass)) {
        const CimClass* cls = classes_.findClass(ns, assocClass);
        if (!cls)
            return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER,
                                         std::string("association class ") + assocClass +
                                             " is not known in namespace " + ns);
        if (!cls->association)
            return OperationStatus::make(CMPI_RC_OK);
        std::vector<std::string> subclasses = classes_.subclassNames(ns, cls->name);
        std::lock_guard<std::mutex> lock(mutex_);
        steps.push_back(Step{findLocked(ns, cls->name, type), cls->name});
        for (const std::string& sub : subclasses) {
            if (const ProviderRegistration* own = ownLocked(ns, sub, type))
                steps.push_back(Step{own, sub});
            else if (!findLocked(ns, sub, type))
                steps.push_back(Step{nullptr, sub});
        }
        return OperationStatus::make(CMPI_RC_OK);
    }
    std::vector<std::string> withInstances = statics_.classesWithInstances(ns);
    std::lock_guard<std::mutex> lock(mutex_);
    std::set<std::string> seen;
    std::string nsKey = normalNamespace(ns);
    for (const ProviderRegistration& reg : registrations_) {
        if (!reg.serves(type))
            continue;
        bool inNs = std::any_of(reg.namespaces.begin(), reg.namespaces.end(),
                                [&](const std::string& n) { return normalNamespace(n) == nsKey; });
        const CimClass* cls = inNs ? classes_.findClass(ns, reg.className) : nullptr;
        if (!cls || !cls->association || !seen.insert(lower(cls->name)).second)
            continue;
        steps.push_back(Step{&reg, cls->name});
    }
    for (const std::string& name : withInstances) {
        const CimClass* cls = classes_.findClass(ns, name);
        if (cls && cls->association && !findLocked(ns, cls->name, type) &&
            seen.insert(lower(cls->name)).second)
            steps.push_back(Step{nullptr, cls->name});
    }
    return OperationStatus::make(CMPI_RC_OK);
}

template <class Body>
OperationStatus ProviderManager::routed(const char* operation, const CMPIContext* ctx,
                                        const CMPIObjectPath* op, Body&& body) {
    return shielded(operation, [&]() -> OperationStatus {
        CallScope scope(broker_);
        Target target;
        OperationStatus resolved = resolve(ctx, op, target);
        if (!resolved.ok())
            return resolved;
        return body(target);
    });
}

template <class Call>
OperationStatus ProviderManager::callInstanceProvider(const ProviderRegistration& reg,
                                                      const Target& target, const CMPIContext* ctx,
                                                      ResultSink& out, Call&& call) {
    OperationStatus result = callProvider(reg, MiKind::Instance, target.ns, ctx, out,
                                          [&](void* mi, const CMPIContext* c, const CMPIResult* r) {
                                              return call(static_cast<CMPIInstanceMI*>(mi), c, r);
                                          });
    return result.ok() ? done(out) : result;
}

template <class Call>
OperationStatus ProviderManager::ownInstanceProvider(const Target& target, const char* verb,
                                                     const CMPIContext* ctx, ResultSink& out,
                                                     Call&& call) {
    const ProviderRegistration* reg =
        find(target.ns, target.className, ProviderRegistration::Instance);
    if (!reg)
        return OperationStatus::make(CMPI_RC_ERR_NOT_SUPPORTED, std::string("no provider ") + verb +
                                                                    " instances of " +
                                                                    target.className);
    return callInstanceProvider(*reg, target, ctx, out, std::forward<Call>(call));
}

template <class Call>
OperationStatus ProviderManager::onStepClass(const Step& step, const Target& target,
                                             const CMPIContext* ctx, ResultSink& out, Call&& call) {
    const CMPIBroker* mb = broker_.cmpi();
    return callProvider(*step.provider, MiKind::Instance, target.ns, ctx, out,
                        [&](void* mi, const CMPIContext* c, const CMPIResult* r) {
                            CMPIObjectPath* classPath = mb->eft->newObjectPath(
                                mb, target.ns.c_str(), step.className.c_str(), nullptr);
                            if (!classPath)
                                return status(CMPI_RC_ERR_FAILED);
                            return call(static_cast<CMPIInstanceMI*>(mi), c, r, classPath);
                        });
}

OperationStatus ProviderManager::enumerate(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           const char** properties, bool namesOnly,
                                           ResultSink& out) {
    out.setRequestProperties(properties);
    return routed("enumerate", ctx, op, [&](const Target& target) -> OperationStatus {
        for (const Step& step : enumerationSteps(target)) {
            OperationStatus result;
            if (!step.provider) {
                result = statics_.enumerate(target.ns, step.className, namesOnly, out);
            } else {
                result = onStepClass(
                    step, target, ctx, out,
                    [&](CMPIInstanceMI* m, const CMPIContext* c, const CMPIResult* r,
                        CMPIObjectPath* classPath) {
                        if (namesOnly)
                            return ifServed(m->ft->enumerateInstanceNames, m, c, r, classPath);
                        return ifServed(m->ft->enumerateInstances, m, c, r, classPath, properties);
                    });
            }
            if (!result.ok())
                return result;
        }
        return done(out);
    });
}

OperationStatus ProviderManager::enumerateInstanceNames(const CMPIContext* ctx,
                                                        const CMPIObjectPath* op, ResultSink& out) {
    return enumerate(ctx, op, nullptr, true, out);
}

OperationStatus ProviderManager::enumerateInstances(const CMPIContext* ctx,
                                                    const CMPIObjectPath* op,
                                                    const char** properties, ResultSink& out) {
    return enumerate(ctx, op, properties, false, out);
}

OperationStatus ProviderManager::getInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                             const char** properties, ResultSink& out) {
    out.setRequestProperties(properties);
    return routed("getInstance", ctx, op, [&](const Target& target) -> OperationStatus {
        const ProviderRegistration* reg =
            find(target.ns, target.className, ProviderRegistration::Instance);
        if (!reg) {
            OperationStatus result = statics_.getInstance(target.ns, target.path, out);
            return result.ok() ? done(out) : result;
        }
        return callInstanceProvider(
            *reg, target, ctx, out,
            [&](CMPIInstanceMI* m, const CMPIContext* c, const CMPIResult* r) {
                return ifServed(m->ft->getInstance, m, c, r, target.path, properties);
            });
    });
}

OperationStatus ProviderManager::createInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                const CMPIInstance* inst, ResultSink& out) {
    return routed("createInstance", ctx, op, [&](const Target& target) -> OperationStatus {
        if (!inst)
            return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, "no instance given");
        return ownInstanceProvider(
            target, "creates", ctx, out,
            [&](CMPIInstanceMI* m, const CMPIContext* c, const CMPIResult* r) {
                return ifServed(m->ft->createInstance, m, c, r, target.path, inst);
            });
    });
}

OperationStatus ProviderManager::modifyInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                const CMPIInstance* inst, const char** properties,
                                                ResultSink& out) {
    return routed("modifyInstance", ctx, op, [&](const Target& target) -> OperationStatus {
        if (!inst)
            return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, "no instance given");
        return ownInstanceProvider(
            target, "modifies", ctx, out,
            [&](CMPIInstanceMI* m, const CMPIContext* c, const CMPIResult* r) {
                return ifServed(m->ft->modifyInstance, m, c, r, target.path, inst, properties);
            });
    });
}

OperationStatus ProviderManager::deleteInstance(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                ResultSink& out) {
    return routed("deleteInstance", ctx, op, [&](const Target& target) -> OperationStatus {
        return ownInstanceProvider(
            target, "deletes", ctx, out,
            [&](CMPIInstanceMI* m, const CMPIContext* c, const CMPIResult* r) {
                return ifServed(m->ft->deleteInstance, m, c, r, target.path);
            });
    });
}

OperationStatus ProviderManager::execQuery(const CMPIContext* ctx, const CMPIObjectPath* op,
                                           const char* query, const char* language,
                                           ResultSink& out) {
    return routed("execQuery", ctx, op, [&](const Target& target) -> OperationStatus {
        if (!given(query) || !given(language))
            return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER,
                                         "a query needs its text and its language");
        bool anyProvider = false;
        for (const Step& step : enumerationSteps(target)) {
            if (!step.provider)
                continue;
            anyProvider = true;
            OperationStatus result = onStepClass(
                step, target, ctx, out,
                [&](CMPIInstanceMI* m, const CMPIContext* c, const CMPIResult* r,
                    CMPIObjectPath* classPath) {
                    return ifServed(m->ft->execQuery, m, c, r, classPath, query, language);
                });
            if (!result.ok())
                return result;
        }
        if (!anyProvider)
            return OperationStatus::make(CMPI_RC_ERR_NOT_SUPPORTED,
                                         "no provider answers queries on " + target.className);
        return done(out);
    });
}

OperationStatus ProviderManager::associatorsOf(const CMPIContext* ctx, const CMPIObjectPath* op,
                                               const char* assocClass, const char* resultClass,
                                               const char* role, const char* resultRole,
                                               const char** properties, bool namesOnly,
                                               ResultSink& out) {
    out.setRequestProperties(properties);
    return routed("associators", ctx, op, [&](const Target& target) -> OperationStatus {
        OperationStatus result;
        if (given(resultClass) && !classes_.findClass(target.ns, resultClass))
            return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER,
                                         std::string("result class ") + resultClass +
                                             " is not known in namespace " + target.ns);
        std::vector<Step> steps;
        result = associationSteps(target.ns, assocClass, steps);
        if (!result.ok())
            return result;
        // sfcb hands a request without an association class to each association provider once,
        // with no class.
        const bool noClass = !given(assocClass) && broker_.dialect() == PathDialect::Sfcb;
        std::set<std::string> calledWithoutClass;
        for (const Step& step : steps) {
            if (step.provider && noClass &&
                !calledWithoutClass
                     .insert(step.provider->location + "\n" + step.provider->providerName)
                     .second)
                continue;
            if (step.provider) {
                result = callProvider(
                    *step.provider, MiKind::Association, target.ns, ctx, out,
                    [&](void* mi, const CMPIContext* c, const CMPIResult* r) {
                        auto* m = static_cast<CMPIAssociationMI*>(mi);
                        const char* assoc = noClass ? nullptr : step.className.c_str();
                        if (namesOnly)
                            return ifServed(m->ft->associatorNames, m, c, r, target.path, assoc,
                                            orNull(resultClass), orNull(role), orNull(resultRole));
                        return ifServed(m->ft->associators, m, c, r, target.path, assoc,
                                        orNull(resultClass), orNull(role), orNull(resultRole),
                                        properties);
                    });
                if (!result.ok())
                    return result;
                continue;
            }
            std::vector<CMPIObjectPath*> paths;
            result = statics_.associatedPaths(target.ns, step.className, target.path, resultClass,
                                              role, resultRole, paths);
            if (!result.ok())
                return result;
            const CMPIResult* r = out.cmpi();
            for (CMPIObjectPath* path : paths) {
                if (namesOnly) {
                    r->ft->returnObjectPath(r, path);
                    continue;
                }
                ResultSink one(broker_);
                OperationStatus got = getInstance(ctx, path, properties, one);
                if (got.rc == CMPI_RC_ERR_NOT_FOUND || got.rc == CMPI_RC_ERR_INVALID_CLASS)
                    continue; // a reference to an object that does not exist is no associator
                if (!got.ok())
                    return got;
                forward(one, out);
            }
        }
        return done(out);
    });
}

OperationStatus ProviderManager::associators(const CMPIContext* ctx, const CMPIObjectPath* op,
                                             const char* assocClass, const char* resultClass,
                                             const char* role, const char* resultRole,
                                             const char** properties, ResultSink& out) {
    return associatorsOf(ctx, op, assocClass, resultClass, role, resultRole, properties, false,
                         out);
}

OperationStatus ProviderManager::associatorNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                 const char* assocClass, const char* resultClass,
                                                 const char* role, const char* resultRole,
                                                 ResultSink& out) {
    return associatorsOf(ctx, op, assocClass, resultClass, role, resultRole, nullptr, true, out);
}

OperationStatus ProviderManager::referencesOf(const CMPIContext* ctx, const CMPIObjectPath* op,
                                              const char* resultClass, const char* role,
                                              const char** properties, bool namesOnly,
                                              ResultSink& out) {
    return routed("references", ctx, op, [&](const Target& target) -> OperationStatus {
        OperationStatus result;
        std::vector<Step> steps;
        result = associationSteps(target.ns, resultClass, steps);
        if (!result.ok())
            return result;
        for (const Step& step : steps) {
            if (step.provider) {
                result = callProvider(*step.provider, MiKind::Association, target.ns, ctx, out,
                                      [&](void* mi, const CMPIContext* c, const CMPIResult* r) {
                                          auto* m = static_cast<CMPIAssociationMI*>(mi);
                                          const char* assoc = step.className.c_str();
                                          if (namesOnly)
                                              return ifServed(m->ft->referenceNames, m, c, r,
                                                              target.path, assoc, orNull(role));
                                          return ifServed(m->ft->references, m, c, r, target.path,
                                                          assoc, orNull(role), properties);
                                      });
            } else {
                result = statics_.references(target.ns, step.className, target.path, role,
                                             namesOnly, out);
            }
            if (!result.ok())
                return result;
        }
        return done(out);
    });
}

OperationStatus ProviderManager::references(const CMPIContext* ctx, const CMPIObjectPath* op,
                                            const char* resultClass, const char* role,
                                            const char** properties, ResultSink& out) {
    return referencesOf(ctx, op, resultClass, role, properties, false, out);
}

OperationStatus ProviderManager::referenceNames(const CMPIContext* ctx, const CMPIObjectPath* op,
                                                const char* resultClass, const char* role,
                                                ResultSink& out) {
    return referencesOf(ctx, op, resultClass, role, nullptr, true, out);
}

OperationStatus ProviderManager::invokeMethod(const CMPIContext* ctx, const CMPIObjectPath* op,
                                              const char* method, const CMPIArgs* in, CMPIArgs* out,
                                              ResultSink& result) {
    return routed("invokeMethod", ctx, op, [&](const Target& target) -> OperationStatus {
        OperationStatus answer;
        if (!given(method))
            return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, "no method name given");
        const ProviderRegistration* reg =
            find(target.ns, target.className, ProviderRegistration::Method);
        if (!reg)
            return OperationStatus::make(CMPI_RC_ERR_NOT_SUPPORTED,
                                         "no provider serves the methods of " + target.className +
                                             " in namespace " + target.ns);
        // Providers read their arguments without checking for null, as object managers never pass
        // it.
        const CMPIBroker* mb = broker_.cmpi();
        const CMPIArgs* inArgs = in ? in : mb->eft->newArgs(mb, nullptr);
        CMPIArgs* outArgs = out ? out : mb->eft->newArgs(mb, nullptr);
        answer = callProvider(*reg, MiKind::Method, target.ns, ctx, result,
                              [&](void* mi, const CMPIContext* c, const CMPIResult* r) {
                                  auto* m = static_cast<CMPIMethodMI*>(mi);
                                  return ifServed(m->ft->invokeMethod, m, c, r, target.path, method,
                                                  inArgs, outArgs);
                              });
        return answer.ok() ? done(result) : answer;
    });
}

} // namespace diaghost
