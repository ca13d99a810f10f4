#include "host/broker/Broker.h"

#include "host/broker/CallArena.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueText.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/DataCopy.h"
#include "host/broker/Dispatcher.h"
#include "host/broker/HostArgs.h"
#include "host/broker/HostContext.h"
#include "host/broker/HostEnumeration.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"
#include "host/broker/MemoryServices.h"
#include "host/broker/ObjectFactory.h"
#include "host/broker/OsServices.h"
#include "host/broker/ResultSink.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

namespace diaghost {

namespace {

using Placement = HostObject::Placement;

// Basic read and write, instance manipulation and association traversal (instance,
// association and method providers), the memory functions and extended errors; no property or
// indication providers, no query evaluation.
constexpr unsigned int capabilities = CMPI_MB_BasicRead | CMPI_MB_BasicWrite |
                                      CMPI_MB_InstanceManipulation | CMPI_MB_AssociationTraversal |
                                      CMPI_MB_Supports_MemEnhancements |
                                      CMPI_MB_Supports_Extended_Error;

// The broker and dispatcher for an upcall, or null with the answer in rc.
Broker* upcallBroker(const CMPIBroker* mb, const void* op, CMPIStatus* rc, Dispatcher*& d) {
    Broker* b = Broker::from(mb);
    d = nullptr;
    if (!b) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
        return nullptr;
    }
    if (!op) {
        CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
        return nullptr;
    }
    d = b->dispatcher();
    if (!d) {
        CmpiCall::set(rc, *b, CMPI_RC_ERR_NOT_SUPPORTED, "no operations are served by this broker");
        return nullptr;
    }
    return b;
}

// A provider expects a context; a caller that passes none gets a fresh one.
const CMPIContext* contextFor(Broker& b, const CMPIContext* ctx, const CMPIObjectPath* op) {
    if (ctx)
        return ctx;
    HostObjectPath* path = HostObjectPath::from(op);
    return b.newContext(path && !path->nameSpace().empty() ? path->nameSpace() : "root/cimv2");
}

void report(Broker& b, const OperationStatus& status, CMPIStatus* rc) {
    if (!rc)
        return;
    if (status.hasMessage)
        *rc = CmpiCall::status(b, status.rc, status.message);
    else
        CmpiCall::set(rc, status.rc);
}

// An enumeration in the caller's scope over the sink's copies.
template <class T>
CMPIEnumeration* enumerationOf(Broker& b, std::vector<T*> objects, CMPIType type) {
    HostEnumeration* e = nullptr;
    try {
        std::vector<CMPIData> items;
        items.reserve(objects.size());
        for (T* o : objects) {
            CMPIData d{};
            d.type = type;
            d.state = CMPI_goodValue;
            if constexpr (std::is_same_v<T, CMPIInstance>)
                d.value.inst = o;
            else
                d.value.ref = o;
            items.push_back(d);
        }
        e = HostEnumeration::create(b, std::move(items), type);
    } catch (...) {
        for (T* o : objects)
            delete HostObject::fromCmpi(o);
        throw;
    }
    std::unique_ptr<HostEnumeration> holder(e);
    e->place(Placement::Scope);
    return holder.release()->cmpi();
}

template <class T>
void releaseAll(const std::vector<T*>& objects, std::size_t from) {
    for (std::size_t i = from; i < objects.size(); ++i) {
        if (HostObject* h = HostObject::fromCmpi(objects[i]))
            h->release();
    }
}

// Runs one enumerating upcall and turns the sink into an enumeration of instances or paths.
template <class Call>
CMPIEnumeration* enumerate(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                           CMPIStatus* rc, bool paths, Call call) {
    return CmpiCall::guard(rc, static_cast<CMPIEnumeration*>(nullptr), [&]() -> CMPIEnumeration* {
        Dispatcher* d = nullptr;
        Broker* b = upcallBroker(mb, op, rc, d);
        if (!b)
            return nullptr;
        ResultSink sink(*b);
        OperationStatus status = call(*d, contextFor(*b, ctx, op), sink);
        report(*b, status, rc);
        if (!status.ok())
            return nullptr;
        if (paths)
            return enumerationOf(*b, sink.takePaths(), CMPI_ref);
        return enumerationOf(*b, sink.takeInstances(), CMPI_instance);
    });
}

CMPIContext* prepareAttachThread(const CMPIBroker* mb, const CMPIContext* ctx) {
    try {
        Broker* b = Broker::from(mb);
        HostContext* from = HostContext::from(ctx);
        if (!b || !from)
            return nullptr;
        std::unique_ptr<HostContext> copy(CmpiCall::durableCopy(*from));
        copy->setForAttachedThread();
        // The broker keeps it until the thread detaches, or until the broker goes.
        b->ownArena().adopt(copy.get());
        return copy.release()->cmpi();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return nullptr;
    }
}

CMPIStatus attachThread(const CMPIBroker* mb, const CMPIContext* ctx) {
    if (!Broker::from(mb))
        return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
    if (!ctx)
        return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
    return CmpiCall::status(CMPI_RC_OK);
}

CMPIStatus detachThread(const CMPIBroker* mb, const CMPIContext* ctx) {
    return CmpiCall::guardStatus([&] {
        if (!Broker::from(mb))
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!ctx)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        HostContext* c = HostContext::from(ctx);
        if (c && c->forAttachedThread())
            c->release();
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIStatus deliverIndication(const CMPIBroker* mb, const CMPIContext*, const char*,
                             const CMPIInstance*) {
    return CmpiCall::status(Broker::from(mb) ? CMPI_RC_ERR_NOT_SUPPORTED
                                             : CMPI_RC_ERR_INVALID_HANDLE);
}

CMPIEnumeration* enumerateInstanceNames(const CMPIBroker* mb, const CMPIContext* ctx,
                                        const CMPIObjectPath* op, CMPIStatus* rc) {
    return enumerate(mb, ctx, op, rc, true,
                     [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
                         return d.enumerateInstanceNames(c, op, sink);
                     });
}

CMPIEnumeration* enumerateInstances(const CMPIBroker* mb, const CMPIContext* ctx,
                                    const CMPIObjectPath* op, const char** properties,
                                    CMPIStatus* rc) {
    Broker* b = Broker::from(mb);
    if (b && b->injectFault(FaultHook::Function::EnumerateInstances, rc))
        return nullptr;
    return enumerate(mb, ctx, op, rc, false,
                     [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
                         return d.enumerateInstances(c, op, properties, sink);
                     });
}

CMPIEnumeration* execQuery(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                           const char* query, const char* lang, CMPIStatus* rc) {
    return enumerate(mb, ctx, op, rc, false,
                     [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
                         return d.execQuery(c, op, query, lang, sink);
                     });
}

CMPIEnumeration* associators(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                             const char* assocClass, const char* resultClass, const char* role,
                             const char* resultRole, const char** properties, CMPIStatus* rc) {
    return enumerate(mb, ctx, op, rc, false,
                     [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
                         return d.associators(c, op, assocClass, resultClass, role, resultRole,
                                              properties, sink);
                     });
}

CMPIEnumeration* associatorNames(const CMPIBroker* mb, const CMPIContext* ctx,
                                 const CMPIObjectPath* op, const char* assocClass,
                                 const char* resultClass, const char* role, const char* resultRole,
                                 CMPIStatus* rc) {
    return enumerate(
        mb, ctx, op, rc, true, [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
            return d.associatorNames(c, op, assocClass, resultClass, role, resultRole, sink);
        });
}

CMPIEnumeration* references(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                            const char* resultClass, const char* role, const char** properties,
                            CMPIStatus* rc) {
    return enumerate(mb, ctx, op, rc, false,
                     [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
                         return d.references(c, op, resultClass, role, properties, sink);
                     });
}

CMPIEnumeration* referenceNames(const CMPIBroker* mb, const CMPIContext* ctx,
                                const CMPIObjectPath* op, const char* resultClass, const char* role,
                                CMPIStatus* rc) {
    return enumerate(mb, ctx, op, rc, true,
                     [&](Dispatcher& d, const CMPIContext* c, ResultSink& sink) {
                         return d.referenceNames(c, op, resultClass, role, sink);
                     });
}

CMPIInstance* getInstance(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                          const char** properties, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIInstance*>(nullptr), [&]() -> CMPIInstance* {
        Dispatcher* d = nullptr;
        Broker* b = upcallBroker(mb, op, rc, d);
        if (!b)
            return nullptr;
        ResultSink sink(*b);
        OperationStatus status = d->getInstance(contextFor(*b, ctx, op), op, properties, sink);
        report(*b, status, rc);
        if (!status.ok())
            return nullptr;
        std::vector<CMPIInstance*> found = sink.takeInstances();
        releaseAll(found, 1);
        if (found.empty()) {
            CmpiCall::set(rc, CMPI_RC_ERR_NOT_FOUND);
            return nullptr;
        }
        HostInstance* first = HostInstance::from(found.front());
        std::unique_ptr<HostInstance> holder(first);
        first->place(Placement::Scope);
        return holder.release()->cmpi();
    });
}

CMPIObjectPath* createInstance(const CMPIBroker* mb, const CMPIContext* ctx,
                               const CMPIObjectPath* op, const CMPIInstance* inst, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIObjectPath*>(nullptr), [&]() -> CMPIObjectPath* {
        Dispatcher* d = nullptr;
        Broker* b = upcallBroker(mb, op, rc, d);
        if (!b)
            return nullptr;
        if (!inst) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        ResultSink sink(*b);
        OperationStatus status = d->createInstance(contextFor(*b, ctx, op), op, inst, sink);
        report(*b, status, rc);
        if (!status.ok())
            return nullptr;
        std::vector<CMPIObjectPath*> made = sink.takePaths();
        releaseAll(made, 1);
        if (made.empty())
            return nullptr;
        HostObjectPath* first = HostObjectPath::from(made.front());
        std::unique_ptr<HostObjectPath> holder(first);
        first->place(Placement::Scope);
        return holder.release()->cmpi();
    });
}

CMPIStatus modifyInstance(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                          const CMPIInstance* inst, const char** properties) {
    return CmpiCall::guardStatus([&] {
        CMPIStatus rc = CmpiCall::status(CMPI_RC_OK);
        Dispatcher* d = nullptr;
        Broker* b = upcallBroker(mb, op, &rc, d);
        if (!b)
            return rc;
        if (!inst)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        ResultSink sink(*b);
        report(*b, d->modifyInstance(contextFor(*b, ctx, op), op, inst, properties, sink), &rc);
        return rc;
    });
}

CMPIStatus deleteInstance(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op) {
    return CmpiCall::guardStatus([&] {
        CMPIStatus rc = CmpiCall::status(CMPI_RC_OK);
        Dispatcher* d = nullptr;
        Broker* b = upcallBroker(mb, op, &rc, d);
        if (!b)
            return rc;
        ResultSink sink(*b);
        report(*b, d->deleteInstance(contextFor(*b, ctx, op), op, sink), &rc);
        return rc;
    });
}

CMPIData invokeMethod(const CMPIBroker* mb, const CMPIContext* ctx, const CMPIObjectPath* op,
                      const char* method, const CMPIArgs* in, CMPIArgs* out, CMPIStatus* rc) {
    const CMPIData none = DataCopy::null(CMPI_null);
    return CmpiCall::guard(rc, none, [&]() -> CMPIData {
        Dispatcher* d = nullptr;
        Broker* b = upcallBroker(mb, op, rc, d);
        if (!b)
            return none;
        if (!method) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return none;
        }
        std::unique_ptr<HostArgs> emptyIn;
        if (!in) {
            emptyIn.reset(HostArgs::create(*b));
            in = emptyIn->cmpi();
        }
        std::unique_ptr<HostArgs> outArgs(HostArgs::create(*b));
        ResultSink sink(*b);
        OperationStatus status =
            d->invokeMethod(contextFor(*b, ctx, op), op, method, in, outArgs->cmpi(), sink);
        report(*b, status, rc);
        if (!status.ok())
            return none;
        if (HostArgs* callerOut = HostArgs::from(out)) {
            const NamedValues& values = outArgs->values();
            for (std::size_t i = 0; i < values.size(); ++i) {
                const CMPIData& v = values.at(i);
                callerOut->values().add(*b, values.nameAt(i).c_str(),
                                        (v.state & CMPI_nullValue) ? nullptr : &v.value, v.type);
            }
        }
        if (sink.data().empty())
            return none;
        CMPIData result{};
        DataCopy::copy(*b, sink.data().front(), Placement::Scope, result);
        return result;
    });
}

