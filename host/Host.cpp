#include "host/Host.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueCodec.h"
#include "host/broker/CimValueText.h"
#include "host/broker/LogSink.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"
#include "host/providers/OtherThreadDispatcher.h"
#include "host/providers/ProviderManager.h"
#include "host/text/ObjectPathText.h"

#include <cmpift.h>

#include <iostream>

namespace diaghost {

namespace {

const char* orNull(const std::string& s) {
    return s.empty() ? nullptr : s.c_str();
}

// A property list as CMPI passes it: the names, then a null.
std::vector<const char*> listOf(const std::vector<std::string>& properties) {
    std::vector<const char*> list;
    for (const std::string& p : properties)
        list.push_back(p.c_str());
    list.push_back(nullptr);
    return list;
}

std::string text(const CMPIString* s) {
    if (!s || !s->ft)
        return {};
    const char* p = s->ft->getCharPtr(s, nullptr);
    return p ? p : "";
}

std::string namespaceOf(const CMPIObjectPath* path) {
    if (!path || !path->ft)
        return {};
    return text(path->ft->getNameSpace(path, nullptr));
}

OperationResult noPath(Broker& broker) {
    OperationResult result(broker);
    result.status = OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, "no object path given");
    return result;
}

} // namespace

Host::Host() : Host(Options{}) {}

Host::Host(Options options)
    : dialect_(options.dialect), classes_(std::make_unique<ClassRepository>()),
      log_(std::make_unique<LogSink>(options.logCapacity)),
      broker_(std::make_unique<Broker>(*classes_, *log_, options.dialect)),
      providers_(std::make_unique<ProviderManager>(*broker_, *log_)) {
    broker_->setStrict(options.strict);
    if (options.upcallsOnOtherThread) {
        upcalls_ = std::make_unique<OtherThreadDispatcher>(*providers_);
        broker_->setDispatcher(upcalls_.get());
    }
    for (const std::string& dir : options.providerPath)
        providers_->addProviderDir(dir);
    if (options.logEchoLevel > 0)
        log_->echoTo(options.logEcho ? options.logEcho : &std::cerr, options.logEchoLevel);
}

Host::~Host() {
    providers_->shutdown();
    if (upcalls_)
        broker_->setDispatcher(nullptr);
}

void Host::loadMof(const std::string& path, const std::string& ns) {
    classes_->loadFile(path, ns);
}

void Host::loadRegistrations(const std::string& path) {
    providers_->loadRegistrations(path);
}

void Host::addProviderDir(const std::string& dir) {
    providers_->addProviderDir(dir);
}

std::size_t Host::unloadIdleProviders() {
    return providers_->unloadIdleProviders();
}

void Host::shutdown() {
    providers_->shutdown();
}

// Runs op(ctx, path, sink) in a scope of its own with a context naming the path's namespace.
template <class Op>
OperationResult Host::run(const CMPIObjectPath* path, Op&& op, ResultSink::Stream* stream) {
    if (!path || !path->ft)
        return noPath(*broker_);
    OperationResult result(*broker_);
    result.sink().streamTo(stream);
    CallScope scope(*broker_);
    std::string ns = namespaceOf(path);
    CMPIContext* ctx = broker_->newContext(ns.empty() ? defaultNamespace() : ns);
    result.status = op(ctx, path, result);
    return result;
}

template <class Use>
OperationResult Host::onPathText(const std::string& pathText, Use&& use) {
    CallScope scope(*broker_);
    CMPIObjectPath* path = nullptr;
    try {
        path = parsePath(pathText, defaultNamespace());
    } catch (const ObjectPathError& e) {
        OperationResult result(*broker_);
        result.status = OperationStatus::make(CMPI_RC_ERR_INVALID_PARAMETER, e.what());
        return result;
    }
    return use(path);
}

template <class Op>
OperationResult Host::runText(const std::string& pathText, Op&& op) {
    return onPathText(pathText,
                      [&](CMPIObjectPath* path) { return run(path, std::forward<Op>(op)); });
}

OperationResult Host::enumerateInstances(const std::string& ns, const std::string& className,
                                         ResultSink::Stream* stream) {
    CallScope scope(*broker_);
    const CMPIBroker* mb = broker_->cmpi();
    CMPIObjectPath* path = mb->eft->newObjectPath(mb, ns.c_str(), className.c_str(), nullptr);
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->enumerateInstances(ctx, op, nullptr, r.sink());
        },
        stream);
}

