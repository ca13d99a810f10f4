// The HTTP benchmarks (HttpBench.h) against libmicrohttpd, in two threading models:
//   epoll-pool2:        MHD_USE_EPOLL_INTERNAL_THREAD with a pool of 2 threads (one per core),
//                       each polling its share of the connections;
//   thread-per-conn:    MHD_USE_THREAD_PER_CONNECTION, a thread per connection.
// Both with a limit of 256 connections, a 60 s idle timeout, and request bodies above 16 MiB
// refused with 413 as soon as the headers are in (the handler reads Content-Length).
// Streamed responses come from a content reader callback (size unknown, so chunked); the
// trailer is added to the response from inside the callback just before it reports the end.
#include "HttpBench.h"

#include <microhttpd.h>

#include <thread>

namespace {

using namespace wbembench;

constexpr std::uint64_t maxBody = 16u << 20;

struct Exchange {
    std::string body;
    bool refused = false;
};

struct Stream {
    PieceSource source;
    bool gathered = false;
    MHD_Response* response = nullptr;
    const std::string* pending = nullptr; // piece by piece: the piece being copied out
    std::size_t pendingOffset = 0;
};

ssize_t readStream(void* cls, std::uint64_t, char* buf, std::size_t max) {
    auto* s = static_cast<Stream*>(cls);
    if (s->gathered) {
        std::size_t n = s->source.fill(buf, max);
        if (n > 0)
            return static_cast<ssize_t>(n);
    } else {
        if (!s->pending) {
            s->pending = s->source.next();
            s->pendingOffset = 0;
        }
        if (s->pending) {
            std::size_t n = std::min(max, s->pending->size() - s->pendingOffset);
            std::memcpy(buf, s->pending->data() + s->pendingOffset, n);
            s->pendingOffset += n;
            if (s->pendingOffset == s->pending->size())
                s->pending = nullptr;
            return static_cast<ssize_t>(n);
        }
    }
    // The end: the status of the whole operation goes into the trailer.
    MHD_add_response_footer(s->response, "CIMStatusCode", "0");
    return MHD_CONTENT_READER_END_OF_STREAM;
}

void freeStream(void* cls) {
    delete static_cast<Stream*>(cls);
}

MHD_Result queue(MHD_Connection* c, unsigned status, MHD_Response* r) {
    MHD_Result ok = MHD_queue_response(c, status, r);
    MHD_destroy_response(r);
    return ok;
}

MHD_Result onRequest(void*, MHD_Connection* c, const char* url, const char* method, const char*,
                     const char* upload, std::size_t* uploadSize, void** slot) {
    auto* ex = static_cast<Exchange*>(*slot);
    if (!ex) {
        ex = new Exchange;
        *slot = ex;
        const char* length = MHD_lookup_connection_value(c, MHD_HEADER_KIND, "Content-Length");
        if (length && std::strtoull(length, nullptr, 10) > maxBody) {
            ex->refused = true;
            static const char text[] = "request body too large";
            return queue(c, 413,
                         MHD_create_response_from_buffer(sizeof text - 1, (void*)text,
                                                         MHD_RESPMEM_PERSISTENT));
        }
        return MHD_YES;
    }
    if (*uploadSize) {
        ex->body.append(upload, *uploadSize);
        *uploadSize = 0;
        return MHD_YES;
    }
    bool post = std::strcmp(method, "POST") == 0 || std::strcmp(method, "M-POST") == 0;
    if (post && std::strcmp(url, "/cimom") == 0) {
        const std::string& body = responseBody();
        MHD_Response* r = MHD_create_response_from_buffer(body.size(), (void*)body.data(),
                                                          MHD_RESPMEM_PERSISTENT);
        MHD_add_response_header(r, "Content-Type", "application/xml; charset=\"utf-8\"");
        MHD_add_response_header(r, "CIMOperation", "MethodResponse");
        return queue(c, 200, r);
    }
    if (post && (std::strcmp(url, "/stream1") == 0 || std::strcmp(url, "/streamb") == 0)) {
        auto* s = new Stream;
        s->gathered = url[7] == 'b';
        MHD_Response* r = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, gatherBytes,
                                                            readStream, s, freeStream);
        s->response = r;
        MHD_add_response_header(r, "Content-Type", "application/xml; charset=\"utf-8\"");
        MHD_add_response_header(r, "CIMOperation", "MethodResponse");
        MHD_add_response_header(r, "Trailer", "CIMStatusCode");
        return queue(c, 200, r);
    }
    if (std::strcmp(url, "/rusage") == 0) {
        std::string text = rusageText();
        return queue(c, 200,
                     MHD_create_response_from_buffer(text.size(), (void*)text.data(),
                                                     MHD_RESPMEM_MUST_COPY));
    }
    return queue(c, 404, MHD_create_response_from_buffer(0, (void*)"", MHD_RESPMEM_PERSISTENT));
}

void onCompleted(void*, MHD_Connection*, void** slot, MHD_RequestTerminationCode) {
    delete static_cast<Exchange*>(*slot);
    *slot = nullptr;
}

void run(unsigned flags, unsigned poolThreads, int portFd, int stopFd) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = 0;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    MHD_Daemon* d =
        poolThreads > 0
            ? MHD_start_daemon(flags, 0, nullptr, nullptr, onRequest, nullptr, MHD_OPTION_SOCK_ADDR,
                               &addr, MHD_OPTION_NOTIFY_COMPLETED, onCompleted, nullptr,
                               MHD_OPTION_CONNECTION_LIMIT, 256u, MHD_OPTION_CONNECTION_TIMEOUT,
                               60u, MHD_OPTION_THREAD_POOL_SIZE, poolThreads, MHD_OPTION_END)
            : MHD_start_daemon(flags, 0, nullptr, nullptr, onRequest, nullptr, MHD_OPTION_SOCK_ADDR,
                               &addr, MHD_OPTION_NOTIFY_COMPLETED, onCompleted, nullptr,
                               MHD_OPTION_CONNECTION_LIMIT, 256u, MHD_OPTION_CONNECTION_TIMEOUT,
                               60u, MHD_OPTION_END);
    if (!d)
        _exit(1);
    const MHD_DaemonInfo* info = MHD_get_daemon_info(d, MHD_DAEMON_INFO_BIND_PORT);
    announcePort(portFd, info ? info->port : 0);
    waitForEnd(stopFd);
    MHD_stop_daemon(d);
}

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--checks") == 0)
            std::printf("libmicrohttpd %s: TLS %s, Basic auth %s, epoll %s, HTTP/1.1 upgrade %s\n",
                        MHD_get_version(), MHD_is_feature_supported(MHD_FEATURE_TLS) ? "yes" : "no",
                        MHD_is_feature_supported(MHD_FEATURE_BASIC_AUTH) ? "yes" : "no",
                        MHD_is_feature_supported(MHD_FEATURE_EPOLL) ? "yes" : "no",
                        MHD_is_feature_supported(MHD_FEATURE_UPGRADE) ? "yes" : "no");
    }
    std::vector<ServerConfig> configs = {
        {"mhd/epoll-pool2",
         [](int portFd, int stopFd) {
             run(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ERROR_LOG, 2, portFd, stopFd);
         }},
        {"mhd/thread-per-conn",
         [](int portFd, int stopFd) {
             run(MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL |
                     MHD_USE_ERROR_LOG,
                 0, portFd, stopFd);
         }},
    };
    return httpBenchMain(argc, argv, configs);
}