CMPIStatus setProperty(const CMPIBroker* mb, const CMPIContext*, const CMPIObjectPath*, const char*,
                       const CMPIValue*, CMPIType) {
    return CmpiCall::status(Broker::from(mb) ? CMPI_RC_ERR_NOT_SUPPORTED
                                             : CMPI_RC_ERR_INVALID_HANDLE);
}

CMPIData getProperty(const CMPIBroker* mb, const CMPIContext*, const CMPIObjectPath*, const char*,
                     CMPIStatus* rc) {
    CmpiCall::set(rc, Broker::from(mb) ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_ERR_INVALID_HANDLE);
    return CmpiCall::notFound();
}

CMPIBrokerFT brokerTable = {
    capabilities, CMPIVersion200,     "diaghost",        prepareAttachThread,
    attachThread, detachThread,       deliverIndication, enumerateInstanceNames,
    getInstance,  createInstance,     modifyInstance,    deleteInstance,
    execQuery,    enumerateInstances, associators,       associatorNames,
    references,   referenceNames,     invokeMethod,      setProperty,
    getProperty};

} // namespace

struct Broker::Impl {
    Impl(Broker& self, const ClassRepository& classes, LogSink& log, PathDialect dialect)
        : cmpi{&self, &brokerTable, ObjectFactory::table(), OsServices::table(),
               MemoryServices::table()},
          classes(classes), log(log), dialect(dialect), arena(self, true) {}

