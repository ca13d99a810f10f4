// Log lines of the ZORQ provider libraries, written through the object manager's broker under
// the id "zorq" so that operators find them beside the object manager's own.
#ifndef ZORQ_PROVIDERS_COMMON_PROVIDERLOG_H
#define ZORQ_PROVIDERS_COMMON_PROVIDERLOG_H

#include <cmpidt.h>

#include <string>

namespace NQORVA20::providers {

class ProviderLog {
public:
    enum Severity { Error = 1, Info = 2, Warning = 3, Debug = 4 };
    // Dropped without a usable broker; never throws.
    static void write(const CMPIBroker* broker, Severity severity, const std::string& text);
};

} // namespace NQORVA20::providers

#endif
