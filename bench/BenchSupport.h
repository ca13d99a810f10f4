// What the core's benchmark programs share: one embedded object manager over the real MOF class
// set for the whole process (the registry is a process-wide singleton that only grows, so every
// benchmark of a program works on the same one), a result that only counts what it is handed,
// a dispatcher that serves a growing set of managed elements, and helpers that grow the registry
// to a wanted size in ascending order so that each size pays only for the records it adds.
#ifndef DIAGCORE_BENCH_BENCHSUPPORT_H
#define DIAGCORE_BENCH_BENCHSUPPORT_H

#include "diag/AvailableDiagnosticService.h"
#include "diag/DiagService.h"
#include "diag/DiagnosticRecord.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/Dispatcher.h"
#include "host/broker/LogSink.h"
#include "host/broker/ResultSink.h"
#include "host/mof/ClassRepository.h"
#include "instance/InstanceRegistry.h"

#include <cmpift.h>
#include <cmpimacs.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace diagbench {

using diaghost::Broker;
using diaghost::CallScope;
using diaghost::ClassRepository;
using diaghost::LogSink;
using diaghost::OperationStatus;
using diaghost::ResultSink;

// The classes the benchmarks publish: those of the file-system diagnostics provider.
constexpr const char* serviceClass = "ZORQ_FSDiagService";
constexpr const char* recordClass = "ZORQ_FSDiagRecord";
constexpr const char* elementClass = "ZORQ_LocalFileSystem";
constexpr const char* associationClass = "ZORQ_FSAvailableDiagService";
// The same shapes under the network provider's names, for a second population of a kind.
constexpr const char* otherAssociationClass = "ZORQ_NetAvailableDiagService";
constexpr const char* otherElementClass = "ZORQ_NetworkPort";

// A test that does nothing but pass.
class EmptyTestService : public NQORVA20::DiagService {
public:
    explicit EmptyTestService(const std::string& name)
        : DiagService(serviceClass, recordClass, "", "20260101000000.000000+000", "benchhost") {
        (*this)["Name"] = name;
        (*this)["Caption"] = "File system check";
        (*this)["Description"] = "Checks that a file system is mounted and writable";
        (*this)["ElementName"] = "fs-check";
    }
    unsigned int runTest(NQORVA20::InstanceImpl*, NQORVA20::DiagnosticRecord* record) override {
        record->pass(1);
        return 0;
    }
};

// Serves the instances it was given when their class is enumerated; nothing else.
class ElementDispatcher : public diaghost::Dispatcher {
public:
    // Serves only the first `limit` instances of each class.
    std::size_t limit = 0;
    std::vector<CMPIInstance*>& served(const std::string& cls) { return served_[cls]; }

    OperationStatus enumerateInstances(const CMPIContext*, const CMPIObjectPath* op, const char**,
                                       ResultSink& out) override {
        CMPIString* cls = op->ft->getClassName(op, nullptr);
        std::vector<CMPIInstance*>& list = served_[CMGetCharPtr(cls)];
        const std::size_t n = limit < list.size() ? limit : list.size();
        for (std::size_t i = 0; i < n; ++i)
            out.cmpi()->ft->returnInstance(out.cmpi(), list[i]);
        out.cmpi()->ft->returnDone(out.cmpi());
        return OperationStatus::make(CMPI_RC_OK);
    }
    OperationStatus enumerateInstanceNames(const CMPIContext*, const CMPIObjectPath*,
                                           ResultSink&) override {
        return no();
    }
    OperationStatus getInstance(const CMPIContext*, const CMPIObjectPath*, const char**,
                                ResultSink&) override {
        return no();
    }
    OperationStatus createInstance(const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                                   ResultSink&) override {
        return no();
    }
    OperationStatus modifyInstance(const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                                   const char**, ResultSink&) override {
        return no();
    }
    OperationStatus deleteInstance(const CMPIContext*, const CMPIObjectPath*,
                                   ResultSink&) override {
        return no();
    }
    OperationStatus execQuery(const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                              ResultSink&) override {
        return no();
    }
    OperationStatus associators(const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                                const char*, const char*, const char**, ResultSink&) override {
        return no();
    }
    OperationStatus associatorNames(const CMPIContext*, const CMPIObjectPath*, const char*,
                                    const char*, const char*, const char*, ResultSink&) override {
        return no();
    }
    OperationStatus references(const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                               const char**, ResultSink&) override {
        return no();
    }
    OperationStatus referenceNames(const CMPIContext*, const CMPIObjectPath*, const char*,
                                   const char*, ResultSink&) override {
        return no();
    }
    OperationStatus invokeMethod(const CMPIContext*, const CMPIObjectPath*, const char*,
                                 const CMPIArgs*, CMPIArgs*, ResultSink&) override {
        return no();
    }

private:
    static OperationStatus no() { return OperationStatus::make(CMPI_RC_ERR_NOT_SUPPORTED); }
    std::map<std::string, std::vector<CMPIInstance*>> served_;
};

