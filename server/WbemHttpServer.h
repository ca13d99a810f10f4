// Serves CIM operations over HTTP (libmicrohttpd): POST or M-POST (with its Man header) to
// /cimom, the CIMOperation, CIMMethod and CIMObject headers checked against the body, the answer
// from WbemOperations. What is not a CIM request gets the HTTP status and the CIMError header
// that name the fault, and the server goes on. Each connection is served by a thread of its own,
// so a request that takes long (a password check, a long test, a slow provider) holds up its own
// client only; bodies past a size and connections past a count are refused, idle connections are
// closed.
// Optionally over TLS, and with HTTP Basic authentication against a password file or by PAM: then
// a request without valid credentials is answered 401 before any of it is read. Credentials
// verified lately are taken without verifying again; while the verifications allowed at once are
// all taken and the wait for one runs out, a request is answered 503 with Retry-After instead.
#ifndef DIAGSERVER_WBEMHTTPSERVER_H
#define DIAGSERVER_WBEMHTTPSERVER_H

#include "server/XmlReader.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace diaghost {
class Host;
} // namespace diaghost

namespace diagserver {

class WbemHttpServer {
public:
    struct Options {
        // "ADDRESS:PORT", an IPv6 address in brackets ("[::1]:5988"); port 0 picks a free one.
        std::vector<std::string> listen{"127.0.0.1:5988"};
        std::size_t maxBody = std::size_t{16} << 20;
        // Connections served at once, each by a thread of its own; one more is closed at once.
        unsigned maxConnections = 64;
        // Of those, how many one client address may hold (0: no limit of its own); one more from
        // it is closed at once, so that one client cannot take every connection.
        unsigned connectionsPerAddress = 16;
        // A connection sending nothing is closed after the idle timeout, and one waiting that
        // long for the first line of a request however slowly its bytes come; a request must
        // arrive whole within the request timeout of its first line (else 408). When every
        // connection is taken, the one that has waited longest for its request, if over two
        // seconds, is closed for a new client.
        unsigned idleTimeoutSeconds = 60;
        unsigned requestTimeoutSeconds = 30;
        XmlReader::Limits xml;
        // One line per request (client, operation, class, status, duration); null for none.
        std::ostream* accessLog = nullptr;
        // PEM files of the certificate (with any chain after it) and its private key, both or
        // neither: with them every address is served over HTTPS (customarily on port 5989).
        std::string certificateFile;
        std::string keyFile;
        // A PasswordFile every request must hold Basic credentials from; empty: none asked for.
        std::string passwordFile;
        // Instead of a password file, the PAM service (a PamAuthenticator) Basic credentials are
        // checked by, and optionally the folder its file is read from instead of the system's.
        std::string pamService;
        std::string pamConfigDir;
        std::string realm = "CIM";
        // Verifications of passwords (crypt(3) or PAM) running at once (0: no limit), how many
        // more requests may wait for one (a request past them is answered 503 at once), and how
        // long a request waits before it is answered 503.
        unsigned concurrentVerifications = 1;
        unsigned waitingVerifications = 2;
        std::chrono::milliseconds verificationWait{2000};
        // Without authentication, addresses other than loopback ones are refused unless this
        // says the operator wants unauthenticated clients from elsewhere anyway.
        bool unauthenticatedRemote = false;
    };

    // A listening address, certificate, key, password file or PAM service that cannot be used, or
    // both a password file and a PAM service given; what() says which and why.
    class StartError : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // The host must outlive the server.
    WbemHttpServer(diaghost::Host& host, Options options);
    // stop().
    ~WbemHttpServer();
    WbemHttpServer(const WbemHttpServer&) = delete;
    WbemHttpServer& operator=(const WbemHttpServer&) = delete;

    // Listens on every address. Throws StartError (nothing is left listening then).
    void start();
    // Stops accepting and closes the listening sockets; requests running are finished first.
    void stop();
    // The ports listened on, in the order of Options::listen.
    std::vector<unsigned short> ports() const;

    // The host name answers carry in their paths.
    static std::string localHostName();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace diagserver

#endif
