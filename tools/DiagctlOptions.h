// diagctl's command line: one command with its operands and filters, and the options that say
// where the classes, registrations and provider libraries are and how to print. Options may
// stand anywhere on the line.
#ifndef DIAGCORE_TOOLS_DIAGCTLOPTIONS_H
#define DIAGCORE_TOOLS_DIAGCTLOPTIONS_H

#include "host/text/PathDialect.h"

#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace NQORVA20::tools {

// A command line diagctl cannot run; the caller prints the message and the usage text.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

struct DiagctlOptions {
    enum class Command { Classes, Enum, Get, Assoc, Run, Demo, Serve, Passwd, Help };

    Command command = Command::Help;
    std::vector<std::string> operands; // CLASS, PATH, SERVICE_PATH ELEMENT_PATH or FILE USER

    bool names = false;
    std::string assocClass;
    std::string resultClass;
    std::string role;
    std::string resultRole;

    // run: RunDiagnosticService as a job, followed until it ends; loops: passes it is to make
    // (0: one).
    bool profile = false;
    unsigned loops = 0;

    bool json = false;
    bool verbose = false;
    diaghost::PathDialect dialect = diaghost::PathDialect::Pegasus;
    std::string nameSpace = "root/cimv2";
    std::string mof;                    // empty: the default class file
    std::string registrations;          // empty: the default registration file
    std::vector<std::string> providers; // empty: the default provider folder
    // serve: where to listen ("ADDRESS:PORT"; empty: 127.0.0.1:5988), the connections served at
    // once (a thread each), and the access log ("-" for the error stream; empty: none).
    std::vector<std::string> listen;
    unsigned connections = 64;
    unsigned connectionsPerAddress = 16; // of them, from one client address (0: no limit)
    unsigned idleTimeoutSeconds = 60;    // a connection idle this long is closed
    unsigned requestTimeoutSeconds = 30; // a request not whole this long after its first line
    std::string accessLog;
    bool unauthenticatedRemote = false; // serve non-loopback addresses without authentication
    std::string certificateFile;        // with keyFile: serve HTTPS
    std::string keyFile;
    std::string passwordFile; // empty: requests are not authenticated
    // Instead of a password file, the PAM service checking the credentials, and the folder its
    // file is read from (empty: /etc/pam.d).
    std::string pamService;
    std::string pamConfigDir;
    // Password verifications (by either) running at once (0: no limit), and how long a request
    // waits for one before it is answered 503.
    unsigned verifications = 1;
    unsigned verificationWaitMilliseconds = 2000;

    // Throws UsageError.
    static DiagctlOptions parse(int argc, const char* const* argv);
    static void usage(std::ostream& out);
};

} // namespace NQORVA20::tools

#endif
