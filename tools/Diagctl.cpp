#include "tools/Diagctl.h"

#include "host/Host.h"
#include "host/OperationResult.h"
#include "host/broker/CallScope.h"
#include "host/mof/ClassRepository.h"
#include "host/text/ObjectPathText.h"
#include "server/PasswordFile.h"
#include "server/WbemHttpServer.h"
#include "tools/DiagnosticDemo.h"
#include "tools/DiagnosticRun.h"
#include "tools/OutputFormatter.h"
#include "tools/ProfileRun.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <pthread.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace NQORVA20::tools {

namespace fs = std::filesystem;

namespace {

constexpr int exitFailed = 1;

// The program's own folder, from the kernel's link to the running executable.
fs::path programFolder() {
    std::error_code ignored;
    const fs::path self = fs::read_symlink("/proc/self/exe", ignored);
    return self.empty() ? fs::path() : self.parent_path();
}

OutputFormatter::Style styleOf(const DiagctlOptions& options) {
    return options.json ? OutputFormatter::Style::Json : OutputFormatter::Style::Mof;
}

// One line from standard input, not echoed when that is a terminal (with a prompt on err then).
bool readPassword(const std::string& user, std::ostream& err, std::string& password) {
    termios saved{};
    const bool terminal = isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        err << "password for " << user << ": " << std::flush;
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    const bool read = static_cast<bool>(std::getline(std::cin, password));
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        err << "\n";
    }
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    return read;
}

// diagctl passwd FILE USER: needs no object manager.
int setPassword(const DiagctlOptions& options, std::ostream& err) {
    const std::string& file = options.operands[0];
    const std::string& user = options.operands[1];
    std::string password;
    if (!readPassword(user, err, password)) {
        err << "diagctl: no password on standard input\n";
        return exitFailed;
    }
    try {
        diagserver::PasswordFile::setPassword(file, user, password);
    } catch (const diagserver::PasswordFile::Error& e) {
        err << "diagctl: " << e.what() << "\n";
        return exitFailed;
    }
    std::fill(password.begin(), password.end(), '\0');
    return 0;
}

} // namespace

Diagctl::Locations Diagctl::defaultLocations() {
    const fs::path prefix = programFolder().parent_path();
    Locations installed{
        (prefix / DIAGCTL_INSTALL_DATADIR / "diagcore/mof/diagcore.mof").string(),
        (prefix / DIAGCTL_INSTALL_DATADIR / "diagcore/mof/registration/diagcore.reg").string(),
        (prefix / DIAGCTL_INSTALL_LIBDIR / "diagcore/providers").string()};
    std::error_code ignored;
    if (!prefix.empty() && fs::exists(installed.mof, ignored))
        return installed;
    return Locations{DIAGCTL_BUILD_MOF, DIAGCTL_BUILD_REGISTRATIONS, DIAGCTL_BUILD_PROVIDERS};
}

Diagctl::Diagctl(DiagctlOptions options, std::ostream& out, std::ostream& err)
    : options_(std::move(options)), out_(out), err_(err) {}

int Diagctl::run() {
    if (options_.command == DiagctlOptions::Command::Passwd)
        return setPassword(options_, err_);
    const Locations defaults = defaultLocations();
    diaghost::Host::Options hostOptions;
    hostOptions.dialect = options_.dialect;
    hostOptions.providerPath = options_.providers;
    if (hostOptions.providerPath.empty())
        hostOptions.providerPath.push_back(defaults.providers);
    hostOptions.logEchoLevel = options_.verbose ? 4 : 0;
    hostOptions.logEcho = &err_;
    // Serve the providers as the real object managers do: upcalls on another thread, the broker's
    // strict behaviour.
    hostOptions.upcallsOnOtherThread = true;
    hostOptions.strict = true;
    // A server runs for long: the log lines it keeps for reading back stay few.
    if (options_.command == DiagctlOptions::Command::Serve)
        hostOptions.logCapacity = 1024;
    diaghost::Host host(hostOptions);
    try {
        host.loadMof(options_.mof.empty() ? defaults.mof : options_.mof, options_.nameSpace);
        host.loadRegistrations(options_.registrations.empty() ? defaults.registrations
                                                              : options_.registrations);
    } catch (const std::exception& e) {
        err_ << "diagctl: " << e.what() << "\n";
        return exitFailed;
    }
    return execute(host);
}

int Diagctl::execute(diaghost::Host& host) {
    using C = DiagctlOptions::Command;
    switch (options_.command) {
    case C::Classes:
        return classes(host);
    case C::Enum:
        return enumerate(host);
    case C::Get:
        return get(host);
    case C::Assoc:
        return associators(host);
    case C::Run:
        return runDiagnostic(host);
    case C::Demo:
        return DiagnosticDemo(host, options_.nameSpace, out_, err_).run();
    case C::Serve:
        return serve(host);
    case C::Passwd:
    case C::Help:
        break;
    }
    DiagctlOptions::usage(out_);
    return 0;
}

int Diagctl::failed(const diaghost::OperationResult& result) {
    err_ << "diagctl: " << diaghost::rcName(result.status.rc) << ": "
         << (result.status.hasMessage ? result.status.message : "(no message)") << "\n";
    return exitFailed;
}

int Diagctl::classes(diaghost::Host& host) {
    std::vector<std::string> names = host.classes().classNames(options_.nameSpace);
    std::sort(names.begin(), names.end());
    OutputFormatter(host, styleOf(options_), out_).names(names);
    return 0;
}

