// Keeps clients that send slowly from holding the server's connections. A request must arrive
// whole within a time limit of its first line, and the first line within the idle timeout of the
// connection beginning to wait for it, however steadily the bytes trickle in (an idle timeout
// alone is reset by every byte); a connection past either is closed, with "408 Request Timeout"
// where a plain-text request had begun. And when every connection of a listener is taken, a new
// client takes the place of the one that has waited longest for its request, so that stalled
// clients cannot lock the others out. Thread-safe; the sockets stay the HTTP library's, which
// closes them: this only shuts them down, after making sure each is still the client it was.
#ifndef DIAGSERVER_CONNECTIONWATCH_H
#define DIAGSERVER_CONNECTIONWATCH_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <thread>

#include <sys/socket.h>

namespace diagserver {

class ConnectionWatch {
public:
    struct Options {
        // How long a connection may wait for the first line of a request.
        std::chrono::milliseconds idle{60000};
        // How long a request may take to arrive whole after its first line.
        std::chrono::milliseconds request{30000};
        // Connections each listener serves at once.
        unsigned capacity = 64;
        // A connection waiting for less than this is not given up for a new client.
        std::chrono::milliseconds grace{2000};
        // How often deadlines are looked at.
        std::chrono::milliseconds tick{250};
    };

    struct Connection;

    explicit ConnectionWatch(Options options);
    ~ConnectionWatch();
    ConnectionWatch(const ConnectionWatch&) = delete;
    ConnectionWatch& operator=(const ConnectionWatch&) = delete;

    // Whether a listener may take one more connection: there is room, or room was made by
    // closing its connection waiting longest for a request, if any has waited past the grace.
    bool admit(int listener);
    // A connection the listener took, on socket `fd`; `plainText`: a 408 can be written into it.
    // Null when it cannot be watched (no memory); the other calls take null and do nothing.
    Connection* opened(int listener, int fd, bool plainText);
    void closed(Connection* c);
    // The first line of a request arrived.
    void requestBegun(Connection* c);
    // The request arrived whole: it is being answered, which has no deadline here.
    void requestRead(Connection* c);
    // The answer was sent: the connection waits for the next request.
    void answered(Connection* c);

private:
    enum class Phase { Waiting, Receiving, Answering, Cut };
    using Clock = std::chrono::steady_clock;

    void watch();
    // Shuts the connection down (a 408 first if `timedOut` and a request had begun over plain
    // text); mutex_ held.
    void cut(Connection& c, bool timedOut);
    std::size_t open(int listener) const;

    const Options options_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::list<Connection> connections_;
    bool stopping_ = false;
    std::thread watcher_;
};

struct ConnectionWatch::Connection {
    int listener;
    int fd;
    bool plainText;
    sockaddr_storage peer;
    socklen_t peerLength;
    Phase phase;
    Clock::time_point since;
    std::list<Connection>::iterator self;
};

} // namespace diagserver

#endif