// A CMPIResult that only counts: what the core itself costs, without the object manager's
// copying of every returned instance.
struct CountingResult {
    CMPIResult result{};
    CMPIResultFT ft{};
    std::size_t instances = 0, paths = 0, data = 0, done = 0;

    CountingResult() {
        ft.ftVersion = CMPICurrentVersion;
        ft.returnInstance = [](const CMPIResult* r, const CMPIInstance*) {
            ++self(r)->instances;
            return CMPIStatus{CMPI_RC_OK, nullptr};
        };
        ft.returnObjectPath = [](const CMPIResult* r, const CMPIObjectPath*) {
            ++self(r)->paths;
            return CMPIStatus{CMPI_RC_OK, nullptr};
        };
        ft.returnData = [](const CMPIResult* r, const CMPIValue*, CMPIType) {
            ++self(r)->data;
            return CMPIStatus{CMPI_RC_OK, nullptr};
        };
        ft.returnDone = [](const CMPIResult* r) {
            ++self(r)->done;
            return CMPIStatus{CMPI_RC_OK, nullptr};
        };
        result.hdl = this;
        result.ft = &ft;
    }
    CountingResult(const CountingResult&) = delete;
    CountingResult& operator=(const CountingResult&) = delete;
    const CMPIResult* cmpi() const { return &result; }

private:
    static CountingResult* self(const CMPIResult* r) {
        return static_cast<CountingResult*>(r->hdl);
    }
};

// The process's object manager: the real MOF, a log that keeps only its last few lines (the core
// logs several debug lines per registration) and the element dispatcher.
struct BenchHost {
    ClassRepository classes;
    LogSink log{16};
    std::unique_ptr<Broker> broker;
    ElementDispatcher dispatcher;
    const CMPIContext* ctx = nullptr;

