// The frame of the HTTP server library benchmark programs.
//
// A program hands httpBenchMain its server configurations. Each configuration runs in a child
// process of its own (forked before any thread exists), listening on 127.0.0.1 at a port the
// kernel picks, and answers:
//   POST (and M-POST) /cimom  the fixed ~2 KiB CIM-XML response (responseBody()), after reading
//                             the whole request body;
//   POST /stream1             a chunked response of streamPieces pieces of 500 bytes, each
//                             handed to the library on its own, with the trailer
//                             "CIMStatusCode: 0" after the last chunk if the library can send one;
//   POST /streamb             the same pieces, gathered by the server code into blocks of 64 KiB
//                             before they are handed to the library;
//   GET /rusage               the CPU time the server process has used (getrusage), "user sys"
//                             in microseconds.
// The client is ours (raw sockets, HTTP/1.1 keep-alive, its own chunked decoder that keeps the
// trailers) and runs in the benchmark process. Server CPU per request is the difference of the
// server process's CPU time (every thread of it: listener, pollers, workers, and the kernel's
// work for its sockets) over the measured requests, read through /rusage on a connection of its
// own before and after; the client's CPU is the benchmark's own CPU column. The server's memory
// while it streams is its resident set: /proc/PID/clear_refs resets the high-water mark to the
// current size before the stream, /proc/PID/status gives VmHWM after it.
#ifndef DIAGCORE_BENCH_WBEM_HTTPBENCH_H
#define DIAGCORE_BENCH_WBEM_HTTPBENCH_H

#include "HttpHarness.h"

#include "CimXml.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace wbembench {

// ---------------------------------------------------------------------------------------------
// The benchmarks.

inline void benchPost(benchmark::State& state, const RunningServer& s) {
    const int count = static_cast<int>(state.range(0));
    const std::string request = cimRequest("POST", "/cimom", toXml(getInstanceRequest()));
    std::vector<Connection> conns(static_cast<std::size_t>(count));
    for (Connection& c : conns)
        if (!c.open(s.port)) {
            state.SkipWithError("cannot connect");
            return;
        }
    long reconnects = 0;
    HttpResponse r;
    double cpu0 = serverCpuMicros(s);
    for (auto _ : state) {
        for (Connection& c : conns) {
            if (!c.isOpen()) {
                ++reconnects;
                c.open(s.port);
            }
            c.send(request);
        }
        for (Connection& c : conns) {
            if (!c.read(r, false) || r.status != 200 || r.bodyBytes != responseBody().size()) {
                state.SkipWithError("bad response");
                return;
            }
        }
    }
    double cpu1 = serverCpuMicros(s);
    double requests = static_cast<double>(state.iterations()) * count;
    state.SetItemsProcessed(static_cast<std::int64_t>(requests));
    state.counters["server_cpu_us_per_req"] = (cpu1 - cpu0) / requests;
    state.counters["reconnects_per_1k"] = 1000.0 * static_cast<double>(reconnects) / requests;
}

inline void benchStream(benchmark::State& state, const RunningServer& s, bool gathered) {
    const std::string request =
        cimRequest("POST", gathered ? "/streamb" : "/stream1", toXml(getInstanceRequest()));
    Connection c;
    HttpResponse r;
    double chunks = 0;
    double trailer = 0;
    double rssBefore = 0;
    double rssPeak = 0;
    double cpu = 0;
    for (auto _ : state) {
        state.PauseTiming();
        resetPeakRss(s.pid);
        long before = statusKiB(s.pid, "VmRSS");
        double cpu0 = serverCpuMicros(s);
        if (!c.isOpen())
            c.open(s.port);
        state.ResumeTiming();
        if (!c.send(request) || !c.read(r, false) || r.status != 200 ||
            r.bodyBytes != streamPieces * pieceBytes) {
            state.SkipWithError("bad streamed response");
            return;
        }
        state.PauseTiming();
        cpu += serverCpuMicros(s) - cpu0;
        rssBefore = static_cast<double>(before);
        rssPeak = std::max(rssPeak, static_cast<double>(statusKiB(s.pid, "VmHWM")));
        chunks = static_cast<double>(r.chunks);
        trailer = 0;
        for (const auto& t : r.trailers)
            if (t.first == "CIMStatusCode" && t.second == "0")
                trailer = 1;
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * streamPieces *
                            static_cast<std::int64_t>(pieceBytes));
    state.counters["server_cpu_ms"] = cpu / 1000.0 / static_cast<double>(state.iterations());
    state.counters["wire_chunks"] = chunks;
    state.counters["trailer"] = trailer;
    state.counters["rss_before_KiB"] = rssBefore;
    state.counters["rss_peak_KiB"] = rssPeak;
}

// ---------------------------------------------------------------------------------------------
// The behaviour checks (--checks).

