#include "host/broker/ResultSink.h"

#include "host/broker/Broker.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/DataCopy.h"
#include "host/broker/HostError.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/mof/CimClass.h"

#include <algorithm>
#include <cmpift.h>

#include <memory>
#include <strings.h>
#include <type_traits>

namespace diaghost {

namespace {

// What a sink holds; its CMPIResult's handle points here.
struct SinkState {
    explicit SinkState(Broker& broker);
    ~SinkState() { clear(); }
    SinkState(const SinkState&) = delete;
    SinkState& operator=(const SinkState&) = delete;
    void clear();

    Broker& broker;
    CMPIResult cmpi;
    std::vector<ResultSink::Call> calls;
    std::vector<CMPIInstance*> instances;
    std::vector<CMPIObjectPath*> paths;
    std::vector<CMPIData> data;
    std::vector<CMPIError*> errors;
    bool done = false;
    bool filtered = false;
    std::vector<std::string> requestProperties;
    ResultSink::Stream* stream = nullptr;
};

using Impl = SinkState;

CMPIResultFT* resultTable();

Impl* implOf(const CMPIResult* r) {
    if (!r || r->ft != resultTable())
        return nullptr;
    return static_cast<Impl*>(r->hdl);
}

// The sink belongs to the host; a provider releasing it changes nothing.
CMPIStatus resultRelease(CMPIResult* r) {
    return CmpiCall::status(implOf(r) ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
}

CMPIResult* resultClone(const CMPIResult* r, CMPIStatus* rc) {
    CmpiCall::set(rc, implOf(r) ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_ERR_INVALID_HANDLE);
    return nullptr;
}

// Room for `extra` more elements, so that the push_backs after it cannot throw; the capacity
// grows geometrically, as push_back's own would, so that a long result is not moved on every
// element it gains.
template <class T>
void roomFor(std::vector<T>& v, std::size_t extra) {
    if (v.capacity() - v.size() >= extra)
        return;
    v.reserve(std::max(v.size() + extra, v.capacity() * 2));
}

CMPIStatus resultReturnData(const CMPIResult* r, const CMPIValue* value, CMPIType type) {
    return CmpiCall::guardStatus([&] {
        Impl* self = implOf(r);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!value)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        CMPIData copy{};
        // The sink outlives the provider's call scope.
        ScopeMemory::Durable durable;
        CMPIrc rc = DataCopy::copy(self->broker, value, type, HostObject::Placement::Parent, copy);
        if (rc != CMPI_RC_OK)
            return CmpiCall::status(rc);
        try {
            roomFor(self->data, 1);
            roomFor(self->calls, 1);
        } catch (...) {
            DataCopy::destroy(copy);
            throw;
        }
        self->data.push_back(copy);
        self->calls.push_back(ResultSink::Call::Data);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

// Appends a copy of a host object of type H to list, recording the call.
template <class H, class T>
CMPIStatus returnObject(const CMPIResult* r, const T* object, std::vector<T*> Impl::*list,
                        ResultSink::Call call) {
    return CmpiCall::guardStatus([&] {
        Impl* self = implOf(r);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!object)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        H* h = H::from(object);
        if (!h)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if constexpr (!std::is_same_v<H, HostError>) {
            if (self->stream != nullptr) {
                bool wanted;
                if constexpr (std::is_same_v<H, HostInstance>)
                    wanted = self->stream->instance(object);
                else
                    wanted = self->stream->path(object);
                return CmpiCall::status(wanted ? CMPI_RC_OK : CMPI_RC_ERR_FAILED);
            }
        }
        std::unique_ptr<H> copy(CmpiCall::durableCopy(*h));
        roomFor(self->*list, 1);
        roomFor(self->calls, 1);
        (self->*list).push_back(copy.release()->cmpi());
        self->calls.push_back(call);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

// What a strict broker does to an instance it is handed: every property outside the request's
// list, keys excepted, is set null in the provider's own object.
void filterInPlace(const Impl& self, const CMPIInstance* inst) {
    HostInstance* h = HostInstance::from(inst);
    if (!h || !self.filtered || !self.broker.strict())
        return;
    const CimClass& cls = h->cimClass();
    for (std::size_t i = 0; i < h->propertyCount(); ++i) {
        const CimProperty& p = cls.properties[i];
        if (p.key)
            continue;
        bool listed = false;
        for (const std::string& name : self.requestProperties)
            listed = listed || strcasecmp(name.c_str(), p.name.c_str()) == 0;
        if (!listed)
            h->set(i, nullptr, CMPI_null);
    }
}

CMPIStatus resultReturnInstance(const CMPIResult* r, const CMPIInstance* inst) {
    CMPIStatus filtered = CmpiCall::guardStatus([&] {
        if (const Impl* self = implOf(r))
            filterInPlace(*self, inst);
        return CmpiCall::status(CMPI_RC_OK);
    });
    if (filtered.rc != CMPI_RC_OK)
        return filtered;
    return returnObject<HostInstance>(r, inst, &Impl::instances, ResultSink::Call::Instance);
}

CMPIStatus resultReturnObjectPath(const CMPIResult* r, const CMPIObjectPath* op) {
    return returnObject<HostObjectPath>(r, op, &Impl::paths, ResultSink::Call::ObjectPath);
}

CMPIStatus resultReturnDone(const CMPIResult* r) {
    return CmpiCall::guardStatus([&] {
        Impl* self = implOf(r);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        self->calls.push_back(ResultSink::Call::Done);
        self->done = true;
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIStatus resultReturnError(const CMPIResult* r, const CMPIError* er) {
    return returnObject<HostError>(r, er, &Impl::errors, ResultSink::Call::Error);
}

CMPIResultFT resultFunctions = {CMPIVersion200,   resultRelease,        resultClone,
                                resultReturnData, resultReturnInstance, resultReturnObjectPath,
                                resultReturnDone, resultReturnError};

CMPIResultFT* resultTable() {
    return &resultFunctions;
}

template <class T>
void releaseList(std::vector<T*>& list) {
    for (T* o : list)
        delete HostObject::fromCmpi(o);
    list.clear();
}

SinkState::SinkState(Broker& broker) : broker(broker), cmpi{this, resultTable()} {}

void SinkState::clear() {
    releaseList(instances);
    releaseList(paths);
    releaseList(errors);
    for (CMPIData& d : data)
        DataCopy::destroy(d);
    data.clear();
    calls.clear();
    done = false;
}

} // namespace

struct ResultSink::Impl : SinkState {
    using SinkState::SinkState;
};

ResultSink::ResultSink(Broker& broker) : impl_(std::make_unique<Impl>(broker)) {}
ResultSink::~ResultSink() = default;

CMPIResult* ResultSink::cmpi() {
    return &impl_->cmpi;
}
const std::vector<ResultSink::Call>& ResultSink::calls() const {
    return impl_->calls;
}
const std::vector<CMPIInstance*>& ResultSink::instances() const {
    return impl_->instances;
}
const std::vector<CMPIObjectPath*>& ResultSink::paths() const {
    return impl_->paths;
}
const std::vector<CMPIData>& ResultSink::data() const {
    return impl_->data;
}
const std::vector<CMPIError*>& ResultSink::errors() const {
    return impl_->errors;
}
bool ResultSink::done() const {
    return impl_->done;
}
void ResultSink::clear() {
    impl_->clear();
}

void ResultSink::setRequestProperties(const char** properties) {
    impl_->requestProperties.clear();
    impl_->filtered = properties != nullptr;
    for (const char** p = properties; p && *p; ++p)
        impl_->requestProperties.emplace_back(*p);
}

void ResultSink::setRequestProperties(const ResultSink& from) {
    impl_->filtered = from.impl_->filtered;
    impl_->requestProperties = from.impl_->requestProperties;
    impl_->stream = from.impl_->stream;
}

void ResultSink::streamTo(Stream* stream) {
    impl_->stream = stream;
}

namespace {

template <class T>
void moveAll(std::vector<T>& from, std::vector<T>& to) {
    to.insert(to.end(), from.begin(), from.end());
    from.clear();
}

} // namespace

bool ResultSink::takeFrom(ResultSink& from) {
    Impl& to = *impl_;
    Impl& src = *from.impl_;
    bool wanted = true;
    if (to.stream != nullptr) {
        // What `from` kept goes on to the stream, each object once, in the order returned, and
        // is released once the stream has read it.
        std::vector<CMPIInstance*> instances;
        std::vector<CMPIObjectPath*> paths;
        instances.swap(src.instances);
        paths.swap(src.paths);
        src.calls.erase(
            std::remove_if(src.calls.begin(), src.calls.end(),
                           [](Call c) { return c == Call::Instance || c == Call::ObjectPath; }),
            src.calls.end());
        try {
            for (CMPIInstance* inst : instances)
                wanted = wanted && to.stream->instance(inst);
            for (CMPIObjectPath* path : paths)
                wanted = wanted && to.stream->path(path);
        } catch (...) {
            releaseList(instances);
            releaseList(paths);
            throw;
        }
        releaseList(instances);
        releaseList(paths);
    }
    // Room first, so that nothing moves unless everything can.
    roomFor(to.calls, src.calls.size());
    roomFor(to.instances, src.instances.size());
    roomFor(to.paths, src.paths.size());
    roomFor(to.data, src.data.size());
    roomFor(to.errors, src.errors.size());
    for (Call call : src.calls)
        if (call != Call::Done)
            to.calls.push_back(call);
    src.calls.clear();
    src.done = false;
    moveAll(src.instances, to.instances);
    moveAll(src.paths, to.paths);
    moveAll(src.data, to.data);
    moveAll(src.errors, to.errors);
    return wanted;
}

std::vector<CMPIInstance*> ResultSink::takeInstances() {
    std::vector<CMPIInstance*> out;
    out.swap(impl_->instances);
    return out;
}

std::vector<CMPIObjectPath*> ResultSink::takePaths() {
    std::vector<CMPIObjectPath*> out;
    out.swap(impl_->paths);
    return out;
}

} // namespace diaghost
