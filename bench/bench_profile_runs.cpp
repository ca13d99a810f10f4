// RunDiagnosticService of the network family's NetworkPortLink service on the loopback port, over
// and over, through the embedded object manager with the shipped MOF, registrations and provider
// modules (loaded from the build tree): the time per run, and whether the process's memory stays
// flat once the service's record log and the module's job table are full.
//
// Each run names only the element (one pass, the default settings). A run that answers 4096 is
// waited for by reading its job until JobState shows an end; one that answers 0 has already
// completed. A run answered Busy (6) is asked for again.
//
// The memory benchmark makes --runs=N runs (1,000,000 unless given), from one client or from two
// at once, and reads VmRSS, the C library's heap in use (mallinfo2().uordblks, all arenas) and
// what the C library holds from the system (arena + hblkhd) every 100,000 runs (every tenth of
// the runs when there are fewer than 200,000). Counters: the figures at the first sample and at
// the end, the growth between the two, and what the module and the host hold at the end. Each
// sample is also written to standard error as it is taken. The time figure of that benchmark is
// the whole loop's.
//
// The host keeps the last 1,024 log lines, as diagctl's server does (the core logs a line a
// call); --host-log=N keeps N instead, 0 all of them.
#include "host/Host.h"
#include "host/broker/LogSink.h"
#include "host/memory/ScopeMemory.h"

#include <cmpift.h>

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using diaghost::Host;
using diaghost::OperationResult;

constexpr const char* serviceClass = "ZORQ_NetDiagService";
constexpr const char* serviceName = "NetworkPortLink";
constexpr const char* portClass = "ZORQ_NetworkPort";
constexpr const char* portName = "lo";
constexpr const char* jobClass = "ZORQ_NetDiagJob";
constexpr const char* completionRecordClass = "ZORQ_NetDiagCompletionRecord";

std::uint64_t runsWanted = 1000000;
// As diagctl serves: a long-running server keeps few log lines for reading back.
std::size_t hostLogLines = 1024;
// Runs made in this process so far, by every benchmark.
std::atomic<std::uint64_t> runsMade{0};

// The object manager, its providers, and the two paths every run uses. Never destroyed: the core's
// registry in each provider module keeps instances the host's broker made for the life of the
// process. Every host call opens its own call scope, so the clients need none of theirs.
struct Target {
    Host* host = nullptr;
    std::unique_ptr<OperationResult> services;
    std::unique_ptr<OperationResult> ports;
    const CMPIObjectPath* service = nullptr;
    const CMPIObjectPath* element = nullptr;
};

const CMPIObjectPath* pathWith(Host& host, const OperationResult& names, const std::string& key,
                               const std::string& value) {
    const std::string wanted = key + "=\"" + value + "\"";
    for (const CMPIObjectPath* path : names.paths())
        if (host.pathText(path).find(wanted) != std::string::npos)
            return path;
    return nullptr;
}

