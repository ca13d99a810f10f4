// The connection watch on real sockets: which connections it closes, when, with what, and which
// one gives way when a listener is full; and through the server, that the time an operation runs
// is not taken for a request slow to arrive.
#include "server/ConnectionWatch.h"
#include "server/WbemHttpServer.h"

#include "ServerTestSupport.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

namespace {

using diagserver::ConnectionWatch;
using namespace std::chrono_literals;

// A connected pair of sockets: the server's end, watched, and the client's.
struct Pair {
    Pair() {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0) {
            server = fds[0];
            client = fds[1];
        }
    }
    ~Pair() {
        close(server);
        close(client);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    // What the client reads until the server's end is shut down, or "(open)" when it is not
    // within `wait`.
    std::string received(std::chrono::milliseconds wait = 1000ms) const {
        std::string text;
        for (;;) {
            pollfd p{client, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(wait.count())) != 1)
                return text + "(open)";
            char buffer[256];
            const ssize_t n = recv(client, buffer, sizeof buffer, 0);
            if (n <= 0)
                return text;
            text.append(buffer, static_cast<std::size_t>(n));
        }
    }

    int server = -1;
    int client = -1;
};

ConnectionWatch::Options quick() {
    ConnectionWatch::Options o;
    o.idle = 150ms;
    o.request = 150ms;
    o.grace = 50ms;
    o.tick = 10ms;
    o.capacity = 2;
    return o;
}

TEST(ConnectionWatchTest, ARequestStillArrivingPastItsTimeIsCutWith408AndOneBeingAnsweredIsNot) {
    ConnectionWatch watch(quick());
    Pair arriving, answering, tls;
    ConnectionWatch::Connection* a = watch.opened(0, arriving.server, true);
    ConnectionWatch::Connection* b = watch.opened(0, answering.server, true);
    ConnectionWatch::Connection* c = watch.opened(1, tls.server, false);
    watch.requestBegun(a);
    watch.requestBegun(b);
    watch.requestRead(b); // however long the operation runs
    watch.requestBegun(c);
    EXPECT_EQ("HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 0\r\n\r\n",
              arriving.received());
    // Nothing can be written into a TLS stream from outside: it is only closed.
    EXPECT_EQ("", tls.received());
    EXPECT_EQ("(open)", answering.received(300ms));
    // Answered, it waits for its next request, and is closed without a word if none comes.
    watch.answered(b);
    EXPECT_EQ("", answering.received());
    for (ConnectionWatch::Connection* each : {a, b, c})
        watch.closed(each);
}

TEST(ConnectionWatchTest, AFullListenerMakesRoomFromTheConnectionWaitingLongestIdleOnesFirst) {
    ConnectionWatch::Options o = quick();
    o.idle = o.request = 60s; // no deadline in the way
    ConnectionWatch watch(o);
    Pair uploading, idle, fresh;
    ConnectionWatch::Connection* u = watch.opened(0, uploading.server, true);
    watch.requestBegun(u);
    ConnectionWatch::Connection* i = watch.opened(0, idle.server, true);
    // Both are within their grace: a new client is turned away, and the other listener is not
    // full.
    EXPECT_FALSE(watch.admit(0));
    EXPECT_TRUE(watch.admit(1));
    std::this_thread::sleep_for(100ms);
    // The idle one goes first, though the upload waited longer, and without a 408.
    EXPECT_TRUE(watch.admit(0));
    EXPECT_EQ("", idle.received());
    EXPECT_EQ("(open)", uploading.received(50ms));
    ConnectionWatch::Connection* f = watch.opened(0, fresh.server, true);
    // Full again: only the upload has waited past its grace.
    EXPECT_TRUE(watch.admit(0));
    EXPECT_EQ("", uploading.received());
    EXPECT_EQ("(open)", fresh.received(50ms));
    for (ConnectionWatch::Connection* each : {u, i, f})
        watch.closed(each);
}

TEST(ConnectionWatchTest, AnOperationRunningPastTheRequestTimeoutIsAnsweredNotCut) {
    diagserver::WbemHttpServer::Options options;
    options.listen = {"127.0.0.1:0"};
    options.requestTimeoutSeconds = 1;
    diagserver::WbemHttpServer server(servertest::testHost(), options);
    server.start();
    const std::string body =
        "<?xml version=\"1.0\"?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
        "<MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><METHODCALL NAME=\"Ping\">"
        "<LOCALINSTANCEPATH><LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/>"
        "<NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH><INSTANCENAME CLASSNAME=\"Test_Element\">"
        "<KEYBINDING NAME=\"Name\"><KEYVALUE>alpha</KEYVALUE></KEYBINDING></INSTANCENAME>"
        "</LOCALINSTANCEPATH><PARAMVALUE NAME=\"Count\"><VALUE>1</VALUE></PARAMVALUE>"
        "<PARAMVALUE NAME=\"DelayMs\"><VALUE>2500</VALUE></PARAMVALUE></METHODCALL>"
        "</SIMPLEREQ></MESSAGE></CIM>";
    const std::string answer = servertest::httpExchange(
        server.ports().at(0),
        servertest::cimRequest("Ping", "root%2Fcimv2%3ATest_Element.Name%3D%22alpha%22", body));
    EXPECT_EQ(0u, answer.rfind("HTTP/1.1 200 ", 0)) << answer;
    EXPECT_NE(std::string::npos, answer.find("<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>2</VALUE>"))
        << answer;
    server.stop();
}

} // namespace