int Diagctl::enumerate(diaghost::Host& host) {
    const std::string& className = options_.operands[0];
    if (host.classes().findClass(options_.nameSpace, className) == nullptr) {
        err_ << "diagctl: " << diaghost::rcName(CMPI_RC_ERR_INVALID_CLASS) << ": no class "
             << className << " in " << options_.nameSpace << "\n";
        return exitFailed;
    }
    OutputFormatter format(host, styleOf(options_), out_);
    if (options_.names) {
        diaghost::OperationResult result =
            host.enumerateInstanceNames(options_.nameSpace, className);
        if (!result.ok())
            return failed(result);
        format.paths(result.paths());
        return 0;
    }
    diaghost::OperationResult result = host.enumerateInstances(options_.nameSpace, className);
    if (!result.ok())
        return failed(result);
    format.instances(result.instances());
    return 0;
}

int Diagctl::get(diaghost::Host& host) {
    diaghost::OperationResult result = host.getInstance(options_.operands[0]);
    if (!result.ok())
        return failed(result);
    OutputFormatter(host, styleOf(options_), out_).instances(result.instances());
    return 0;
}

int Diagctl::associators(diaghost::Host& host) {
    const std::string& path = options_.operands[0];
    OutputFormatter format(host, styleOf(options_), out_);
    if (options_.names) {
        diaghost::OperationResult result = host.associatorNames(
            path, options_.assocClass, options_.resultClass, options_.role, options_.resultRole);
        if (!result.ok())
            return failed(result);
        format.paths(result.paths());
        return 0;
    }
    diaghost::OperationResult result = host.associators(
        path, options_.assocClass, options_.resultClass, options_.role, options_.resultRole);
    if (!result.ok())
        return failed(result);
    format.instances(result.instances());
    return 0;
}

int Diagctl::runDiagnostic(diaghost::Host& host) {
    diaghost::CallScope scope(host.broker());
    CMPIObjectPath* service = nullptr;
    CMPIObjectPath* element = nullptr;
    try {
        service = host.parsePath(options_.operands[0], options_.nameSpace);
        element = host.parsePath(options_.operands[1], options_.nameSpace);
    } catch (const diaghost::ObjectPathError& e) {
        err_ << "diagctl: " << diaghost::rcName(CMPI_RC_ERR_INVALID_PARAMETER) << ": " << e.what()
             << "\n";
        return exitFailed;
    }
    if (options_.profile) {
        ProfileRun run(host, service, element, options_.loops, out_);
        if (!run.carriedOut()) {
            err_ << "diagctl: " << diaghost::rcName(run.status().rc) << ": "
                 << (run.status().hasMessage ? run.status().message : "(no message)") << "\n";
            return exitFailed;
        }
        OutputFormatter format(host, styleOf(options_), out_);
        format.methodOutcome(run.returnValue(), run.record());
        return 0;
    }
    DiagnosticRun run(host, service, element, options_.nameSpace);
    if (!run.carriedOut()) {
        err_ << "diagctl: " << diaghost::rcName(run.status().rc) << ": "
             << (run.status().hasMessage ? run.status().message : "(no message)") << "\n";
        return exitFailed;
    }
    OutputFormatter(host, styleOf(options_), out_).methodOutcome(run.returnValue(), run.record());
    return 0;
}

int Diagctl::serve(diaghost::Host& host) {
    diagserver::WbemHttpServer::Options options;
    if (!options_.listen.empty())
        options.listen = options_.listen;
    options.maxConnections = options_.connections;
    options.connectionsPerAddress = options_.connectionsPerAddress;
    options.idleTimeoutSeconds = options_.idleTimeoutSeconds;
    options.requestTimeoutSeconds = options_.requestTimeoutSeconds;
    options.unauthenticatedRemote = options_.unauthenticatedRemote;
    options.certificateFile = options_.certificateFile;
    options.keyFile = options_.keyFile;
    options.passwordFile = options_.passwordFile;
    options.pamService = options_.pamService;
    options.pamConfigDir = options_.pamConfigDir;
    options.concurrentVerifications = options_.verifications;
    options.verificationWait = std::chrono::milliseconds(options_.verificationWaitMilliseconds);
    std::ofstream logFile;
    if (options_.accessLog == "-") {
        options.accessLog = &err_;
    } else if (!options_.accessLog.empty()) {
        logFile.open(options_.accessLog, std::ios::app);
        if (!logFile) {
            err_ << "diagctl: cannot open the access log " << options_.accessLog << "\n";
            return exitFailed;
        }
        options.accessLog = &logFile;
    }
    // The signals that end serving are taken by this thread only: every thread started from now
    // on (the server's) inherits them blocked.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    diagserver::WbemHttpServer server(host, options);
    try {
        server.start();
    } catch (const std::exception& e) {
        err_ << "diagctl: " << e.what() << "\n";
        return exitFailed;
    }
    const std::vector<unsigned short> ports = server.ports();
    for (std::size_t i = 0; i < options.listen.size(); ++i) {
        std::string address = options.listen[i].substr(0, options.listen[i].rfind(':'));
        err_ << "diagctl: serving CIM-XML on " << (options.keyFile.empty() ? "http" : "https")
             << "://" << address << ":" << ports[i] << "/cimom"
             << (!options.passwordFile.empty() ? " (Basic authentication)"
                 : !options.pamService.empty()
                     ? " (Basic authentication by PAM service " + options.pamService + ")"
                     : "")
             << "\n";
    }
    err_.flush();
    int signal = 0;
    sigwait(&stopSignals, &signal);
    err_ << "diagctl: " << (signal == SIGTERM ? "SIGTERM" : "SIGINT")
         << ": finishing the requests running, then stopping\n";
    server.stop();
    host.shutdown();
    return 0;
}

} // namespace NQORVA20::tools