Target* makeTarget() {
    auto* t = new Target;
    Host::Options options;
    options.providerPath.push_back(DIAGCORE_BINARY_DIR "/providers");
    // As diagctl serves: upcalls on another thread, the broker's strict mode.
    options.upcallsOnOtherThread = true;
    options.strict = true;
    options.logCapacity = hostLogLines;
    t->host = new Host(options);
    t->host->loadMof(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
    t->host->loadRegistrations(DIAGCORE_SOURCE_DIR "/mof/registration/diagcore.reg");
    t->services = std::make_unique<OperationResult>(
        t->host->enumerateInstanceNames(Host::defaultNamespace(), serviceClass));
    t->ports = std::make_unique<OperationResult>(
        t->host->enumerateInstanceNames(Host::defaultNamespace(), portClass));
    t->service = pathWith(*t->host, *t->services, "Name", serviceName);
    t->element = pathWith(*t->host, *t->ports, "DeviceID", portName);
    if (t->service == nullptr || t->element == nullptr)
        throw std::runtime_error(std::string("no ") + serviceClass + " " + serviceName + " or no " +
                                 portClass + " " + portName);
    return t;
}

Target* madeTarget = nullptr;
std::string targetFailure;

// The target, made on the first call (listing the benchmarks loads nothing); null when it could
// not be made, targetFailure saying why.
Target* target() {
    static bool tried = false;
    if (!tried) {
        tried = true;
        try {
            madeTarget = makeTarget();
        } catch (const std::exception& e) {
            targetFailure = e.what();
        }
    }
    return madeTarget;
}

// What the runs of one client saw besides plain completions.
struct Tally {
    std::uint64_t wentOn = 0; // answered 4096 and waited for
    std::uint64_t busy = 0;   // answered 6 and asked for again
    std::uint64_t polls = 0;  // job reads while waiting
};

bool jobEnded(const std::string& state) {
    // New, Running and Shutting Down are the states of a job still going.
    return state != "2" && state != "4" && state != "6";
}

// One run to its end; the error text when it could not be made.
std::optional<std::string> runOnce(Target& t, Tally& tally) {
    Host& host = *t.host;
    CMPIData element{};
    element.type = CMPI_ref;
    element.state = CMPI_goodValue;
    element.value.ref = const_cast<CMPIObjectPath*>(t.element);
    const Host::Arguments args{{"ManagedElement", element}};
    for (;;) {
        const OperationResult call = host.invokeMethod(t.service, "RunDiagnosticService", args);
        if (!call.ok())
            return "RunDiagnosticService failed: " + call.status.message;
        const CMPIData value = call.returnValue();
        if (value.type != CMPI_uint32 || (value.state & CMPI_nullValue))
            return std::string("RunDiagnosticService answered no uint32");
        switch (value.value.uint32) {
        case 0:
            ++runsMade;
            return std::nullopt;
        case 6:
            // At most 32 runs go at once in the module; another client's may still hold a place.
            ++tally.busy;
            std::this_thread::yield();
            continue;
        case 4096:
            break;
        default:
            return "RunDiagnosticService answered " + std::to_string(value.value.uint32);
        }
        ++tally.wentOn;
        const CMPIData job = call.outArg("Job");
        if (job.type != CMPI_ref || (job.state & CMPI_nullValue) || job.value.ref == nullptr)
            return std::string("a run that went on named no job");
        for (;;) {
            ++tally.polls;
            const OperationResult read = host.getInstance(job.value.ref);
            if (!read.ok() || read.instance() == nullptr)
                return "the job could not be read: " + read.status.message;
            if (jobEnded(host.propertyText(read.instance(), "JobState").value_or(""))) {
                ++runsMade;
                return std::nullopt;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
}

void addTally(benchmark::State& state, const Tally& tally, std::uint64_t runs) {
    const double n = runs > 0 ? static_cast<double>(runs) : 1.0;
    state.counters["went_on_per_run"] = static_cast<double>(tally.wentOn) / n;
    state.counters["busy_per_run"] = static_cast<double>(tally.busy) / n;
    state.counters["polls_per_run"] = static_cast<double>(tally.polls) / n;
}

// CPU time of the whole process (the clients, the workers running the tests, the upcall thread),
// in microseconds.
double processCpuMicros() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// Runs after which the module's job table and the service's record log both hold as many as
// they keep (1,000 ended jobs, 1,000 entries), with some to spare.
constexpr std::uint64_t fillingRuns = 1100;

// Sequential runs, one at a time from one client: wall time per run, and the process's CPU time
// per run. With the argument 1 the runs are first made up to fillingRuns untimed, so that every
// timed run meets a full job table and a full log, as a long-lived server does; with 0 the
// process is taken as it is.
void SequentialRuns(benchmark::State& state) {
    Target* made = target();
    if (made == nullptr) {
        state.SkipWithError(targetFailure.c_str());
        return;
    }
    Target& t = *made;
    Tally tally;
    if (state.range(0) != 0)
        while (runsMade.load() < fillingRuns)
            if (auto error = runOnce(t, tally)) {
                state.SkipWithError(error->c_str());
                return;
            }
    tally = Tally{};
    std::uint64_t runs = 0;
    const double cpuBefore = processCpuMicros();
    for (auto _ : state) {
        if (auto error = runOnce(t, tally)) {
            state.SkipWithError(error->c_str());
            break;
        }
        ++runs;
    }
    state.counters["process_cpu_us"] =
        runs > 0 ? (processCpuMicros() - cpuBefore) / static_cast<double>(runs) : 0.0;
    addTally(state, tally, runs);
}

std::size_t residentBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::strtoull(line.c_str() + 6, nullptr, 10) * 1024;
    return 0;
}

struct Sample {
    std::uint64_t runs;
    std::size_t rss;
    std::size_t heap; // in use
    std::size_t held; // taken from the system by the C library, in use or free
};

Sample sampleAfter(std::uint64_t runs) {
    const struct mallinfo2 info = mallinfo2();
    return Sample{runs, residentBytes(), info.uordblks, info.arena + info.hblkhd};
}

std::size_t countOf(Host& host, const char* className) {
    const OperationResult names = host.enumerateInstanceNames(Host::defaultNamespace(), className);
    return names.paths().size();
}

// `clients` threads make `runsWanted` runs between them; the thread whose run completes a
// sample's count takes the sample.
void MemoryOverRuns(benchmark::State& state, int clients) {
    Target* made = target();
    if (made == nullptr) {
        state.SkipWithError(targetFailure.c_str());
        return;
    }
    Target& t = *made;
    const std::uint64_t total = runsWanted;
    const std::uint64_t every = total >= 200000 ? 100000 : std::max<std::uint64_t>(1, total / 10);
    std::vector<Sample> samples;
    Tally tally;
    for (auto _ : state) {
        std::atomic<std::uint64_t> next{0};
        std::atomic<bool> failed{false};
        std::mutex mutex;
        std::string error;
        auto client = [&] {
            Tally mine;
            for (;;) {
                const std::uint64_t run = next.fetch_add(1);
                if (run >= total || failed.load())
                    break;
                if (auto e = runOnce(t, mine)) {
                    std::lock_guard<std::mutex> lock(mutex);
                    error = *e;
                    failed.store(true);
                    break;
                }
                if ((run + 1) % every == 0) {
                    const Sample s = sampleAfter(run + 1);
                    std::lock_guard<std::mutex> lock(mutex);
                    samples.push_back(s);
                    std::fprintf(stderr,
                                 "%llu runs: VmRSS %.1f MiB, heap in use %.1f MiB, held %.1f MiB\n",
                                 static_cast<unsigned long long>(s.runs), s.rss / 1048576.0,
                                 s.heap / 1048576.0, s.held / 1048576.0);
                }
            }
            std::lock_guard<std::mutex> lock(mutex);
            tally.wentOn += mine.wentOn;
            tally.busy += mine.busy;
            tally.polls += mine.polls;
        };
        std::vector<std::thread> threads;
        for (int i = 1; i < clients; ++i)
            threads.emplace_back(client);
        client();
        for (std::thread& thread : threads)
            thread.join();
        if (failed.load()) {
            state.SkipWithError(error.c_str());
            return;
        }
    }
    if (samples.empty())
        return;
    // Two clients may take samples slightly out of order.
    std::sort(samples.begin(), samples.end(),
              [](const Sample& a, const Sample& b) { return a.runs < b.runs; });
    const Sample& first = samples.front();
    const Sample& last = samples.back();
    using benchmark::Counter;
    auto bytes = [](double value) { return Counter(value, Counter::kDefaults, Counter::kIs1024); };
    state.counters["runs"] = static_cast<double>(last.runs);
    state.counters["sample_every"] = static_cast<double>(every);
    state.counters["rss_first"] = bytes(static_cast<double>(first.rss));
    state.counters["heap_first"] = bytes(static_cast<double>(first.heap));
    state.counters["rss_end"] = bytes(static_cast<double>(last.rss));
    state.counters["heap_end"] = bytes(static_cast<double>(last.heap));
    state.counters["rss_growth"] =
        bytes(static_cast<double>(last.rss) - static_cast<double>(first.rss));
    state.counters["heap_growth"] =
        bytes(static_cast<double>(last.heap) - static_cast<double>(first.heap));
    state.counters["held_first"] = bytes(static_cast<double>(first.held));
    state.counters["held_growth"] =
        bytes(static_cast<double>(last.held) - static_cast<double>(first.held));
    addTally(state, tally, last.runs);
    // What is held at the end: jobs and completion records the module keeps, the host's log
    // lines, and the broker's scope memory still in use.
    Host& host = *t.host;
    state.counters["jobs_kept"] = static_cast<double>(countOf(host, jobClass));
    state.counters["records_kept"] = static_cast<double>(countOf(host, completionRecordClass));
    state.counters["log_lines"] = static_cast<double>(host.log().size());
    state.counters["scope_chunks"] = static_cast<double>(diaghost::ScopeMemory::chunksInUse());
}

// A count given as --name=N; exits with a message when N is not one.
std::uint64_t countArgument(const char* arg, std::size_t prefix, bool zeroAllowed) {
    char* end = nullptr;
    const unsigned long long n = std::strtoull(arg + prefix, &end, 10);
    if (end == arg + prefix || *end != '\0' || arg[prefix] == '-' || (n == 0 && !zeroAllowed)) {
        std::cerr << "bench_profile_runs: " << std::string(arg, prefix - 1) << " wants a "
                  << (zeroAllowed ? "count" : "positive count") << "\n";
        std::exit(1);
    }
    return n;
}

// Takes this program's own options off the command line before the benchmark library reads it:
// --runs=N, the runs of the memory benchmarks, and --host-log=N, the log lines the host keeps
// (0: all of them).
void takeOptions(int& argc, char** argv) {
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (std::strncmp(arg, "--runs=", 7) == 0)
            runsWanted = countArgument(arg, 7, false);
        else if (std::strncmp(arg, "--host-log=", 11) == 0)
            hostLogLines = countArgument(arg, 11, true);
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    argv[argc] = nullptr;
}

} // namespace

int main(int argc, char** argv) {
    takeOptions(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RegisterBenchmark("SequentialRuns", SequentialRuns)
        ->ArgName("table_full")
        ->Arg(0)
        ->Arg(1)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
    for (int clients : {1, 2})
        benchmark::RegisterBenchmark(
            ("MemoryOverRuns/" + std::to_string(runsWanted) + "/clients:" + std::to_string(clients))
                .c_str(),
            [clients](benchmark::State& state) { MemoryOverRuns(state, clients); })
            ->Iterations(1)
            ->Unit(benchmark::kSecond)
            ->UseRealTime();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // Stops what runs are still going and joins their workers before the process ends.
    if (madeTarget != nullptr)
        madeTarget->host->shutdown();
    return 0;
}
