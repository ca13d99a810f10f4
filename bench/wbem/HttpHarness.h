// The HTTP benchmarks' harness: what the servers send, the keep-alive client with its chunked
// decoder, and the server configurations run in child processes (see HttpBench.h).
#ifndef DIAGCORE_BENCH_WBEM_HTTPHARNESS_H
#define DIAGCORE_BENCH_WBEM_HTTPHARNESS_H

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

constexpr int streamPieces = 100000;
constexpr std::size_t pieceBytes = 500;
constexpr std::size_t gatherBytes = 64 * 1024;

// ---------------------------------------------------------------------------------------------
// What the servers send.

// A GetInstance response of about 2 KiB.
inline const std::string& responseBody() {
    static const std::string body = [] {
        std::string s = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
                        "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
                        "<MESSAGE ID=\"1001\" PROTOCOLVERSION=\"1.0\">\n<SIMPLERSP>\n"
                        "<IMETHODRESPONSE NAME=\"GetInstance\">\n<IRETURNVALUE>\n"
                        "<INSTANCE CLASSNAME=\"ZORQ_FSDiagRecord\">\n";
        const std::string tail = "</INSTANCE>\n</IRETURNVALUE>\n</IMETHODRESPONSE>\n"
                                 "</SIMPLERSP>\n</MESSAGE>\n</CIM>\n";
        for (int i = 0; s.size() + tail.size() < 2000; ++i)
            s += "<PROPERTY NAME=\"Property" + std::to_string(i) +
                 "\" TYPE=\"string\"><VALUE>value of property " + std::to_string(i) +
                 "</VALUE></PROPERTY>\n";
        return s + tail;
    }();
    return body;
}

// One piece of a streamed enumeration: 500 bytes of an instance.
inline const std::string& streamPiece() {
    static const std::string piece = [] {
        std::string s = "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"ZORQ_FSDiagRecord\">"
                        "<KEYBINDING NAME=\"InstanceID\"><KEYVALUE VALUETYPE=\"string\">"
                        "ZORQ:FSDiagRecord:1</KEYVALUE></KEYBINDING></INSTANCENAME>"
                        "<INSTANCE CLASSNAME=\"ZORQ_FSDiagRecord\"><PROPERTY NAME=\"DataLine\" "
                        "TYPE=\"string\"><VALUE>";
        const std::string tail = "</VALUE></PROPERTY></INSTANCE></VALUE.NAMEDINSTANCE>\n";
        s.append(pieceBytes - s.size() - tail.size(), 'x');
        return s + tail;
    }();
    return piece;
}

inline std::string rusageText() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    long long user = u.ru_utime.tv_sec * 1000000LL + u.ru_utime.tv_usec;
    long long sys = u.ru_stime.tv_sec * 1000000LL + u.ru_stime.tv_usec;
    return std::to_string(user) + " " + std::to_string(sys);
}

// The stream a server sends, piece by piece: next() hands out the pieces one at a time
// (nullptr after the last), fill() as many whole pieces as fit in a buffer.
struct PieceSource {
    int sent = 0;
    bool done() const { return sent >= streamPieces; }
    const std::string* next() {
        if (done())
            return nullptr;
        ++sent;
        return &streamPiece();
    }
    std::size_t fill(char* buf, std::size_t max) {
        std::size_t n = 0;
        while (!done() && n + pieceBytes <= max) {
            std::memcpy(buf + n, streamPiece().data(), pieceBytes);
            n += pieceBytes;
            ++sent;
        }
        return n;
    }
};

// ---------------------------------------------------------------------------------------------
// The client.

struct HttpResponse {
    int status = 0;
    std::string headers; // the raw header block
    std::string body;    // kept only when asked
    std::size_t bodyBytes = 0;
    std::size_t chunks = 0;
    bool chunked = false;
    bool close = false;
    std::vector<std::pair<std::string, std::string>> trailers;
};

inline bool equalsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

inline std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
        s.remove_suffix(1);
    return s;
}

class Connection {
public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { close(); }

