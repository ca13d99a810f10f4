// The provider registrations a host has read: which provider serves which class for which kinds
// of MI in which namespaces, checked for conflicts when added, and found for a class by its own
// registration or the nearest registered ancestor's. Registrations are only ever added, so what
// a lookup answers stays valid as long as the table. Safe to use from several threads.
#ifndef DIAGHOST_PROVIDERS_REGISTRATIONTABLE_H
#define DIAGHOST_PROVIDERS_REGISTRATIONTABLE_H

#include "host/providers/ProviderRegistration.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace diaghost {

class ClassRepository;

class RegistrationTable {
public:
    // The repository must outlive the table.
    explicit RegistrationTable(const ClassRepository& classes) : classes_(classes) {}

    // Adds every registration, or none when any is wrong: throws RegistrationError for one
    // lacking a class, provider, location, type or namespace, a class registered twice for the
    // same kind of MI in one namespace, or a provider name given two different locations.
    void add(const std::vector<ProviderRegistration>& regs);
    std::vector<ProviderRegistration> all() const;

    // The registration of className's own for MIs of `type` in ns; null when none.
    const ProviderRegistration* own(const std::string& ns, const std::string& className,
                                    ProviderRegistration::Type type) const;
    // Its own registration, else the nearest registered ancestor's; null when none.
    const ProviderRegistration* find(const std::string& ns, const std::string& className,
                                     ProviderRegistration::Type type) const;
    // Every registration for MIs of `type` in ns, in the order they were added.
    std::vector<const ProviderRegistration*> servingIn(const std::string& ns,
                                                       ProviderRegistration::Type type) const;

private:
    const ProviderRegistration* ownLocked(const std::string& ns, const std::string& className,
                                          ProviderRegistration::Type type) const;

    const ClassRepository& classes_;
    mutable std::mutex mutex_;
    std::deque<ProviderRegistration> registrations_;
    // "ns\nclass" (lower case) -> indexes into registrations_
    std::map<std::string, std::vector<std::size_t>> index_;
};

} // namespace diaghost

#endif
