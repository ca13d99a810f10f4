// The diagctl program: loads the classes, registrations and provider libraries into an embedded
// object manager and carries out one command on it. A failed operation is reported on the error
// stream as "diagctl: <CMPI return code name>: <message>" and gives a non-zero exit code.
#ifndef DIAGCORE_TOOLS_DIAGCTL_H
#define DIAGCORE_TOOLS_DIAGCTL_H

#include "tools/DiagctlOptions.h"

#include <ostream>
#include <string>
#include <vector>

namespace diaghost {
class Host;
class OperationResult;
} // namespace diaghost

namespace NQORVA20::tools {

class Diagctl {
public:
    // Where the shipped files are: next to an installed program, or in the build tree.
    struct Locations {
        std::string mof;
        std::string registrations;
        std::string providers;
    };
    static Locations defaultLocations();

    Diagctl(DiagctlOptions options, std::ostream& out, std::ostream& err);

    // Answers the process exit code.
    int run();

private:
    int execute(diaghost::Host& host);
    int classes(diaghost::Host& host);
    int enumerate(diaghost::Host& host);
    int get(diaghost::Host& host);
    int associators(diaghost::Host& host);
    int runDiagnostic(diaghost::Host& host);
    // Serves WBEM clients until SIGTERM or SIGINT.
    int serve(diaghost::Host& host);
    // Prints the failure of an operation; answers the exit code for it.
    int failed(const diaghost::OperationResult& result);

    DiagctlOptions options_;
    std::ostream& out_;
    std::ostream& err_;
};

} // namespace NQORVA20::tools

#endif