OperationResult Host::enumerateInstances(const std::string& ns, const std::string& className,
                                         const std::vector<std::string>& properties,
                                         ResultSink::Stream* stream) {
    CallScope scope(*broker_);
    const CMPIBroker* mb = broker_->cmpi();
    CMPIObjectPath* path = mb->eft->newObjectPath(mb, ns.c_str(), className.c_str(), nullptr);
    std::vector<const char*> list = listOf(properties);
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->enumerateInstances(ctx, op, list.data(), r.sink());
        },
        stream);
}

OperationResult Host::enumerateInstanceNames(const std::string& ns, const std::string& className,
                                             ResultSink::Stream* stream) {
    CallScope scope(*broker_);
    const CMPIBroker* mb = broker_->cmpi();
    CMPIObjectPath* path = mb->eft->newObjectPath(mb, ns.c_str(), className.c_str(), nullptr);
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->enumerateInstanceNames(ctx, op, r.sink());
        },
        stream);
}

OperationResult Host::getInstance(const CMPIObjectPath* path) {
    return run(path, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
        return providers_->getInstance(ctx, op, nullptr, r.sink());
    });
}

OperationResult Host::getInstance(const std::string& pathText) {
    return runText(pathText,
                   [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
                       return providers_->getInstance(ctx, op, nullptr, r.sink());
                   });
}

OperationResult Host::getInstance(const std::string& pathText,
                                  const std::vector<std::string>& properties) {
    std::vector<const char*> list = listOf(properties);
    return runText(pathText,
                   [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
                       return providers_->getInstance(ctx, op, list.data(), r.sink());
                   });
}

OperationResult Host::getInstance(const CMPIObjectPath* path,
                                  const std::vector<std::string>& properties) {
    std::vector<const char*> list = listOf(properties);
    return run(path, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
        return providers_->getInstance(ctx, op, list.data(), r.sink());
    });
}

OperationResult Host::createInstance(const CMPIInstance* instance) {
    if (!instance || !instance->ft)
        return noPath(*broker_);
    CallScope scope(*broker_);
    CMPIObjectPath* path = instance->ft->getObjectPath(instance, nullptr);
    return run(path, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
        return providers_->createInstance(ctx, op, instance, r.sink());
    });
}

OperationResult Host::deleteInstance(const CMPIObjectPath* path) {
    return run(path, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
        return providers_->deleteInstance(ctx, op, r.sink());
    });
}

OperationResult Host::deleteInstance(const std::string& pathText) {
    return runText(pathText,
                   [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
                       return providers_->deleteInstance(ctx, op, r.sink());
                   });
}

OperationResult Host::execQuery(const std::string& ns, const std::string& className,
                                const std::string& query, const std::string& language) {
    CallScope scope(*broker_);
    const CMPIBroker* mb = broker_->cmpi();
    CMPIObjectPath* path = mb->eft->newObjectPath(mb, ns.c_str(), className.c_str(), nullptr);
    return run(path, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
        return providers_->execQuery(ctx, op, query.c_str(), language.c_str(), r.sink());
    });
}

OperationResult Host::associators(const CMPIObjectPath* path, const std::string& assocClass,
                                  const std::string& resultClass, const std::string& role,
                                  const std::string& resultRole, ResultSink::Stream* stream) {
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->associators(ctx, op, orNull(assocClass), orNull(resultClass),
                                           orNull(role), orNull(resultRole), nullptr, r.sink());
        },
        stream);
}

OperationResult Host::associators(const std::string& pathText, const std::string& assocClass,
                                  const std::string& resultClass, const std::string& role,
                                  const std::string& resultRole) {
    return runText(
        pathText, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->associators(ctx, op, orNull(assocClass), orNull(resultClass),
                                           orNull(role), orNull(resultRole), nullptr, r.sink());
        });
}

OperationResult Host::associatorNames(const CMPIObjectPath* path, const std::string& assocClass,
                                      const std::string& resultClass, const std::string& role,
                                      const std::string& resultRole, ResultSink::Stream* stream) {
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->associatorNames(ctx, op, orNull(assocClass), orNull(resultClass),
                                               orNull(role), orNull(resultRole), r.sink());
        },
        stream);
}

OperationResult Host::associatorNames(const std::string& pathText, const std::string& assocClass,
                                      const std::string& resultClass, const std::string& role,
                                      const std::string& resultRole) {
    return runText(
        pathText, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->associatorNames(ctx, op, orNull(assocClass), orNull(resultClass),
                                               orNull(role), orNull(resultRole), r.sink());
        });
}

OperationResult Host::references(const CMPIObjectPath* path, const std::string& resultClass,
                                 const std::string& role, ResultSink::Stream* stream) {
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->references(ctx, op, orNull(resultClass), orNull(role), nullptr,
                                          r.sink());
        },
        stream);
}