    CMPIBroker cmpi;
    const ClassRepository& classes;
    LogSink& log;
    const PathDialect dialect;
    std::atomic<Dispatcher*> dispatcher{nullptr};
    std::atomic<bool> strict{false};
    mutable std::mutex clockMutex;
    Clock clock;
    CallArena arena;
    std::atomic<FaultHook*> faults{nullptr};
};

Broker::Broker(const ClassRepository& classes, LogSink& log, PathDialect dialect)
    : impl_(std::make_unique<Impl>(*this, classes, log, dialect)) {}

Broker::~Broker() {
    impl_->arena.clear();
}

const CMPIBroker* Broker::cmpi() const {
    return &impl_->cmpi;
}

Broker* Broker::from(const CMPIBroker* broker) {
    if (!broker || broker->bft != &brokerTable)
        return nullptr;
    return static_cast<Broker*>(broker->hdl);
}

PathDialect Broker::dialect() const {
    return impl_->dialect;
}
const ClassRepository& Broker::classes() const {
    return impl_->classes;
}
LogSink& Broker::log() const {
    return impl_->log;
}

void Broker::setClock(Clock clock) {
    std::lock_guard<std::mutex> lock(impl_->clockMutex);
    impl_->clock = std::move(clock);
}

std::chrono::system_clock::time_point Broker::now() const {
    std::lock_guard<std::mutex> lock(impl_->clockMutex);
    return impl_->clock ? impl_->clock() : std::chrono::system_clock::now();
}

