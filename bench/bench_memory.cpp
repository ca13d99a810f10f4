// Heap kept per registered record and per association at 10^5 of each: the allocator's count of
// bytes in use (glibc mallinfo2, every allocation of the process, malloc and operator new alike)
// plus every chunk of the broker's scope memory still in use, counted whole, before and after,
// once the calls' transient objects are gone. Reported as counters; the time
// figures of these runs are the set-up's and mean nothing.
#include "BenchSupport.h"

#include "factory/AvailServiceFactory.h"
#include "host/broker/StringTable.h"
#include "host/memory/ScopeMemory.h"

#include <malloc.h>

using namespace diagbench;

namespace {

constexpr std::size_t population = 100000;

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd +
           diaghost::ScopeMemory::chunksInUse() * diaghost::ScopeMemory::chunkSize;
}

double perItem(std::size_t before, std::size_t after) {
    return after > before ? static_cast<double>(after - before) / population : 0.0;
}

// The instance objects alone, never registered: what the core's own texts take.
void RecordObjectsOnly(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<std::unique_ptr<NQORVA20::DiagnosticRecord>> records;
        records.reserve(population);
        const std::size_t reserved = heapInUse();
        for (std::size_t i = 0; i < population; ++i)
            records.emplace_back(newRecord(i));
        state.counters["bytes_per_record"] = perItem(reserved, heapInUse());
    }
}
BENCHMARK(RecordObjectsOnly)->Iterations(1)->Unit(benchmark::kMillisecond);

void RegisteredRecords(benchmark::State& state) {
    service("fs-check");
    for (auto _ : state) {
        const std::size_t before = heapInUse();
        growRecords(recordsMade() + population);
        state.counters["bytes_per_record"] = perItem(before, heapInUse());
    }
    state.counters["records"] = static_cast<double>(containerSize(recordClass));
    // Distinct texts the kept objects hold, each once.
    state.counters["texts"] = static_cast<double>(diaghost::StringTable::size());
}
BENCHMARK(RegisteredRecords)->Iterations(1)->Unit(benchmark::kMillisecond);

// The broker's share of a kept record: one more clone of each registered record's instance, as
// registration keeps one. The rest of a registered record is the instance object and the
// registry's own bookkeeping (record, container entry, path texts, index entries).
void RecordClonesOnly(benchmark::State& state) {
    service("fs-check");
    growRecords(population);
    std::vector<CMPIInstance*> kept;
    registry().GetCMPIInstances(benchHost().mb(), recordClass, kept);
    kept.resize(population);
    for (auto _ : state) {
        std::vector<CMPIInstance*> clones;
        clones.reserve(population);
        const std::size_t before = heapInUse();
        for (CMPIInstance* inst : kept)
            clones.push_back(inst->ft->clone(inst, nullptr));
        state.counters["bytes_per_clone"] = perItem(before, heapInUse());
        for (CMPIInstance* clone : clones)
            clone->ft->release(clone);
    }
}
BENCHMARK(RecordClonesOnly)->Iterations(1)->Unit(benchmark::kMillisecond);

void FactoryAssociations(benchmark::State& state) {
    BenchHost& h = benchHost();
    h.serveElements(elementClass, population);
    h.dispatcher.limit = population;
    EmptyTestService& s = service("memory");
    for (auto _ : state) {
        const std::size_t before = heapInUse();
        {
            CallScope scope(*h.broker);
            NQORVA20::AvailServiceFactory().CreateAvailableServices(h.mb(), h.ctx, &s, elementClass,
                                                                    associationClass, 1, 1);
        }
        state.counters["bytes_per_association"] = perItem(before, heapInUse());
    }
    state.counters["associations"] = static_cast<double>(containerSize(associationClass));
}
BENCHMARK(FactoryAssociations)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