OperationResult Host::references(const std::string& pathText, const std::string& resultClass,
                                 const std::string& role) {
    return runText(pathText,
                   [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
                       return providers_->references(ctx, op, orNull(resultClass), orNull(role),
                                                     nullptr, r.sink());
                   });
}

OperationResult Host::referenceNames(const CMPIObjectPath* path, const std::string& resultClass,
                                     const std::string& role, ResultSink::Stream* stream) {
    return run(
        path,
        [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->referenceNames(ctx, op, orNull(resultClass), orNull(role), r.sink());
        },
        stream);
}

OperationResult Host::referenceNames(const std::string& pathText, const std::string& resultClass,
                                     const std::string& role) {
    return runText(
        pathText, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
            return providers_->referenceNames(ctx, op, orNull(resultClass), orNull(role), r.sink());
        });
}

OperationResult Host::invokeMethod(const CMPIObjectPath* path, const std::string& method,
                                   const CMPIArgs* args) {
    return run(path, [&](const CMPIContext* ctx, const CMPIObjectPath* op, OperationResult& r) {
        const CMPIBroker* mb = broker_->cmpi();
        CMPIArgs* out = mb->eft->newArgs(mb, nullptr);
        OperationStatus status =
            providers_->invokeMethod(ctx, op, method.c_str(), args, out, r.sink());
        if (out && out->ft)
            r.adoptOutArgs(out->ft->clone(out, nullptr));
        return status;
    });
}

OperationResult Host::invokeMethod(const CMPIObjectPath* path, const std::string& method,
                                   const Arguments& args) {
    CallScope scope(*broker_);
    const CMPIBroker* mb = broker_->cmpi();
    CMPIArgs* in = mb->eft->newArgs(mb, nullptr);
    for (const auto& [name, value] : args) {
        bool null = (value.state & CMPI_nullValue) != 0;
        CMPIStatus st = in->ft->addArg(in, name.c_str(), null ? nullptr : &value.value, value.type);
        if (st.rc != CMPI_RC_OK) {
            OperationResult result(*broker_);
            OperationStatus why = OperationStatus::fromCmpi(st);
            result.status = OperationStatus::make(
                st.rc, "argument " + name + " cannot be passed: " + rcName(st.rc) +
                           (why.hasMessage ? " " + why.message : std::string()));
            return result;
        }
    }
    return invokeMethod(path, method, in);
}

OperationResult Host::invokeMethod(const std::string& pathText, const std::string& method,
                                   const Arguments& args) {
    return onPathText(pathText,
                      [&](CMPIObjectPath* path) { return invokeMethod(path, method, args); });
}

OperationResult Host::invokeMethod(const std::string& pathText, const std::string& method,
                                   const CMPIArgs* args) {
    return onPathText(pathText,
                      [&](CMPIObjectPath* path) { return invokeMethod(path, method, args); });
}

CMPIObjectPath* Host::parsePath(const std::string& pathText, const std::string& defaultNs) {
    return CimValueCodec::pathFromText(*broker_, pathText, defaultNs);
}

std::optional<std::string> Host::propertyText(const CMPIInstance* instance,
                                              const std::string& name) {
    if (!instance || !instance->ft)
        return std::nullopt;
    CallScope scope(*broker_);
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIData d = instance->ft->getProperty(instance, name.c_str(), &st);
    if (st.rc != CMPI_RC_OK || (d.state & (CMPI_nullValue | CMPI_notFound)))
        return std::nullopt;
    return CimValueText::plainText(d);
}

std::string Host::mofText(const CMPIInstance* instance) {
    if (!instance || !instance->ft)
        return {};
    CallScope scope(*broker_);
    CMPIObjectPath* op = instance->ft->getObjectPath(instance, nullptr);
    std::string className = op && op->ft ? text(op->ft->getClassName(op, nullptr)) : "";
    std::string out = "instance of " + className + " {\n";
    CMPICount n = instance->ft->getPropertyCount(instance, nullptr);
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData d = instance->ft->getPropertyAt(instance, i, &name, &st);
        if (st.rc != CMPI_RC_OK || (d.state & (CMPI_nullValue | CMPI_notFound)))
            continue;
        out += "    " + text(name) + " = " + CimValueText::mofText(d) + ";\n";
    }
    return out + "};";
}

std::string Host::pathText(const CMPIObjectPath* path) {
    if (!path || !path->ft)
        return {};
    CallScope scope(*broker_);
    return text(path->ft->toString(path, nullptr));
}

} // namespace diaghost
