// `diagctl demo`: lists the diagnostic services and the elements each can test (from the
// AvailableDiagnosticService associations), runs every service on every one of its elements with
// a progress line per run, and prints the records as a table. It succeeds when every run was
// carried out, whatever the tests found.
#ifndef DIAGCORE_TOOLS_DIAGNOSTICDEMO_H
#define DIAGCORE_TOOLS_DIAGNOSTICDEMO_H

#include <ostream>
#include <string>

namespace diaghost {
class Host;
}

namespace NQORVA20::tools {

class DiagnosticDemo {
public:
    DiagnosticDemo(diaghost::Host& host, std::string nameSpace, std::ostream& out,
                   std::ostream& err);

    // Answers the process exit code: 0 when every run was carried out.
    int run();

private:
    diaghost::Host& host_;
    std::string nameSpace_;
    std::ostream& out_;
    std::ostream& err_;
};

} // namespace NQORVA20::tools

#endif
