// The HTTP benchmarks (HttpBench.h) against cpp-httplib (Debian builds it as a shared library,
// libcpp-httplib.so, with OpenSSL, zlib and brotli), in two set-ups:
//   defaults: the library's own settings (a task queue of max(8, cores - 1) worker threads, one
//             connection per worker for as long as it stays open, at most 5 requests per
//             keep-alive connection, 5 s keep-alive and read timeouts, no TCP_NODELAY, no limit
//             on the request body);
//   tuned:    at most 100,000 requests per connection, TCP_NODELAY, request bodies above 16 MiB
//             refused (set_payload_max_length, 413).
// Streamed responses come from a chunked content provider; each DataSink::write is one chunk.
// The library has no way to send a trailer after the last chunk, so none is sent.
#include "HttpBench.h"

#include <httplib.h>

#include <memory>
#include <thread>

namespace {

using namespace wbembench;

void routes(httplib::Server& svr) {
    svr.Post("/cimom", [](const httplib::Request&, httplib::Response& res) {
        res.set_header("CIMOperation", "MethodResponse");
        res.set_content(responseBody(), "application/xml; charset=\"utf-8\"");
    });
    for (bool gathered : {false, true}) {
        svr.Post(gathered ? "/streamb" : "/stream1",
                 [gathered](const httplib::Request&, httplib::Response& res) {
                     res.set_header("CIMOperation", "MethodResponse");
                     auto source = std::make_shared<PieceSource>();
                     auto block = std::make_shared<std::string>();
                     res.set_chunked_content_provider(
                         "application/xml; charset=\"utf-8\"",
                         [source, block, gathered](std::size_t, httplib::DataSink& sink) {
                             if (gathered) {
                                 block->resize(gatherBytes);
                                 std::size_t n = source->fill(block->data(), block->size());
                                 if (n > 0)
                                     return sink.write(block->data(), n);
                             } else if (const std::string* piece = source->next()) {
                                 return sink.write(piece->data(), piece->size());
                             }
                             sink.done();
                             return true;
                         });
                 });
    }
    svr.Get("/rusage", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(rusageText(), "text/plain");
    });
}

void run(bool tuned, int portFd, int stopFd) {
    httplib::Server svr;
    routes(svr);
    if (tuned) {
        svr.set_keep_alive_max_count(100000);
        svr.set_tcp_nodelay(true);
        svr.set_payload_max_length(16u << 20);
    }
    int port = svr.bind_to_any_port("127.0.0.1");
    if (port <= 0)
        _exit(1);
    std::thread listener([&svr] { svr.listen_after_bind(); });
    announcePort(portFd, static_cast<std::uint16_t>(port));
    waitForEnd(stopFd);
    svr.stop();
    listener.join();
}

} // namespace

int main(int argc, char** argv) {
    std::vector<ServerConfig> configs = {
        {"httplib/defaults", [](int portFd, int stopFd) { run(false, portFd, stopFd); }},
        {"httplib/tuned", [](int portFd, int stopFd) { run(true, portFd, stopFd); }},
    };
    return httpBenchMain(argc, argv, configs);
}
