// The WBEM server as clients meet it: CIM-XML requests over one keep-alive loopback connection to
// `WbemHttpServer` serving the shipped providers. The server runs in a child process, so the CPU
// time reported per request ("server_us") is the server's alone, read from /proc; the wall time
// includes the client. Records for the enumerations are made by RunDiagnostic calls first.
#include "host/Host.h"
#include "server/WbemHttpServer.h"

#include "WbemBenchClient.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace {

// The server's process: the shipped classes, registrations and providers, served on a free port
// that is written to `portPipe`; it runs until killed.
[[noreturn]] void serveInChild(int portPipe) {
    diaghost::Host::Options options;
    options.providerPath.push_back(DIAGCORE_BINARY_DIR "/providers");
    options.upcallsOnOtherThread = true;
    options.strict = true;
    options.logCapacity = 1024; // as diagctl serve keeps them
    diaghost::Host host(options);
    host.loadMof(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
    host.loadRegistrations(DIAGCORE_SOURCE_DIR "/mof/registration/diagcore.reg");
    diagserver::WbemHttpServer::Options serverOptions;
    serverOptions.listen = {"127.0.0.1:0"};
    diagserver::WbemHttpServer server(host, serverOptions);
    server.start();
    unsigned short port = server.ports().front();
    if (write(portPipe, &port, sizeof port) != static_cast<ssize_t>(sizeof port))
        _exit(1);
    for (;;)
        pause();
}

struct Server {
    pid_t pid = -1;
    unsigned short port = 0;
    std::unique_ptr<wbembench::WbemBenchClient> client;

    Server() {
        int fds[2];
        if (pipe(fds) != 0)
            std::abort();
        pid = fork();
        if (pid == 0) {
            close(fds[0]);
            serveInChild(fds[1]);
        }
        close(fds[1]);
        if (read(fds[0], &port, sizeof port) != static_cast<ssize_t>(sizeof port))
            std::abort();
        close(fds[0]);
        client = std::make_unique<wbembench::WbemBenchClient>(port);
    }
    ~Server() {
        client.reset();
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    // The server process's CPU time so far, in microseconds.
    double cpuMicros() const { return wbembench::processCpuMicros(pid); }

    // Sends one request and reads the whole answer, chunked or not; the body's size.
    std::size_t call(const std::string& method, const std::string& object,
                     const std::string& body) {
        return client->call(method, object, body).bytes;
    }
};

Server& server() {
    static Server s;
    return s;
}

std::string message(const std::string& call) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
           "<MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" +
           call + "</SIMPLEREQ></MESSAGE></CIM>";
}

const std::string ns = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/><NAMESPACE NAME=\"cimv2\"/>"
                       "</LOCALNAMESPACEPATH>";

std::string enumerate(const std::string& op, const std::string& cls) {
    return message("<IMETHODCALL NAME=\"" + op + "\">" + ns +
                   "<IPARAMVALUE NAME=\"ClassName\"><CLASSNAME NAME=\"" + cls +
                   "\"/></IPARAMVALUE></IMETHODCALL>");
}

const std::string serviceName =
    "<INSTANCENAME CLASSNAME=\"ZORQ_NetDiagService\"><KEYBINDING NAME=\"CreationClassName\">"
    "<KEYVALUE>ZORQ_NetDiagService</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Name\"><KEYVALUE>"
    "NetworkPortLink</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemCreationClassName\">"
    "<KEYVALUE>ZORQ_ComputerSystem</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemName\">"
    "<KEYVALUE>" +
    diagserver::WbemHttpServer::localHostName() + "</KEYVALUE></KEYBINDING></INSTANCENAME>";

// Records made so far, by RunDiagnostic of the link test on the loopback interface.
std::size_t& recordsMade() {
    static std::size_t made = 0;
    return made;
}

void makeRecords(std::size_t n) {
    const std::string run = message(
        "<METHODCALL NAME=\"RunDiagnostic\"><LOCALINSTANCEPATH>" + ns + serviceName +
        "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"ManagedElement\"><VALUE.REFERENCE>"
        "<INSTANCENAME CLASSNAME=\"ZORQ_NetworkPort\"><KEYBINDING NAME=\"CreationClassName\">"
        "<KEYVALUE>ZORQ_NetworkPort</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"DeviceID\"><KEYVALUE>"
        "lo</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemCreationClassName\"><KEYVALUE>"
        "ZORQ_ComputerSystem</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemName\"><KEYVALUE>" +
        diagserver::WbemHttpServer::localHostName() +
        "</KEYVALUE></KEYBINDING></INSTANCENAME></VALUE.REFERENCE></PARAMVALUE></METHODCALL>");
    for (; recordsMade() < n; ++recordsMade())
        server().call("RunDiagnostic", "root/cimv2:ZORQ_NetDiagService", run);
}

template <class Body>
void measured(benchmark::State& state, double items, Body&& body) {
    Server& s = server();
    const double before = s.cpuMicros();
    for (auto _ : state)
        benchmark::DoNotOptimize(body());
    const double spent = s.cpuMicros() - before;
    state.counters["server_us_per_item"] =
        spent / (static_cast<double>(state.iterations()) * items);
    state.SetItemsProcessed(static_cast<int64_t>(static_cast<double>(state.iterations()) * items));
}

void GetInstance(benchmark::State& state) {
    const std::string body =
        message("<IMETHODCALL NAME=\"GetInstance\">" + ns + "<IPARAMVALUE NAME=\"InstanceName\">" +
                serviceName + "</IPARAMVALUE></IMETHODCALL>");
    measured(state, 1, [&] { return server().call("GetInstance", "root/cimv2", body); });
}
BENCHMARK(GetInstance)->Unit(benchmark::kMicrosecond)->UseRealTime();

void RunDiagnostic(benchmark::State& state) {
    measured(state, 1, [&] {
        makeRecords(recordsMade() + 1);
        return recordsMade();
    });
}
BENCHMARK(RunDiagnostic)->Unit(benchmark::kMicrosecond)->UseRealTime();

void EnumerateRecords(benchmark::State& state, const char* op) {
    const auto n = static_cast<std::size_t>(state.range(0));
    makeRecords(n);
    const std::string body = enumerate(op, "ZORQ_NetDiagRecord");
    measured(state, static_cast<double>(recordsMade()),
             [&] { return server().call(op, "root/cimv2", body); });
    state.counters["records"] = static_cast<double>(recordsMade());
}
void EnumerateInstances(benchmark::State& state) {
    EnumerateRecords(state, "EnumerateInstances");
}
void EnumerateInstanceNames(benchmark::State& state) {
    EnumerateRecords(state, "EnumerateInstanceNames");
}
BENCHMARK(EnumerateInstances)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(EnumerateInstanceNames)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