    BenchHost() {
        classes.loadFile(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
        broker = std::make_unique<Broker>(classes, log);
        broker->setDispatcher(&dispatcher);
        ctx = broker->newContext("root/cimv2");
    }
    const CMPIBroker* mb() const { return broker->cmpi(); }

    // The managed element a service tests: a file system, keyed as its class declares.
    CMPIInstance* newElement(const char* cls, std::size_t i) {
        CMPIObjectPath* op = CMNewObjectPath(mb(), "root/cimv2", cls, nullptr);
        CMPIInstance* inst = CMNewInstance(mb(), op, nullptr);
        const std::string name = "/srv/volume" + std::to_string(i);
        CMSetProperty(inst, "CSCreationClassName", "ZORQ_ComputerSystem", CMPI_chars);
        CMSetProperty(inst, "CSName", "benchhost", CMPI_chars);
        CMSetProperty(inst, "CreationClassName", cls, CMPI_chars);
        CMSetProperty(inst, "Name", name.c_str(), CMPI_chars);
        CMSetProperty(inst, "SystemCreationClassName", "ZORQ_ComputerSystem", CMPI_chars);
        CMSetProperty(inst, "SystemName", "benchhost", CMPI_chars);
        CMSetProperty(inst, "DeviceID", ("port" + std::to_string(i)).c_str(), CMPI_chars);
        CMPIInstance* kept = CMClone(inst, nullptr);
        return kept;
    }
    // Makes the dispatcher hold at least n elements of the class.
    void serveElements(const char* cls, std::size_t n) {
        std::vector<CMPIInstance*>& list = dispatcher.served(cls);
        CallScope scope(*broker);
        while (list.size() < n)
            list.push_back(newElement(cls, list.size()));
    }
};

inline BenchHost& benchHost() {
    static BenchHost* host = new BenchHost;
    return *host;
}

inline NQORVA20::InstanceRegistry& registry() {
    return *NQORVA20::InstanceRegistry::Singleton();
}

// A registered service; made once per process per name.
inline EmptyTestService& service(const std::string& name) {
    static std::map<std::string, EmptyTestService*> services;
    EmptyTestService*& s = services[name];
    if (s == nullptr) {
        BenchHost& h = benchHost();
        CallScope scope(*h.broker);
        s = new EmptyTestService(name);
        registry().RegisterInstance(h.mb(), h.ctx, s);
    }
    return *s;
}

// A diagnostic record as a run of the service publishes it.
inline NQORVA20::DiagnosticRecord* newRecord(std::size_t i) {
    auto* record = new NQORVA20::DiagnosticRecord(recordClass);
    record->pass(1);
    (*record)["Caption"] = "Result for File system check";
    (*record)["Description"] = "Result for Checks that a file system is mounted and writable";
    (*record)["ElementName"] = "Result for fs-check";
    (*record)["ServiceName"] = "fs-check";
    (*record)["ManagedElementName"] = "/srv/volume" + std::to_string(i % 64);
    (*record)["InstanceID"] = "ZORQ_FSDiagService:fs-check:record" + std::to_string(i);
    (*record)["CreationTimeStamp"] = "20260101000000.000000+000";
    return record;
}

inline std::size_t containerSize(const char* cls) {
    std::vector<CMPIInstance*> all;
    registry().GetCMPIInstances(benchHost().mb(), cls, all);
    return all.size();
}

// Grows the record population to n (the records registered so far stay, whatever their source).
inline std::size_t& recordsMade() {
    static std::size_t made = 0;
    return made;
}
inline void growRecords(std::size_t n) {
    BenchHost& h = benchHost();
    while (recordsMade() < n) {
        CallScope scope(*h.broker);
        for (int batch = 0; batch < 256 && recordsMade() < n; ++batch)
            registry().RegisterInstance(h.mb(), h.ctx, newRecord(recordsMade()++));
    }
}

// An association as the available-service factory makes it, registered directly; with
// ordered false it carries no "EnumOrder" and keeps the path-text order.
inline NQORVA20::AvailableDiagnosticService* newAssociation(const char* cls,
                                                            const std::string& servicePath,
                                                            const std::string& elementPath,
                                                            bool ordered, unsigned order) {
    auto* a = new NQORVA20::AvailableDiagnosticService(cls);
    (*a)["EstimatedDurationOfService"] = "3";
    (*a)["EstimatedDurationQualifier"] = "0";
    (*a)["ServiceProvided"] = servicePath;
    (*a)["UserOfService"] = elementPath;
    if (ordered)
        (*a)["EnumOrder"] = std::to_string(order);
    return a;
}

// The path text of the i-th file system, as the core renders it.
inline std::string elementPathText(const char* cls, std::size_t i) {
    return std::string(cls) + ".CSCreationClassName=\"ZORQ_ComputerSystem\",CSName=\"benchhost\"," +
           "CreationClassName=\"" + cls + "\",Name=\"/srv/volume" + std::to_string(i) + "\"";
}

// Sizes 10^lo .. 10^hi.
inline void decades(benchmark::internal::Benchmark* b, int lo, int hi) {
    std::int64_t n = 1;
    for (int i = 0; i < lo; ++i)
        n *= 10;
    for (int i = lo; i <= hi; ++i, n *= 10)
        b->Arg(n);
}

} // namespace diagbench

#endif
