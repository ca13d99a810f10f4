#include "host/providers/ProviderManager.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueText.h"
#include "host/broker/LogSink.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <set>
#include <utility>

namespace diaghost {

namespace {

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

OperationStatus done(ResultSink& out) {
    const CMPIResult* r = out.cmpi();
    r->ft->returnDone(r);
    return OperationStatus::make(CMPI_RC_OK);
}

} // namespace

// ---- Construction, registrations, search path ------------------------------------------------

ProviderManager::ProviderManager(Broker& broker, LogSink& log)
    : broker_(broker), classes_(broker.classes()), statics_(broker), libraries_(broker, log),
      registrations_(classes_) {
    broker_.setDispatcher(this);
}

ProviderManager::~ProviderManager() {
    shutdown();
    if (broker_.dispatcher() == this)
        broker_.setDispatcher(nullptr);
}

void ProviderManager::addProviderDir(const std::string& dir) {
    libraries_.addProviderDir(dir);
}

std::vector<std::string> ProviderManager::providerPath() const {
    return libraries_.providerPath();
}

void ProviderManager::loadRegistrations(const std::string& path) {
    addRegistrations(ProviderRegistration::readFile(path));
}

void ProviderManager::addRegistrations(const std::vector<ProviderRegistration>& regs) {
    registrations_.add(regs);
    for (const ProviderRegistration& reg : regs)
        if (reg.unloadNever)
            libraries_.keepLoaded(reg.location);
}

std::vector<ProviderRegistration> ProviderManager::registrations() const {
    return registrations_.all();
}

std::optional<ProviderRegistration>
ProviderManager::providerFor(const std::string& ns, const std::string& className,
                             ProviderRegistration::Type type) const {
    if (const ProviderRegistration* reg = registrations_.find(ns, className, type))
        return *reg;
    return std::nullopt;
}

// ---- Loading, calls in flight and unloading ------------------------------------------------

template <class Call>
OperationStatus ProviderManager::callProvider(const ProviderRegistration& reg, MiKind kind,
                                              const std::string& ns, const CMPIContext* callerCtx,
                                              ResultSink& out, Call&& call) {
    return libraries_.withMi(reg, kind, ns, [&](void* mi) {
        // The provider's answers are copied once, into a sink of this call, so that its Done and
        // a failing call's partial answers stay apart from other steps'; they then move to `out`.
        ResultSink returned(broker_);
        returned.setRequestProperties(out);
        OperationStatus result;
        {
            CallScope scope(broker_);
            CMPIContext* ctx = broker_.newContext(ns, callerCtx);
            try {
                result = OperationStatus::fromCmpi(call(mi, ctx, returned.cmpi()));
            } catch (const std::exception& e) {
                result = OperationStatus::make(CMPI_RC_ERR_FAILED, "provider " + reg.providerName +
                                                                       " threw: " + e.what());
            } catch (...) {
                result = OperationStatus::make(CMPI_RC_ERR_FAILED, "provider " + reg.providerName +
                                                                       " threw an exception");
            }
        }
        out.takeFrom(returned);
        return result;
    });
}

// ---- Lifecycle ------------------------------------------------------------------------------

std::size_t ProviderManager::unloadIdleProviders() {
    return libraries_.unloadIdle();
}

void ProviderManager::shutdown() {
    libraries_.shutdown();
}

bool ProviderManager::isShutDown() const {
    return libraries_.isShutDown();
}

bool ProviderManager::isLoaded(const std::string& location) const {
    return libraries_.isLoaded(location);
}

std::vector<std::string> ProviderManager::loadedLibraries() const {
    return libraries_.loadedLibraries();
}

unsigned ProviderManager::openCount(const std::string& location) const {
    return libraries_.openCount(location);
}

// ---- Routing ----------------------------------------------------------------------------

OperationStatus ProviderManager::resolve(const CMPIContext* ctx, const CMPIObjectPath* op,
                                         Target& target) const {
    if (!op || !op->ft)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, "no object path given");
    target.ns = CimValueText::text(op->ft->getNameSpace(op, nullptr));
    if (target.ns.empty() && ctx && ctx->ft) {
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData d = ctx->ft->getEntry(ctx, CMPIInitNameSpace, &st);
        if (st.rc == CMPI_RC_OK && !(d.state & CMPI_nullValue)) {
            if (d.type == CMPI_string)
                target.ns = CimValueText::text(d.value.string);
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
    std::string className = CimValueText::text(op->ft->getClassName(op, nullptr));
    const CimClass* cls = className.empty() ? nullptr : classes_.findClass(target.ns, className);
    if (!cls)
        return OperationStatus::make(CMPI_RC_ERR_INVALID_CLASS, "class " + className +
                                                                    " is not known in namespace " +
                                                                    target.ns);
    target.className = cls->name;
    target.path = op;
    if (CimValueText::text(op->ft->getNameSpace(op, nullptr)).empty()) {
        // Providers read the namespace from the path they are given.
        const CMPIBroker* mb = broker_.cmpi();
        CMPIObjectPath* copy =
            mb->eft->newObjectPath(mb, target.ns.c_str(), className.c_str(), nullptr);
        if (!copy)
            return OperationStatus::make(CMPI_RC_ERR_FAILED, "the path cannot be copied");
        std::string host = CimValueText::text(op->ft->getHostname(op, nullptr));
        if (!host.empty())
            copy->ft->setHostname(copy, host.c_str());
        CMPICount n = op->ft->getKeyCount(op, nullptr);
        for (CMPICount i = 0; i < n; ++i) {
            CMPIString* name = nullptr;
            CMPIData key = op->ft->getKeyAt(op, i, &name, nullptr);
            if (!(key.state & CMPI_nullValue))
                copy->ft->addKey(copy, CimValueText::text(name).c_str(), &key.value, key.type);
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
    steps.push_back(
        Step{registrations_.find(target.ns, target.className, ProviderRegistration::Instance),
             target.className});
    for (const std::string& sub : classes_.subclassNames(target.ns, target.className)) {
        if (const ProviderRegistration* own =
                registrations_.own(target.ns, sub, ProviderRegistration::Instance))
            steps.push_back(Step{own, sub});
        else if (!registrations_.find(target.ns, sub, ProviderRegistration::Instance))
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
        steps.push_back(Step{registrations_.find(ns, cls->name, type), cls->name});
        for (const std::string& sub : subclasses) {
            if (const ProviderRegistration* own = registrations_.own(ns, sub, type))
                steps.push_back(Step{own, sub});
            else if (!registrations_.find(ns, sub, type))
                steps.push_back(Step{nullptr, sub});
        }
        return OperationStatus::make(CMPI_RC_OK);
    }
    std::vector<std::string> withInstances = statics_.classesWithInstances(ns);
    std::set<std::string> seen;
    for (const ProviderRegistration* reg : registrations_.servingIn(ns, type)) {
        const CimClass* cls = classes_.findClass(ns, reg->className);
        if (!cls || !cls->association || !seen.insert(lowerName(cls->name)).second)
            continue;
        steps.push_back(Step{reg, cls->name});
    }
    for (const std::string& name : withInstances) {
        const CimClass* cls = classes_.findClass(ns, name);
        if (cls && cls->association && !registrations_.find(ns, cls->name, type) &&
            seen.insert(lowerName(cls->name)).second)
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
        registrations_.find(target.ns, target.className, ProviderRegistration::Instance);
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
            registrations_.find(target.ns, target.className, ProviderRegistration::Instance);
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
            // A stream that wants no more (its client went away) ends the loop.
            const OperationStatus unwanted =
                OperationStatus::make(CMPI_RC_ERR_FAILED, "no more answers are wanted");
            for (CMPIObjectPath* path : paths) {
                if (namesOnly) {
                    if (r->ft->returnObjectPath(r, path).rc != CMPI_RC_OK)
                        return unwanted;
                    continue;
                }
                ResultSink one(broker_);
                OperationStatus got = getInstance(ctx, path, properties, one);
                if (got.rc == CMPI_RC_ERR_NOT_FOUND || got.rc == CMPI_RC_ERR_INVALID_CLASS)
                    continue; // a reference to an object that does not exist is no associator
                if (!got.ok())
                    return got;
                if (!out.takeFrom(one))
                    return unwanted;
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
            registrations_.find(target.ns, target.className, ProviderRegistration::Method);
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
