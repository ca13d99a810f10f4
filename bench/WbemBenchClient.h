// What a benchmark needs to drive a WBEM server running in a child process: a CIM-XML client on
// one keep-alive loopback connection that reads answers sent with a length or chunked, and the
// server process's CPU time and memory figures read from /proc.
#ifndef DIAGCORE_BENCH_WBEMBENCHCLIENT_H
#define DIAGCORE_BENCH_WBEMBENCHCLIENT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace wbembench {

// One answer: its body (kept only when asked for), its size, and how often the counted text
// occurs in it.
struct Answer {
    std::string body;
    std::size_t bytes = 0;
    std::size_t matches = 0;
    bool error = false; // the body holds a CIM ERROR element
};

class WbemBenchClient {
public:
    explicit WbemBenchClient(unsigned short port) {
        socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
        if (socket_ < 0)
            throw std::runtime_error("socket failed");
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int one = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        if (connect(socket_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
            throw std::runtime_error("connect to the server failed");
    }
    ~WbemBenchClient() { close(socket_); }
    WbemBenchClient(const WbemBenchClient&) = delete;
    WbemBenchClient& operator=(const WbemBenchClient&) = delete;

    // Sends one CIM operation and reads its whole answer. `count` is a text whose occurrences in
    // the body are counted; the body is kept when `keepBody` is set, otherwise only looked at
    // as it arrives, so that answers of any size take little of the client's memory.
    Answer call(const std::string& method, const std::string& object, const std::string& body,
                const std::string& count = std::string(), bool keepBody = false) {
        const std::string request =
            "POST /cimom HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/xml; "
            "charset=\"utf-8\"\r\nCIMOperation: MethodCall\r\nCIMMethod: " +
            method + "\r\nCIMObject: " + object +
            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        if (send(socket_, request.data(), request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(request.size()))
            throw std::runtime_error("send failed");

        Answer answer;
        BodyScan scan(answer, count, keepBody);
        const std::string head = readHead();
        if (head.compare(0, 12, "HTTP/1.1 200") != 0)
            throw std::runtime_error("the server answered " + head.substr(0, head.find('\r')));
        if (headerValue(head, "transfer-encoding").find("chunked") != std::string::npos) {
            for (;;) {
                const std::string sizeLine = readLine();
                const std::size_t size = std::stoul(sizeLine, nullptr, 16);
                if (size == 0)
                    break;
                readBody(size, scan);
                if (!readLine().empty())
                    throw std::runtime_error("a chunk does not end where its size says");
            }
            while (!readLine().empty()) // trailer fields, up to the empty line
                ;
        } else {
            readBody(std::stoul(headerValue(head, "content-length")), scan);
        }
        scan.finish();
        return answer;
    }

private:
    // Looks at the body as it arrives: keeps it when asked, counts the counted text and an ERROR
    // element, also across the boundaries of the pieces read.
    struct BodyScan {
        BodyScan(Answer& a, const std::string& c, bool k) : answer(a), count(c), keep(k) {}
        void take(const char* data, std::size_t n) {
            answer.bytes += n;
            if (keep)
                answer.body.append(data, n);
            window.append(data, n);
            scanWindow();
        }
        void finish() { scanWindow(); }
        void scanWindow() {
            static const std::string errorText = "<ERROR";
            if (!count.empty())
                for (std::size_t at = window.find(count); at != std::string::npos;
                     at = window.find(count, at + count.size()))
                    ++answer.matches;
            if (window.find(errorText) != std::string::npos)
                answer.error = true;
            // Keep what could be the start of a text split across two pieces.
            const std::size_t carry = std::max(count.size(), errorText.size()) - 1;
            if (window.size() > carry)
                window.erase(0, window.size() - carry);
        }
        Answer& answer;
        const std::string& count;
        bool keep;
        std::string window;
    };

    void fill() {
        if (start_ > 0 && start_ == buffered_.size()) {
            buffered_.clear();
            start_ = 0;
        }
        char piece[1 << 16];
        const ssize_t n = recv(socket_, piece, sizeof piece, 0);
        if (n <= 0)
            throw std::runtime_error("the server closed the connection");
        buffered_.append(piece, static_cast<std::size_t>(n));
    }

    std::string readHead() {
        std::size_t end;
        while ((end = buffered_.find("\r\n\r\n", start_)) == std::string::npos)
            fill();
        std::string head = buffered_.substr(start_, end + 4 - start_);
        start_ = end + 4;
        return head;
    }

    std::string readLine() {
        std::size_t end;
        while ((end = buffered_.find("\r\n", start_)) == std::string::npos)
            fill();
        std::string line = buffered_.substr(start_, end - start_);
        start_ = end + 2;
        return line;
    }

    void readBody(std::size_t size, BodyScan& scan) {
        while (size > 0) {
            if (start_ == buffered_.size())
                fill();
            const std::size_t n = std::min(size, buffered_.size() - start_);
            scan.take(buffered_.data() + start_, n);
            start_ += n;
            size -= n;
        }
    }

    // The value of a header field of `head`, the name matched without regard to case.
    static std::string headerValue(const std::string& head, const std::string& name) {
        std::size_t at = head.find("\r\n");
        while (at != std::string::npos && at + 2 < head.size()) {
            const std::size_t end = head.find("\r\n", at + 2);
            const std::string line = head.substr(at + 2, end - at - 2);
            const std::size_t colon = line.find(':');
            if (colon == name.size() && strncasecmp(line.c_str(), name.c_str(), colon) == 0) {
                const std::size_t value = line.find_first_not_of(' ', colon + 1);
                return value == std::string::npos ? std::string() : line.substr(value);
            }
            at = end;
        }
        return std::string();
    }

    int socket_ = -1;
    std::string buffered_;
    std::size_t start_ = 0;
};

// The CPU time (user and system) a process has used so far, its ended threads' included, in
// microseconds: from the process's CPU-time clock (to the nanosecond), or where that cannot be
// read from /proc in clock ticks (a hundredth of a second).
inline double processCpuMicros(pid_t pid) {
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0)
        return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)),
                           std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    unsigned long long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14)
            utime = std::stoull(field);
        if (i == 15)
            stime = std::stoull(field);
    }
    return static_cast<double>(utime + stime) * 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// A "kB" field of /proc/<pid>/status (VmRSS, VmHWM, ...) in KiB; -1 when absent.
inline long processStatusKiB(pid_t pid, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.compare(0, field.size() + 1, field + ":") == 0)
            return std::stol(line.substr(field.size() + 1));
    return -1;
}

// Sets a process's peak resident size (VmHWM) back to its current one; false when the kernel
// refuses.
inline bool resetPeakRss(pid_t pid) {
    std::ofstream clear("/proc/" + std::to_string(pid) + "/clear_refs");
    clear << "5";
    clear.flush();
    return static_cast<bool>(clear);
}

// A CIM-XML request message around one simple request.
inline std::string cimMessage(const std::string& call) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
           "<MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" +
           call + "</SIMPLEREQ></MESSAGE></CIM>";
}

inline const std::string& rootCimv2() {
    static const std::string ns = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/>"
                                  "<NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>";
    return ns;
}

} // namespace wbembench

#endif
