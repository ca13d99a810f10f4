// diagctl: the command-line front end over the embedded object manager with the shipped classes,
// registrations and diagnostic providers. `diagctl --help` lists the commands.
#include "tools/Diagctl.h"
#include "tools/DiagctlOptions.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    using NQORVA20::tools::Diagctl;
    using NQORVA20::tools::DiagctlOptions;
    using NQORVA20::tools::UsageError;
    try {
        DiagctlOptions options = DiagctlOptions::parse(argc, argv);
        return Diagctl(options, std::cout, std::cerr).run();
    } catch (const UsageError& e) {
        std::cerr << "diagctl: " << e.what() << "\n";
        DiagctlOptions::usage(std::cerr);
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "diagctl: " << e.what() << "\n";
        return 1;
    }
}