inline void runChecks(const RunningServer& s) {
    std::printf("\n## %s\n\n", s.name.c_str());
    const std::string body = toXml(getInstanceRequest());
    {
        Connection c;
        HttpResponse r;
        int reconnects = 0;
        int ok = 0;
        c.open(s.port);
        for (int i = 0; i < 20; ++i) {
            if (!c.isOpen()) {
                ++reconnects;
                c.open(s.port);
            }
            if (c.send(cimRequest("POST", "/cimom", body)) && c.read(r, true) && r.status == 200)
                ++ok;
        }
        std::printf("- 20 POST /cimom on one keep-alive connection: %d answered 200, the server "
                    "closed the connection %d times\n",
                    ok, reconnects);
    }
    {
        Connection c;
        HttpResponse r;
        c.open(s.port);
        bool read = c.send(cimRequest("M-POST", "/cimom", body)) && c.read(r, true);
        std::printf("- M-POST /cimom: %s\n",
                    read ? ("status " + std::to_string(r.status)).c_str() : "no response");
    }
    for (bool gathered : {false, true}) {
        Connection c;
        HttpResponse r;
        c.open(s.port);
        bool read = c.send(cimRequest("POST", gathered ? "/streamb" : "/stream1", body)) &&
                    c.read(r, false);
        std::string trailers;
        for (const auto& t : r.trailers)
            trailers += " " + t.first + ": " + t.second + ";";
        std::printf("- streamed response (%s): %s, %zu bytes in %zu chunks, trailers:%s\n",
                    gathered ? "gathered into 64 KiB" : "piece by piece",
                    read ? ("status " + std::to_string(r.status)).c_str() : "failed", r.bodyBytes,
                    r.chunks, trailers.empty() ? " none" : trailers.c_str());
    }
    {
        // Idle connections: do they keep others waiting?
        std::vector<Connection> idle(16);
        for (Connection& c : idle)
            c.open(s.port);
        usleep(200000);
        Connection c;
        HttpResponse r;
        auto t0 = std::chrono::steady_clock::now();
        bool read =
            c.open(s.port, 30) && c.send(cimRequest("POST", "/cimom", body)) && c.read(r, false);
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                        .count();
        std::printf("- with 16 idle connections open: a new connection's request %s after "
                    "%.1f ms\n",
                    read ? ("answered " + std::to_string(r.status)).c_str() : "failed", ms);
    }
    {
        // A request body far beyond anything sensible, announced in the headers.
        Connection c;
        HttpResponse r;
        c.open(s.port, 10);
        std::string head = "POST /cimom HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: "
                           "application/xml\r\nContent-Length: 10000000000\r\n\r\n";
        auto t0 = std::chrono::steady_clock::now();
        bool read = c.send(head) && c.send(std::string(65536, ' ')) && c.read(r, false);
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                        .count();
        std::printf("- a request announcing a 10 GB body (64 KiB sent): %s after %.1f ms\n",
                    read ? ("status " + std::to_string(r.status)).c_str()
                         : "no response (connection closed or timed out)",
                    ms);
    }
    std::fflush(stdout);
}

inline int httpBenchMain(int argc, char** argv, const std::vector<ServerConfig>& configs) {
    bool checks = false;
    for (int i = 1; i < argc; ++i)
        checks = checks || std::strcmp(argv[i], "--checks") == 0;
    static std::vector<RunningServer> servers;
    for (const ServerConfig& c : configs) {
        RunningServer s;
        if (!startServer(c, s)) {
            std::fprintf(stderr, "server %s did not start\n", c.name.c_str());
            return 1;
        }
        servers.push_back(s);
    }
    if (checks) {
        for (const RunningServer& s : servers)
            runChecks(s);
    } else {
        for (const RunningServer& s : servers) {
            benchmark::RegisterBenchmark(("HTTP/" + s.name + "/Post").c_str(),
                                         [&s](benchmark::State& st) { benchPost(st, s); })
                ->ArgName("connections")
                ->Arg(1)
                ->Arg(4)
                ->UseRealTime()
                ->Unit(benchmark::kMicrosecond);
            for (bool gathered : {false, true})
                benchmark::RegisterBenchmark(
                    ("HTTP/" + s.name + (gathered ? "/StreamGathered" : "/StreamPieces")).c_str(),
                    [&s, gathered](benchmark::State& st) { benchStream(st, s, gathered); })
                    ->Iterations(3)
                    ->UseRealTime()
                    ->Unit(benchmark::kMillisecond);
        }
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv))
            return 1;
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
    }
    for (RunningServer& s : servers)
        stopServer(s);
    return 0;
}

} // namespace wbembench

#endif // DIAGCORE_BENCH_WBEM_HTTPBENCH_H
