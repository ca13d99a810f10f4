// The start-up every diagnostic test family runs. startFamily publishes the family's elements,
// then FamilyStartup::run makes the family's services through its ServiceFactory and publishes,
// for each service, the service, its default setting data, its capabilities, its log and the
// UseOfLog between log and service, then one AvailableDiagnosticService association per element
// and service.
//
// EnumOrder numbering continues across the family's services: the first service's associations
// are numbered 1..n, the next service's n+1..2n, and so on, so an enumeration of the family's
// association class lists them service by service, each in element order.
#ifndef ZORQ_PROVIDERS_COMMON_FAMILYSTARTUP_H
#define ZORQ_PROVIDERS_COMMON_FAMILYSTARTUP_H

#include "factory/ServiceFactory.h"
#include "profile/ProfileClasses.h"
#include "providers/common/ProviderLog.h"

#include <cmpidt.h>

#include <cstddef>
#include <exception>
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

    // The classes through which the family serves the Diagnostics profile: its own subclasses,
    // named after its stem ("ZORQ_Net": ZORQ_NetDiagJob, ZORQ_NetOwningJobElement, ...), and its
    // log, availability and setting classes.
    static profile::ProfileClasses profileClasses(const std::string& stem, const Classes& classes);

    // The system name services and elements carry: the name of the ZORQ_ComputerSystem the
    // object manager serves, else this machine's fully qualified host name.
    static std::string systemName(const CMPIBroker* broker, const CMPIContext* ctx);

private:
    void publishCompanions(const CMPIBroker* broker, const CMPIContext* ctx, DiagService& service);

    Classes classes_;
};

// A family's whole start-up, for DIAGCORE_PROVIDER. Family names, as static members:
//   Services       an ElementServiceFactory over its elements (Services::Elements: a
//                  default-constructible set with publish(broker, ctx, list, systemName)
//                  answering how many it published) and its service classes
//   elementsNoun   what the start-up's log line calls the elements ("network ports")
//   classes()      its CIM classes
//   source()       where its elements are read from
//   read(source)   the list to publish; what it throws is logged, and nothing is published
template <class Family>
void startFamily(const CMPIBroker* broker, const CMPIContext* ctx) {
    using Elements = typename Family::Services::Elements;
    // Read by every later test run; it lives as long as the registry that serves its elements.
    static Elements* elements = new Elements;
    const std::string system = FamilyStartup::systemName(broker, ctx);
    const std::string source = Family::source();
    decltype(Family::read(source)) list;
    try {
        list = Family::read(source);
    } catch (const std::exception& e) {
        ProviderLog::write(broker, ProviderLog::Error, e.what());
    }
    const std::size_t published = elements->publish(broker, ctx, list, system);
    ProviderLog::write(broker, ProviderLog::Info,
                       "published " + std::to_string(published) + " " + Family::elementsNoun +
                           " of " + source);

    typename Family::Services factory(*elements);
    FamilyStartup(Family::classes()).run(broker, ctx, factory);
}

} // namespace NQORVA20::providers

#endif