void Broker::setStrict(bool strict) {
    impl_->strict.store(strict);
}

bool Broker::strict() const {
    return impl_->strict.load();
}

void Broker::setDispatcher(Dispatcher* dispatcher) {
    impl_->dispatcher.store(dispatcher);
}
Dispatcher* Broker::dispatcher() const {
    return impl_->dispatcher.load();
}

CallArena& Broker::ownArena() {
    return impl_->arena;
}

void Broker::setFaultHook(FaultHook* hook) {
    impl_->faults.store(hook, std::memory_order_release);
}

bool Broker::injectFault(FaultHook::Function f, CMPIStatus* rc) {
    FaultHook* hook = impl_->faults.load(std::memory_order_acquire);
    if (!hook || !hook->shouldFail(f))
        return false;
    CmpiCall::set(rc, *this, CMPI_RC_ERR_FAILED,
                  std::string("injected fault: ") + FaultHook::name(f));
    return true;
}

CMPIContext* Broker::newContext(const std::string& ns) {
    std::unique_ptr<HostContext> ctx(HostContext::create(*this));
    NamedValues& v = ctx->values();
    auto chars = [](const char* text) { return reinterpret_cast<const CMPIValue*>(text); };
    v.add(*this, CMPIInitNameSpace, chars(ns.c_str()), CMPI_chars);
    CMPIValue flags{};
    flags.uint32 = 0;
    v.add(*this, CMPIInvocationFlags, &flags, CMPI_uint32);
    v.add(*this, CMPIPrincipal, chars("root"), CMPI_chars);
    ctx->place(HostObject::Placement::Scope);
    return ctx.release()->cmpi();
}

CMPIContext* Broker::newContext(const std::string& ns, const CMPIContext* callerCtx) {
    CMPIContext* ctx = newContext(ns);
    if (!ctx || !callerCtx || !callerCtx->ft)
        return ctx;
    // The caller's own entries (invocation flags, principal, anything a provider added) travel
    // with the request; the namespace is the one this call is about.
    CMPICount n = callerCtx->ft->getEntryCount(callerCtx, nullptr);
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData d = callerCtx->ft->getEntryAt(callerCtx, i, &name, &st);
        std::string entry = CimValueText::text(name);
        if (st.rc != CMPI_RC_OK || entry.empty() || entry == CMPIInitNameSpace ||
            (d.state & CMPI_nullValue))
            continue;
        ctx->ft->addEntry(ctx, entry.c_str(), &d.value, d.type);
    }
    return ctx;
}

} // namespace diaghost
