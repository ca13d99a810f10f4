// The core's share of serving cost. One WBEM server, in a child process, serves the same records
// twice: as ZORQ_NetDiagRecord from libzorqnetdiag.so, a provider built on libdiagcore, whose
// records are made by RunDiagnostic calls of the link test on the loopback interface; and as
// ZORQ_BareRecord from libzorqbarerecord.so (bench/bare), a provider written in plain C on the
// CMPI function tables alone, whose records carry the same property values. Both are asked the
// same CIM-XML requests over one keep-alive loopback connection.
//
// server_us_per_item is the server process's CPU time (read from /proc, so the client's own work
// is left out) per instance or path returned, or per request for GetInstance. A bare benchmark
// also reports core_over_bare, the core's figure for the same request divided by its own.
// The PeakRss benchmarks enumerate 100,000 records once and report how far the server's peak
// resident size rose above its size just before (the peak is reset first, through clear_refs),
// against a bound of 64 MiB. Each runs in a new server process, which for the core first makes
// its 100,000 records by RunDiagnostic (some 15 s).
#include "WbemBenchClient.h"
#include "host/Host.h"
#include "server/WbemHttpServer.h"

#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>

namespace {

using wbembench::Answer;
using wbembench::cimMessage;
using wbembench::rootCimv2;

// The server's process: the shipped classes and providers and the bare ones, served on a free
// port that is written to `portPipe`; it runs until killed.
[[noreturn]] void serveInChild(int portPipe) {
    try {
        diaghost::Host::Options options;
        options.providerPath.push_back(DIAGCORE_BINARY_DIR "/providers");
        options.providerPath.push_back(DIAGCORE_BINARY_DIR "/bench/bare");
        options.upcallsOnOtherThread = true;
        options.strict = true;
        options.logCapacity = 1024; // as diagctl serve keeps them
        diaghost::Host host(options);
        host.loadMof(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
        host.loadMof(DIAGCORE_SOURCE_DIR "/bench/bare/bare.mof");
        host.loadRegistrations(DIAGCORE_SOURCE_DIR "/mof/registration/diagcore.reg");
        host.loadRegistrations(DIAGCORE_SOURCE_DIR "/bench/bare/bare.reg");
        diagserver::WbemHttpServer::Options serverOptions;
        serverOptions.listen = {"127.0.0.1:0"};
        diagserver::WbemHttpServer server(host, serverOptions);
        server.start();
        unsigned short port = server.ports().front();
        if (write(portPipe, &port, sizeof port) != static_cast<ssize_t>(sizeof port))
            _exit(1);
        for (;;)
            pause();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_core_share: the server did not start: %s\n", e.what());
        _exit(1);
    }
}

struct Server {
    pid_t pid = -1;
    std::unique_ptr<wbembench::WbemBenchClient> client;
    std::size_t coreRecords = 0; // ZORQ_NetDiagRecord instances made so far

    Server() {
        int fds[2];
        if (pipe(fds) != 0)
            std::abort();
        pid = fork();
        if (pid < 0)
            std::abort();
        if (pid == 0) {
            close(fds[0]);
            serveInChild(fds[1]);
        }
        close(fds[1]);
        unsigned short port = 0;
        if (read(fds[0], &port, sizeof port) != static_cast<ssize_t>(sizeof port)) {
            std::fprintf(stderr, "bench_core_share: the server process gave no port\n");
            std::exit(1);
        }
        close(fds[0]);
        client = std::make_unique<wbembench::WbemBenchClient>(port);
    }
    ~Server() {
        client.reset();
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    double cpuMicros() const { return wbembench::processCpuMicros(pid); }
    Answer call(const std::string& method, const std::string& object, const std::string& body,
                const std::string& count = std::string(), bool keepBody = false) {
        return client->call(method, object, body, count, keepBody);
    }
};

// The server of the CPU figures.
Server& server() {
    static Server s;
    return s;
}

// The two providers of the same records.
struct Target {
    const char* label;
    const char* className;
};
const Target core{"core", "ZORQ_NetDiagRecord"};
const Target bare{"bare", "ZORQ_BareRecord"};

// A new server process in place of the previous one, for memory figures that no earlier
// request lowers by the heap it left free.
Server& freshServer() {
    static std::unique_ptr<Server> s;
    s.reset();
    s = std::make_unique<Server>();
    return *s;
}

// ---- Records --------------------------------------------------------------------------------

// RunDiagnostic of the link test on the loopback interface until `n` core records exist.
void makeCoreRecords(Server& s, std::size_t n) {
    const std::string host = diagserver::WbemHttpServer::localHostName();
    const std::string run = cimMessage(
        "<METHODCALL NAME=\"RunDiagnostic\"><LOCALINSTANCEPATH>" + rootCimv2() +
        "<INSTANCENAME CLASSNAME=\"ZORQ_NetDiagService\"><KEYBINDING NAME=\"CreationClassName\">"
        "<KEYVALUE>ZORQ_NetDiagService</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Name\">"
        "<KEYVALUE>NetworkPortLink</KEYVALUE></KEYBINDING><KEYBINDING "
        "NAME=\"SystemCreationClassName\"><KEYVALUE>ZORQ_ComputerSystem</KEYVALUE></KEYBINDING>"
        "<KEYBINDING NAME=\"SystemName\"><KEYVALUE>" +
        host +
        "</KEYVALUE></KEYBINDING></INSTANCENAME></LOCALINSTANCEPATH>"
        "<PARAMVALUE NAME=\"ManagedElement\"><VALUE.REFERENCE><INSTANCENAME "
        "CLASSNAME=\"ZORQ_NetworkPort\"><KEYBINDING NAME=\"CreationClassName\"><KEYVALUE>"
        "ZORQ_NetworkPort</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"DeviceID\"><KEYVALUE>lo"
        "</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemCreationClassName\"><KEYVALUE>"
        "ZORQ_ComputerSystem</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemName\"><KEYVALUE>" +
        host +
        "</KEYVALUE></KEYBINDING></INSTANCENAME></VALUE.REFERENCE></PARAMVALUE></METHODCALL>");
    for (; s.coreRecords < n; ++s.coreRecords) {
        Answer a = s.call("RunDiagnostic", "root/cimv2:ZORQ_NetDiagService", run, "<RETURNVALUE");
        if (a.error || a.matches != 1)
            throw std::runtime_error("RunDiagnostic failed");
    }
}

// Sets how many records the bare provider serves.
void setBareRecords(Server& s, std::size_t n) {
    const std::string call = cimMessage(
        "<METHODCALL NAME=\"SetRecordCount\"><LOCALCLASSPATH>" + rootCimv2() +
        "<CLASSNAME NAME=\"ZORQ_BareRecordControl\"/></LOCALCLASSPATH><PARAMVALUE NAME=\"Count\">"
        "<VALUE>" +
        std::to_string(n) + "</VALUE></PARAMVALUE></METHODCALL>");
    Answer a =
        s.call("SetRecordCount", "root/cimv2:ZORQ_BareRecordControl", call, "<RETURNVALUE", true);
    if (a.error || a.matches != 1)
        throw std::runtime_error("SetRecordCount failed: " + a.body);
}

// Makes `target` serve `n` records. The core's records are only ever added: when more were made
// before, it serves those.
void prepare(Server& s, const Target& target, std::size_t n) {
    if (&target == &core)
        makeCoreRecords(s, n);
    else
        setBareRecords(s, n);
}

std::string enumerateRequest(const std::string& op, const std::string& cls) {
    return cimMessage("<IMETHODCALL NAME=\"" + op + "\">" + rootCimv2() +
                      "<IPARAMVALUE NAME=\"ClassName\"><CLASSNAME NAME=\"" + cls +
                      "\"/></IPARAMVALUE></IMETHODCALL>");
}

// ---- Measuring ------------------------------------------------------------------------------

// The core's server_us_per_item of each request, for the bare benchmark of the same request.
std::map<std::string, double>& coreFigures() {
    static std::map<std::string, double> figures;
    return figures;
}

// Runs `call` (answering an Answer) in the benchmark's loop; `items` of the answer are what the
// CPU time is divided by (instances or paths returned, or 1 per request).
template <class Call, class Items>
void measured(benchmark::State& state, Server& s, const Target& target, const std::string& key,
              Call&& call, Items&& items) {
    double count = 0;
    const double before = s.cpuMicros();
    for (auto _ : state) {
        try {
            Answer a = call();
            if (a.error) {
                state.SkipWithError("the server answered a CIM error");
                break;
            }
            count += items(a);
        } catch (const std::exception& e) {
            state.SkipWithError(e.what());
            break;
        }
    }
    if (state.error_occurred())
        return;
    const double spent = s.cpuMicros() - before;
    if (count <= 0)
        return;
    const double perItem = spent / count;
    state.counters["server_us_per_item"] = perItem;
    state.SetItemsProcessed(static_cast<int64_t>(count));
    if (&target == &core) {
        coreFigures()[key] = perItem;
    } else if (auto found = coreFigures().find(key); found != coreFigures().end()) {
        if (perItem > 0)
            state.counters["core_over_bare"] = found->second / perItem;
    }
}

void Enumerate(benchmark::State& state, const Target& target, const std::string& op,
               std::size_t n) {
    try {
        prepare(server(), target, n);
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
        return;
    }
    const std::string body = enumerateRequest(op, target.className);
    std::size_t returned = 0;
    measured(
        state, server(), target, op + "/" + std::to_string(n),
        [&] { return server().call(op, "root/cimv2", body, "<INSTANCENAME"); },
        [&](const Answer& a) {
            returned = a.matches;
            return static_cast<double>(a.matches);
        });
    state.counters["records"] = static_cast<double>(returned);
}

// The INSTANCENAME element of the record in the middle of `target`'s enumeration, as the server
// wrote it.
std::string middleInstanceName(const Target& target) {
    Answer a = server().call("EnumerateInstanceNames", "root/cimv2",
                             enumerateRequest("EnumerateInstanceNames", target.className),
                             "<INSTANCENAME", true);
    if (a.error || a.matches == 0)
        throw std::runtime_error(std::string("no ") + target.className + " to get");
    std::size_t at = 0;
    for (std::size_t i = 0; i <= a.matches / 2; ++i)
        at = a.body.find("<INSTANCENAME", i == 0 ? 0 : at + 1);
    const std::size_t end = a.body.find("</INSTANCENAME>", at);
    return a.body.substr(at, end + 15 - at);
}

std::string getInstanceRequest(const std::string& instanceName) {
    return cimMessage("<IMETHODCALL NAME=\"GetInstance\">" + rootCimv2() +
                      "<IPARAMVALUE NAME=\"InstanceName\">" + instanceName +
                      "</IPARAMVALUE></IMETHODCALL>");
}

// The INSTANCE element of a GetInstance answer with the class name made the core's and every
// datetime value blanked out, for comparing the bare record with the core's.
std::string comparable(const std::string& answer) {
    const std::size_t from = answer.find("<INSTANCE ");
    const std::size_t to = answer.find("</INSTANCE>");
    if (from == std::string::npos || to == std::string::npos)
        return "(no instance)";
    std::string text = answer.substr(from, to - from);
    text = std::regex_replace(text, std::regex(bare.className), core.className);
    return std::regex_replace(text, std::regex("[0-9]{14}\\.[0-9]{6}[+-][0-9]{3}"), "DATETIME");
}

void GetInstance(benchmark::State& state, const Target& target, std::size_t n) {
    std::string body;
    double sameValues = -1;
    try {
        prepare(server(), target, n);
        body = getInstanceRequest(middleInstanceName(target));
        if (&target == &bare) {
            // The bare record against a core record, once: the same properties and values, the
            // per-record key and time apart.
            prepare(server(), core, n);
            const std::string coreBody = getInstanceRequest(middleInstanceName(core));
            const std::string coreInstance =
                comparable(server().call("GetInstance", "root/cimv2", coreBody, "", true).body);
            const std::string bareInstance =
                comparable(server().call("GetInstance", "root/cimv2", body, "", true).body);
            sameValues = coreInstance == bareInstance ? 1 : 0;
            if (coreInstance != bareInstance)
                std::fprintf(stderr, "bench_core_share: the records differ\ncore: %s\nbare: %s\n",
                             coreInstance.c_str(), bareInstance.c_str());
        }
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
        return;
    }
    measured(
        state, server(), target, "GetInstance",
        [&] { return server().call("GetInstance", "root/cimv2", body, "<INSTANCE "); },
        [](const Answer& a) {
            if (a.matches != 1)
                throw std::runtime_error("GetInstance returned no instance");
            return 1.0;
        });
    if (sameValues >= 0)
        state.counters["same_values"] = sameValues;
}

// One enumeration of `n` records; how far the server's peak resident size rose above the size it
// had before.
void PeakRss(benchmark::State& state, const Target& target, const std::string& op, std::size_t n) {
    Server& s = freshServer();
    try {
        prepare(s, target, n);
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
        return;
    }
    const std::string body = enumerateRequest(op, target.className);
    const bool reset = wbembench::resetPeakRss(s.pid);
    const long idle = wbembench::processStatusKiB(s.pid, "VmRSS");
    std::size_t returned = 0;
    measured(
        state, s, target, "PeakRss/" + op,
        [&] { return s.call(op, "root/cimv2", body, "<INSTANCENAME"); },
        [&](const Answer& a) {
            returned = a.matches;
            return static_cast<double>(a.matches);
        });
    const long peak = wbembench::processStatusKiB(s.pid, "VmHWM");
    const double growthMiB = static_cast<double>(peak - idle) / 1024.0;
    state.counters["records"] = static_cast<double>(returned);
    state.counters["idle_MiB"] = static_cast<double>(idle) / 1024.0;
    state.counters["peak_MiB"] = static_cast<double>(peak) / 1024.0;
    state.counters["growth_MiB"] = growthMiB;
    state.counters["within_64MiB"] = growthMiB <= 64.0 ? 1 : 0;
    // 0: the kernel did not reset the peak, which is then the process's whole-life peak.
    state.counters["peak_reset"] = reset ? 1 : 0;
}

void registerBenchmarks() {
    const Target* targets[] = {&core, &bare};
    for (std::size_t n : {std::size_t{1000}, std::size_t{10000}})
        for (const char* op : {"EnumerateInstances", "EnumerateInstanceNames"})
            for (const Target* target : targets)
                benchmark::RegisterBenchmark(
                    (std::string(op) + "/" + target->label + "/" + std::to_string(n)).c_str(),
                    [target, op, n](benchmark::State& state) { Enumerate(state, *target, op, n); })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
    for (const Target* target : targets)
        benchmark::RegisterBenchmark(
            (std::string("GetInstance/") + target->label).c_str(),
            [target](benchmark::State& state) { GetInstance(state, *target, 10000); })
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
    // Each in a server process of its own.
    for (const Target* target : {&bare, &core})
        for (const char* op : {"EnumerateInstanceNames", "EnumerateInstances"})
            benchmark::RegisterBenchmark(
                (std::string("PeakRss/") + op + "/" + target->label + "/100000").c_str(),
                [target, op](benchmark::State& state) { PeakRss(state, *target, op, 100000); })
                ->Iterations(1)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    registerBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
