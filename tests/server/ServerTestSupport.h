// What several server suites share: the embedded object manager over the host's own test
// providers (one enumerated class served by a library that is not there), and a raw HTTP
// exchange on loopback.
#ifndef DIAGSERVER_TESTS_SERVERTESTSUPPORT_H
#define DIAGSERVER_TESTS_SERVERTESTSUPPORT_H

#include "host/Host.h"

#include <string>

namespace servertest {

// Made once, for the life of the test process.
diaghost::Host& testHost();

// Sends `request` to 127.0.0.1:port and returns everything read until the server closes.
std::string httpExchange(unsigned short port, const std::string& request);

// A POST of `body` to /cimom with the CIM headers of `method` on `object`, closing the
// connection after the answer; `extraHeaders` are whole header lines, each ending in CRLF.
std::string cimRequest(const std::string& method, const std::string& object,
                       const std::string& body, const std::string& extraHeaders = {});

} // namespace servertest

#endif
