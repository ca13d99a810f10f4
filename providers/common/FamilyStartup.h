// The start-up every diagnostic test family runs once its elements are registered: it makes the
// family's services through its ServiceFactory and publishes, for each service, the service,
// its default setting data, its capabilities, its log and the UseOfLog between log and service,
// then one AvailableDiagnosticService association per element and service.
//
// EnumOrder numbering continues across the family's services: the first service's associations
// are numbered 1..n, the next service's n+1..2n, and so on, so an enumeration of the family's
// association class lists them service by service, each in element order.
#ifndef ZORQ_PROVIDERS_COMMON_FAMILYSTARTUP_H
#define ZORQ_PROVIDERS_COMMON_FAMILYSTARTUP_H

#include "factory/ServiceFactory.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20::providers {

class FamilyStartup {
public:
    // The CIM classes of one family.
    struct Classes {
        std::string element;      // the managed elements its services test
        std::string available;    // AvailableDiagnosticService subclass (declares EnumOrder)
        std::string setting;      // DiagnosticSettingData subclass
        std::string capabilities; // DiagnosticServiceCapabilities subclass
        std::string log;          // DiagnosticLog subclass
        std::string useOfLog;     // UseOfLog subclass
    };

    explicit FamilyStartup(Classes classes);

    // Publishes the factory's services and what belongs to each; answers how many services
    // were registered. Failures to publish are logged, never thrown.
    unsigned int run(const CMPIBroker* broker, const CMPIContext* ctx, ServiceFactory& factory);

    // The system name services and elements carry: the name of the ZORQ_ComputerSystem the
    // object manager serves, else this machine's fully qualified host name.
    static std::string systemName(const CMPIBroker* broker, const CMPIContext* ctx);

private:
    void publishCompanions(const CMPIBroker* broker, const CMPIContext* ctx, DiagService& service);

    Classes classes_;
};

} // namespace NQORVA20::providers

#endif