    bool open(std::uint16_t port, int timeoutSeconds = 30) {
        close();
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        if (fd_ < 0)
            return false;
        int one = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        timeval tv{timeoutSeconds, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(port);
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            close();
            return false;
        }
        begin_ = end_ = 0;
        return true;
    }
    void close() {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }
    bool isOpen() const { return fd_ >= 0; }

    bool send(const std::string& text) {
        std::size_t off = 0;
        while (off < text.size()) {
            ssize_t n = ::send(fd_, text.data() + off, text.size() - off, MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            off += static_cast<std::size_t>(n);
        }
        return true;
    }

    // Reads one response; false when the connection failed or the response was malformed.
    bool read(HttpResponse& r, bool keepBody) {
        r = HttpResponse();
        std::string line;
        if (!readLine(line))
            return false;
        if (line.compare(0, 5, "HTTP/") != 0 || line.size() < 12)
            return false;
        r.status = std::atoi(line.c_str() + 9);
        r.close = line.compare(0, 8, "HTTP/1.0") == 0;
        long long length = -1;
        for (;;) {
            if (!readLine(line))
                return false;
            if (line.empty())
                break;
            r.headers += line;
            r.headers += '\n';
            std::size_t colon = line.find(':');
            if (colon == std::string::npos)
                continue;
            std::string_view name = trim(std::string_view(line).substr(0, colon));
            std::string_view value = trim(std::string_view(line).substr(colon + 1));
            if (equalsNoCase(name, "Content-Length"))
                length = std::atoll(std::string(value).c_str());
            else if (equalsNoCase(name, "Transfer-Encoding") && equalsNoCase(value, "chunked"))
                r.chunked = true;
            else if (equalsNoCase(name, "Connection"))
                r.close = equalsNoCase(value, "close");
        }
        if (r.chunked) {
            for (;;) {
                if (!readLine(line))
                    return false;
                std::size_t size = std::strtoull(line.c_str(), nullptr, 16);
                if (size == 0)
                    break;
                ++r.chunks;
                if (!readBody(size, r, keepBody))
                    return false;
                if (!readLine(line) || !line.empty())
                    return false;
            }
            for (;;) {
                if (!readLine(line))
                    return false;
                if (line.empty())
                    break;
                std::size_t colon = line.find(':');
                if (colon != std::string::npos)
                    r.trailers.emplace_back(std::string(trim(line.substr(0, colon))),
                                            std::string(trim(line.substr(colon + 1))));
            }
        } else if (length >= 0) {
            if (!readBody(static_cast<std::size_t>(length), r, keepBody))
                return false;
        } else {
            // Delimited by the end of the connection.
            while (fill())
                take(end_ - begin_, r, keepBody);
            r.close = true;
        }
        if (r.close)
            close();
        return true;
    }

private:
    bool fill() {
        if (begin_ == end_)
            begin_ = end_ = 0;
        if (end_ == sizeof buf_) {
            std::memmove(buf_, buf_ + begin_, end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        }
        ssize_t n = ::recv(fd_, buf_ + end_, sizeof buf_ - end_, 0);
        if (n <= 0)
            return false;
        end_ += static_cast<std::size_t>(n);
        return true;
    }
    bool readLine(std::string& line) {
        line.clear();
        for (;;) {
            char* start = buf_ + begin_;
            char* nl = static_cast<char*>(std::memchr(start, '\n', end_ - begin_));
            if (nl) {
                line.append(start, static_cast<std::size_t>(nl - start));
                begin_ += static_cast<std::size_t>(nl - start) + 1;
                if (!line.empty() && line.back() == '\r')
                    line.pop_back();
                return true;
            }
            line.append(start, end_ - begin_);
            begin_ = end_;
            if (line.size() > 65536 || !fill())
                return false;
        }
    }
    void take(std::size_t n, HttpResponse& r, bool keepBody) {
        if (keepBody)
            r.body.append(buf_ + begin_, n);
        r.bodyBytes += n;
        begin_ += n;
    }
    bool readBody(std::size_t size, HttpResponse& r, bool keepBody) {
        while (size > 0) {
            if (begin_ == end_ && !fill())
                return false;
            std::size_t n = std::min(size, end_ - begin_);
            take(n, r, keepBody);
            size -= n;
        }
        return true;
    }

    int fd_ = -1;
    char buf_[64 * 1024];
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

inline std::string cimRequest(const char* method, const char* path, const std::string& body) {
    std::string r = std::string(method) + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" +
                    "Content-Type: application/xml; charset=\"utf-8\"\r\n" +
                    "Content-Length: " + std::to_string(body.size()) + "\r\nTE: trailers\r\n";
    if (std::strcmp(method, "M-POST") == 0)
        r += "Man: http://www.dmtf.org/cim/mapping/http/v1.0;ns=73\r\n"
             "73-CIMProtocolVersion: 1.0\r\n73-CIMOperation: MethodCall\r\n"
             "73-CIMMethod: GetInstance\r\n73-CIMObject: root%2Fcimv2\r\n\r\n";
    else
        r += "CIMProtocolVersion: 1.0\r\nCIMOperation: MethodCall\r\n"
             "CIMMethod: GetInstance\r\nCIMObject: root%2Fcimv2\r\n\r\n";
    return r + body;
}

// ---------------------------------------------------------------------------------------------
// The servers.

struct ServerConfig {
    std::string name;
    // Runs in the child: starts the server on 127.0.0.1 at a port of the kernel's choice, writes
    // the port (two bytes) to portFd, blocks until stopFd reaches its end, stops the server.
    std::function<void(int portFd, int stopFd)> run;
};

struct RunningServer {
    std::string name;
    pid_t pid = -1;
    std::uint16_t port = 0;
    int stopFd = -1;
};

inline void announcePort(int portFd, std::uint16_t port) {
    ssize_t n = write(portFd, &port, sizeof port);
    (void)n;
    ::close(portFd);
}

inline void waitForEnd(int stopFd) {
    char c;
    while (::read(stopFd, &c, 1) > 0) {
    }
}

inline bool startServer(const ServerConfig& config, RunningServer& out) {
    int portPipe[2];
    int stopPipe[2];
    if (pipe(portPipe) != 0 || pipe(stopPipe) != 0)
        return false;
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(portPipe[0]);
        ::close(stopPipe[1]);
        config.run(portPipe[1], stopPipe[0]);
        _exit(0);
    }
    ::close(portPipe[1]);
    ::close(stopPipe[0]);
    out.name = config.name;
    out.pid = pid;
    out.stopFd = stopPipe[1];
    std::uint16_t port = 0;
    bool ok = ::read(portPipe[0], &port, sizeof port) == sizeof port;
    ::close(portPipe[0]);
    out.port = port;
    return ok && port != 0;
}

inline void stopServer(RunningServer& s) {
    if (s.pid <= 0)
        return;
    ::close(s.stopFd);
    int status = 0;
    for (int i = 0; i < 100; ++i) {
        if (waitpid(s.pid, &status, WNOHANG) == s.pid) {
            s.pid = -1;
            return;
        }
        usleep(50000);
    }
    kill(s.pid, SIGKILL);
    waitpid(s.pid, &status, 0);
    s.pid = -1;
}

// The server process's CPU time in microseconds, asked on a connection of its own.
inline double serverCpuMicros(const RunningServer& s) {
    Connection c;
    HttpResponse r;
    if (!c.open(s.port) ||
        !c.send("GET /rusage HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n") ||
        !c.read(r, true) || r.status != 200)
        return -1;
    double user = 0;
    double sys = 0;
    if (std::sscanf(r.body.c_str(), "%lf %lf", &user, &sys) != 2)
        return -1;
    return user + sys;
}

inline long statusKiB(pid_t pid, const char* field) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    std::size_t n = std::strlen(field);
    while (std::getline(in, line))
        if (line.compare(0, n, field) == 0 && line.size() > n && line[n] == ':')
            return std::atol(line.c_str() + n + 1);
    return -1;
}

inline void resetPeakRss(pid_t pid) {
    std::ofstream out("/proc/" + std::to_string(pid) + "/clear_refs");
    out << "5";
}

} // namespace wbembench

#endif // DIAGCORE_BENCH_WBEM_HTTPHARNESS_H
