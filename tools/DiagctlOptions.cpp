#include "tools/DiagctlOptions.h"

#include <cstddef>
#include <cstdlib>
#include <map>

namespace NQORVA20::tools {

namespace {

struct CommandShape {
    DiagctlOptions::Command command;
    std::size_t operands;
    bool filters; // takes --assoc-class, --result-class, --role, --result-role
    bool names;   // takes --names
};

const std::map<std::string, CommandShape>& commands() {
    using C = DiagctlOptions::Command;
    static const std::map<std::string, CommandShape> table{
        {"classes", {C::Classes, 0, false, false}}, {"enum", {C::Enum, 1, false, true}},
        {"get", {C::Get, 1, false, false}},         {"assoc", {C::Assoc, 1, true, true}},
        {"run", {C::Run, 2, false, false}},         {"demo", {C::Demo, 0, false, false}},
        {"serve", {C::Serve, 0, false, false}},     {"passwd", {C::Passwd, 2, false, false}},
        {"help", {C::Help, 0, false, false}}};
    return table;
}

// An option's value as a number from low to high. Digits only: strtoul alone would also take
// leading blanks and a sign ("-0" as 0).
unsigned numberIn(const std::string& text, unsigned long low, unsigned long high,
                  const std::string& refusal) {
    if (text.empty() || text[0] < '0' || text[0] > '9')
        throw UsageError(refusal);
    char* end = nullptr;
    const unsigned long n = std::strtoul(text.c_str(), &end, 10);
    if (*end != '\0' || n < low || n > high)
        throw UsageError(refusal);
    return static_cast<unsigned>(n);
}

} // namespace

void DiagctlOptions::usage(std::ostream& out) {
    out << "usage: diagctl [options] COMMAND [ARGUMENTS]\n"
           "commands:\n"
           "  classes                       the classes of the namespace\n"
           "  enum CLASS [--names]          the instances (or their paths) of a class\n"
           "  get PATH                      one instance\n"
           "  assoc PATH [--assoc-class C] [--result-class C] [--role R] [--result-role R]\n"
           "             [--names]          the associators of an instance\n"
           "  run SERVICE_PATH ELEMENT_PATH RunDiagnostic of a service on an element\n"
           "      [--profile [--loops N]]   or RunDiagnosticService as a job, its progress\n"
           "                                shown until it ends, N passes of the test\n"
           "  demo                          every service on every element it can test\n"
           "  serve [--listen ADDR:PORT] [--connections N] [--connections-per-address M]\n"
           "        [--access-log FILE|-] [--idle-timeout SECONDS] [--request-timeout SECONDS]\n"
           "        [--cert FILE --key FILE]\n"
           "        [--password-file FILE | --pam SERVICE [--pam-config-dir DIR]]\n"
           "        [--verifications N] [--verification-wait MS] [--unauthenticated-remote]\n"
           "                                answer WBEM clients (CIM-XML over HTTP, or HTTPS\n"
           "                                with --cert and --key) until SIGTERM; default\n"
           "                                127.0.0.1:5988, --listen repeatable; N clients\n"
           "                                at once (64), each on a thread of its own, M of\n"
           "                                them from one address (16; 0: no limit); with\n"
           "                                --password-file every request needs Basic\n"
           "                                credentials and any address may be listened on;\n"
           "                                with --pam the same, the credentials checked by\n"
           "                                the PAM service (its file in /etc/pam.d, or in\n"
           "                                DIR); N passwords are verified at once (1; 0: no\n"
           "                                limit), a request waits MS ms (2000) for its\n"
           "                                turn, then is answered 503; a connection idle\n"
           "                                (60 s) or slow to start a request is closed, and\n"
           "                                a request not whole within the request timeout\n"
           "                                (30 s) is answered 408\n"
           "  passwd FILE USER              set USER's password (a line on stdin) in a\n"
           "                                password file for serve\n"
           "paths are in the DMTF text form, e.g. 'ZORQ_NetworkPort.DeviceID=\"eth0\",...'\n"
           "options:\n"
           "  --json                 JSON instead of MOF instance text\n"
           "  --verbose              show the providers' log lines on stderr\n"
           "  --dialect pegasus|sfcb render object paths as that object manager does\n"
           "  --namespace NS         the namespace (root/cimv2)\n"
           "  --mof FILE             the class file to load (default: the shipped one)\n"
           "  --registrations FILE   the provider registrations (default: the shipped one)\n"
           "  --providers DIR        where the provider libraries are (repeatable)\n"
           "  --help                 this text\n";
}

DiagctlOptions DiagctlOptions::parse(int argc, const char* const* argv) {
    DiagctlOptions o;
    std::vector<std::string> words;
    bool sawFilter = false;
    bool sawNames = false;
    bool sawServe = false;
    bool sawVerification = false;
    bool sawProfile = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc)
                throw UsageError(a + " needs a value");
            return argv[++i];
        };
        if (a == "--help" || a == "-h") {
            o.command = Command::Help;
            return o;
        } else if (a == "--json") {
            o.json = true;
        } else if (a == "--verbose" || a == "-v") {
            o.verbose = true;
        } else if (a == "--profile") {
            o.profile = sawProfile = true;
        } else if (a == "--loops") {
            o.loops = numberIn(value(), 1, 1000000, "--loops takes a number from 1 to 1000000");
            sawProfile = true;
        } else if (a == "--names") {
            o.names = sawNames = true;
        } else if (a == "--dialect") {
            const std::string d = value();
            auto parsed = diaghost::parseDialect(d);
            if (!parsed)
                throw UsageError("unknown dialect '" + d + "'");
            o.dialect = *parsed;
        } else if (a == "--namespace") {
            o.nameSpace = value();
        } else if (a == "--mof") {
            o.mof = value();
        } else if (a == "--registrations") {
            o.registrations = value();
        } else if (a == "--providers") {
            o.providers.push_back(value());
        } else if (a == "--listen") {
            o.listen.push_back(value()), sawServe = true;
        } else if (a == "--connections") {
            o.connections =
                numberIn(value(), 1, 1024, "--connections takes a number from 1 to 1024");
            sawServe = true;
        } else if (a == "--connections-per-address") {
            o.connectionsPerAddress =
                numberIn(value(), 0, 1024,
                         "--connections-per-address takes a number from 0 (no limit) to 1024");
            sawServe = true;
        } else if (a == "--idle-timeout") {
            o.idleTimeoutSeconds = numberIn(
                value(), 1, 86400, "--idle-timeout takes a number of seconds from 1 to 86400");
            sawServe = true;
        } else if (a == "--request-timeout") {
            o.requestTimeoutSeconds = numberIn(
                value(), 1, 86400, "--request-timeout takes a number of seconds from 1 to 86400");
            sawServe = true;
        } else if (a == "--verifications") {
            o.verifications =
                numberIn(value(), 0, 64, "--verifications takes a number from 0 (no limit) to 64");
            sawServe = sawVerification = true;
        } else if (a == "--verification-wait") {
            o.verificationWaitMilliseconds =
                numberIn(value(), 0, 60000,
                         "--verification-wait takes a number of milliseconds from 0 to 60000");
            sawServe = sawVerification = true;
        } else if (a == "--unauthenticated-remote") {
            o.unauthenticatedRemote = true, sawServe = true;
        } else if (a == "--cert") {
            o.certificateFile = value(), sawServe = true;
        } else if (a == "--key") {
            o.keyFile = value(), sawServe = true;
        } else if (a == "--password-file") {
            o.passwordFile = value(), sawServe = true;
        } else if (a == "--pam") {
            o.pamService = value(), sawServe = true;
        } else if (a == "--pam-config-dir") {
            o.pamConfigDir = value(), sawServe = true;
        } else if (a == "--access-log") {
            o.accessLog = value(), sawServe = true;
        } else if (a == "--assoc-class") {
            o.assocClass = value(), sawFilter = true;
        } else if (a == "--result-class") {
            o.resultClass = value(), sawFilter = true;
        } else if (a == "--role") {
            o.role = value(), sawFilter = true;
        } else if (a == "--result-role") {
            o.resultRole = value(), sawFilter = true;
        } else if (a.size() > 1 && a[0] == '-') {
            throw UsageError("unknown option " + a);
        } else {
            words.push_back(a);
        }
    }
    if (words.empty())
        throw UsageError("no command given");
    auto found = commands().find(words.front());
    if (found == commands().end())
        throw UsageError("unknown command '" + words.front() + "'");
    const CommandShape& shape = found->second;
    o.command = shape.command;
    o.operands.assign(words.begin() + 1, words.end());
    if (o.operands.size() != shape.operands)
        throw UsageError(words.front() + " takes " + std::to_string(shape.operands) + " argument" +
                         (shape.operands == 1 ? "" : "s"));
    if (sawFilter && !shape.filters)
        throw UsageError("association filters apply to assoc only");
    if (sawServe && shape.command != Command::Serve)
        throw UsageError("--listen, --connections, --connections-per-address, --access-log, "
                         "--idle-timeout, --request-timeout, --cert, --key, "
                         "--password-file, --pam, --pam-config-dir, --verifications, "
                         "--verification-wait and --unauthenticated-remote apply to serve only");
    if (!o.passwordFile.empty() && !o.pamService.empty())
        throw UsageError("--password-file and --pam cannot both be given");
    if (!o.pamConfigDir.empty() && o.pamService.empty())
        throw UsageError("--pam-config-dir needs --pam");
    // Only passwords are verified: without a way to check them these would do nothing.
    if (sawVerification && o.passwordFile.empty() && o.pamService.empty())
        throw UsageError("--verifications and --verification-wait need --password-file or --pam");
    if (sawProfile && shape.command != Command::Run)
        throw UsageError("--profile and --loops apply to run only");
    if (o.loops != 0 && !o.profile)
        throw UsageError("--loops needs --profile");
    if (o.certificateFile.empty() != o.keyFile.empty())
        throw UsageError("--cert and --key go together");
    if (sawNames && !shape.names)
        throw UsageError("--names applies to enum and assoc only");
    for (const std::string& operand : o.operands)
        if (operand.empty())
            throw UsageError(words.front() + " takes no empty argument");
    return o;
}

} // namespace NQORVA20::tools
