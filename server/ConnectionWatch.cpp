#include "server/ConnectionWatch.h"

#include <cstring>
#include <new>

#include <unistd.h>

namespace diagserver {

namespace {

constexpr char timeoutAnswer[] = "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\n"
                                 "Content-Length: 0\r\n\r\n";

} // namespace

ConnectionWatch::ConnectionWatch(Options options) : options_(options) {
    watcher_ = std::thread([this] { watch(); });
}

ConnectionWatch::~ConnectionWatch() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    watcher_.join();
}

std::size_t ConnectionWatch::open(int listener) const {
    std::size_t n = 0;
    for (const Connection& c : connections_)
        n += c.listener == listener && c.phase != Phase::Cut;
    return n;
}

bool ConnectionWatch::admit(int listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (open(listener) < options_.capacity)
        return true;
    // A connection waiting for its next request gives way first, one whose request is still
    // arriving only when none waits.
    const Clock::time_point now = Clock::now();
    for (const Phase phase : {Phase::Waiting, Phase::Receiving}) {
        Connection* longest = nullptr;
        for (Connection& c : connections_) {
            if (c.listener == listener && c.phase == phase && now - c.since >= options_.grace &&
                (!longest || c.since < longest->since))
                longest = &c;
        }
        if (longest) {
            cut(*longest, false);
            return true;
        }
    }
    return false;
}

ConnectionWatch::Connection* ConnectionWatch::opened(int listener, int fd, bool plainText) {
    try {
        std::lock_guard<std::mutex> lock(mutex_);
        Connection& c = connections_.emplace_back();
        c.listener = listener;
        c.fd = fd;
        c.plainText = plainText;
        c.peerLength = sizeof c.peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&c.peer), &c.peerLength) != 0)
            c.peerLength = 0;
        c.phase = Phase::Waiting;
        c.since = Clock::now();
        c.self = std::prev(connections_.end());
        return &c;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void ConnectionWatch::closed(Connection* c) {
    if (!c)
        return;
    std::lock_guard<std::mutex> lock(mutex_);
    connections_.erase(c->self);
}

void ConnectionWatch::requestBegun(Connection* c) {
    if (!c)
        return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (c->phase == Phase::Waiting) {
        c->phase = Phase::Receiving;
        c->since = Clock::now();
    }
}

void ConnectionWatch::requestRead(Connection* c) {
    if (!c)
        return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (c->phase != Phase::Cut)
        c->phase = Phase::Answering;
}

void ConnectionWatch::answered(Connection* c) {
    if (!c)
        return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (c->phase != Phase::Cut) {
        c->phase = Phase::Waiting;
        c->since = Clock::now();
    }
}

void ConnectionWatch::cut(Connection& c, bool timedOut) {
    // The library closes a socket only after telling closed(), which waits for the lock held
    // here, so the descriptor is still this connection's; the peer is compared all the same.
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    const bool same = c.peerLength > 0 &&
                      getpeername(c.fd, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
                      length == c.peerLength && std::memcmp(&peer, &c.peer, length) == 0;
    if (same) {
        // The library's thread is waiting to read, so nothing else writes meanwhile.
        if (timedOut && c.plainText && c.phase == Phase::Receiving)
            (void)send(c.fd, timeoutAnswer, sizeof timeoutAnswer - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        shutdown(c.fd, SHUT_RDWR);
    }
    c.phase = Phase::Cut;
}

void ConnectionWatch::watch() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        wake_.wait_for(lock, options_.tick);
        const Clock::time_point now = Clock::now();
        for (Connection& c : connections_) {
            if ((c.phase == Phase::Waiting && now - c.since > options_.idle) ||
                (c.phase == Phase::Receiving && now - c.since > options_.request))
                cut(c, true);
        }
    }
}

} // namespace diagserver
