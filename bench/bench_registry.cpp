// The core's serving paths over registries of growing size, on the embedded object manager with
// the real MOF classes: start-up through the available-service factory, registration, get (hit
// and miss), enumeration (ordered by "EnumOrder" or not), associators and RunDiagnostic.
//
// The registry is a process-wide singleton that never shrinks, so each family grows its own
// population in ascending size order and reuses what the smaller sizes registered. Families
// share classes: run one family per process (--benchmark_filter), as scripts/bench.sh does.
#include "BenchSupport.h"

#include "entry/DiagServiceProviderCommon.h"
#include "factory/AvailServiceFactory.h"
#include "host/memory/ScopeMemory.h"
#include "instance/CMPIUtil.h"

#include <random>

using namespace diagbench;
using NQORVA20::AvailServiceFactory;

namespace {

// Start-up: N associations registered through the factory for one service's N elements.
void StartUp(benchmark::State& state) {
    BenchHost& h = benchHost();
    const auto n = static_cast<std::size_t>(state.range(0));
    h.serveElements(elementClass, n);
    h.dispatcher.limit = n;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        EmptyTestService& s =
            service("startup" + std::to_string(n) + "-" + std::to_string(round++));
        state.ResumeTiming();
        CallScope scope(*h.broker);
        AvailServiceFactory factory;
        factory.CreateAvailableServices(h.mb(), h.ctx, &s, elementClass, associationClass, 1, 1);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(StartUp)->Apply([](auto* b) { decades(b, 2, 5); }) -> Iterations(1) -> Complexity();

// One more record registered into a population of N.
void RegisterInstance(benchmark::State& state) {
    BenchHost& h = benchHost();
    growRecords(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        NQORVA20::DiagnosticRecord* record = newRecord(recordsMade()++);
        state.ResumeTiming();
        CallScope scope(*h.broker);
        registry().RegisterInstance(h.mb(), h.ctx, record);
    }
    state.counters["records"] = static_cast<double>(recordsMade());
    state.SetItemsProcessed(state.iterations());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(RegisterInstance)
    ->Apply([](auto* b) { decades(b, 3, 6); }) -> Iterations(3000) -> Complexity(benchmark::oLogN);

// Paths as an object manager hands them in: made from the class and the key.
std::vector<CMPIObjectPath*> recordPaths(std::size_t n, std::size_t count, bool registered) {
    BenchHost& h = benchHost();
    std::mt19937 random(12345);
    std::vector<CMPIObjectPath*> paths;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t index = registered ? random() % n : n + i;
        const std::string id =
            "ZORQ_FSDiagService:fs-check:" + std::string(registered ? "record" : "absent") +
            std::to_string(index);
        CMPIObjectPath* op = CMNewObjectPath(h.mb(), "root/cimv2", recordClass, nullptr);
        CMAddKey(op, "InstanceID", id.c_str(), CMPI_chars);
        paths.push_back(op);
    }
    return paths;
}

void getInstance(benchmark::State& state, bool hit) {
    BenchHost& h = benchHost();
    const auto n = static_cast<std::size_t>(state.range(0));
    growRecords(n);
    const std::vector<CMPIObjectPath*> paths = recordPaths(n, 1024, hit);
    CountingResult result;
    std::size_t i = 0, failed = 0;
    for (auto _ : state) {
        CallScope scope(*h.broker);
        CMPIStatus st = DiagServiceProviderCommonGetInstance(h.mb(), nullptr, h.ctx, result.cmpi(),
                                                             paths[i++ & 1023], nullptr);
        failed += st.rc != CMPI_RC_OK;
    }
    if (hit ? failed != 0 : failed != static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("unexpected GetInstance outcome");
    state.SetItemsProcessed(state.iterations());
    state.SetComplexityN(state.range(0));
}
void GetInstanceHit(benchmark::State& state) {
    getInstance(state, true);
}
void GetInstanceMiss(benchmark::State& state) {
    getInstance(state, false);
}
BENCHMARK(GetInstanceHit)->Apply([](auto* b) { decades(b, 3, 6); }) -> Complexity(benchmark::oLogN);
BENCHMARK(GetInstanceMiss)
    ->Apply([](auto* b) { decades(b, 3, 6); }) -> Complexity(benchmark::oLogN);

// A population of associations of one service to N file systems, registered directly; EnumOrder
// runs against the path-text order so that the ordering has work to do.
std::size_t& associationsMade() {
    static std::size_t made = 0;
    return made;
}
void growAssociations(std::size_t n, bool ordered) {
    BenchHost& h = benchHost();
    const std::string servicePath = service("enum").getObjectPath();
    while (associationsMade() < n) {
        CallScope scope(*h.broker);
        for (int batch = 0; batch < 256 && associationsMade() < n; ++batch) {
            const std::size_t i = associationsMade()++;
            registry().RegisterInstance(h.mb(), h.ctx,
                                        newAssociation(associationClass, servicePath,
                                                       elementPathText(elementClass, i), ordered,
                                                       static_cast<unsigned>(4000000000u - i * 7)));
        }
    }
}

void enumerate(benchmark::State& state, bool ordered, bool names) {
    BenchHost& h = benchHost();
    const auto n = static_cast<std::size_t>(state.range(0));
    growAssociations(n, ordered);
    CMPIObjectPath* ref = CMNewObjectPath(h.mb(), "root/cimv2", associationClass, nullptr);
    CountingResult result;
    for (auto _ : state) {
        CallScope scope(*h.broker);
        if (names)
            DiagServiceProviderCommonEnumInstanceNames(h.mb(), nullptr, h.ctx, result.cmpi(), ref);
        else
            DiagServiceProviderCommonEnumInstances(h.mb(), nullptr, h.ctx, result.cmpi(), ref,
                                                   nullptr);
    }
    if ((names ? result.paths : result.instances) !=
        n * static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("unexpected enumeration size");
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
void EnumInstancesOrdered(benchmark::State& state) {
    enumerate(state, true, false);
}
void EnumInstancesUnordered(benchmark::State& state) {
    enumerate(state, false, false);
}
void EnumInstanceNamesOrdered(benchmark::State& state) {
    enumerate(state, true, true);
}
void EnumInstanceNamesUnordered(benchmark::State& state) {
    enumerate(state, false, true);
}
#define ENUM_BENCH(fn)                                                                             \
    BENCHMARK(fn)                                                                                  \
        ->Apply([](auto* b) { decades(b, 2, 5); })                                                 \
        ->Unit(benchmark::kMicrosecond)                                                            \
        ->Complexity(benchmark::oN)
ENUM_BENCH(EnumInstancesOrdered);
ENUM_BENCH(EnumInstancesUnordered);
ENUM_BENCH(EnumInstanceNamesOrdered);
ENUM_BENCH(EnumInstanceNamesUnordered);

// Associators of one file system among N associations of its class (ordered, as the factory
// makes them): one association answers.
void Associators(benchmark::State& state) {
    BenchHost& h = benchHost();
    const auto n = static_cast<std::size_t>(state.range(0));
    growAssociations(n, true);
    CMPIObjectPath* source = nullptr;
    {
        // The element path as the object manager would pass it: parsed back from the
        // association's reference.
        std::vector<CMPIInstance*> all;
        registry().GetCMPIInstances(h.mb(), associationClass, all);
        CMPIData ref = CMGetProperty(all[all.size() / 2], "UserOfService", nullptr);
        source = CMClone(ref.value.ref, nullptr);
    }
    CountingResult result;
    for (auto _ : state) {
        CallScope scope(*h.broker);
        DiagServiceProviderCommonAssociators(h.mb(), nullptr, h.ctx, result.cmpi(), source,
                                             associationClass, nullptr, "UserOfService", nullptr,
                                             nullptr);
    }
    if (result.instances != static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("unexpected associator count");
    state.counters["associations"] = static_cast<double>(n);
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(Associators)->Apply([](auto* b) {
                          decades(b, 2, 5);
                      }) -> Unit(benchmark::kMillisecond) -> Complexity(benchmark::oN);

// RunDiagnostic with a test that does nothing, into a record population of N.
void RunDiagnostic(benchmark::State& state) {
    BenchHost& h = benchHost();
    growRecords(static_cast<std::size_t>(state.range(0)));
    EmptyTestService& s = service("fs-check");
    CMPIObjectPath* target = nullptr;
    CMPIArgs* in = nullptr;
    {
        std::vector<CMPIInstance*> services;
        registry().GetCMPIInstances(h.mb(), serviceClass, services);
        for (CMPIInstance* inst : services)
            if (NQORVA20::CMPIUtil::GetObjectPathString(CMGetObjectPath(inst, nullptr)) ==
                s.getObjectPath())
                target = CMClone(CMGetObjectPath(inst, nullptr), nullptr);
        CMPIObjectPath* element = CMNewObjectPath(h.mb(), "root/cimv2", elementClass, nullptr);
        CMAddKey(element, "CSCreationClassName", "ZORQ_ComputerSystem", CMPI_chars);
        CMAddKey(element, "CSName", "benchhost", CMPI_chars);
        CMAddKey(element, "CreationClassName", elementClass, CMPI_chars);
        CMAddKey(element, "Name", "/srv/volume7", CMPI_chars);
        in = CMNewArgs(h.mb(), nullptr);
        CMAddArg(in, "ManagedElement", &element, CMPI_ref);
    }
    CountingResult result;
    std::size_t failed = 0;
    for (auto _ : state) {
        CallScope scope(*h.broker);
        CMPIStatus st = DiagServiceProviderCommonInvokeMethod(h.mb(), nullptr, h.ctx, result.cmpi(),
                                                              target, "RunDiagnostic", in, nullptr);
        failed += st.rc != CMPI_RC_OK;
    }
    // A run leaves nothing in the broker's scope memory: this stays at the thread's one chunk.
    state.counters["scope_chunks"] = static_cast<double>(diaghost::ScopeMemory::chunksInUse());
    if (target == nullptr || failed != 0 ||
        result.data != static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("RunDiagnostic failed");
    state.counters["records"] = static_cast<double>(containerSize(recordClass));
    state.SetItemsProcessed(state.iterations());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(RunDiagnostic)
    ->Apply([](auto* b) { decades(b, 3, 6); }) -> Iterations(3000) -> Complexity(benchmark::oLogN);

} // namespace

BENCHMARK_MAIN();
