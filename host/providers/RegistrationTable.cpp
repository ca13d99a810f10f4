#include "host/providers/RegistrationTable.h"

#include "host/mof/ClassRepository.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <cctype>

namespace diaghost {

namespace {

std::string normalNamespace(const std::string& ns) {
    std::size_t b = ns.find_first_not_of('/');
    if (b == std::string::npos)
        return {};
    std::size_t e = ns.find_last_not_of('/');
    return lowerName(ns.substr(b, e - b + 1));
}

std::string indexKey(const std::string& ns, const std::string& className) {
    return normalNamespace(ns) + '\n' + lowerName(className);
}

} // namespace

void RegistrationTable::add(const std::vector<ProviderRegistration>& regs) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto conflict = [](const ProviderRegistration& reg, const ProviderRegistration& other) {
        if (reg.providerName == other.providerName && reg.location != other.location)
            throw RegistrationError(reg.file, reg.line,
                                    "provider " + reg.providerName + " is located in lib" +
                                        reg.location + ".so here but in lib" + other.location +
                                        ".so at " + other.where());
        if (!sameName(reg.className, other.className) || !(reg.types & other.types))
            return;
        for (const std::string& ns : reg.namespaces)
            for (const std::string& otherNs : other.namespaces)
                if (normalNamespace(ns) == normalNamespace(otherNs)) {
                    ProviderRegistration both;
                    both.types = reg.types & other.types;
                    throw RegistrationError(reg.file, reg.line,
                                            "class " + reg.className + " in namespace " + ns +
                                                " is already registered for " + both.typeText() +
                                                " by provider " + other.providerName + " at " +
                                                other.where());
                }
    };
    for (std::size_t n = 0; n < regs.size(); ++n) {
        const ProviderRegistration& reg = regs[n];
        if (reg.className.empty() || reg.providerName.empty() || reg.location.empty() ||
            reg.types == 0 || reg.namespaces.empty())
            throw RegistrationError(reg.file, reg.line,
                                    "a registration needs a class, provider, location, type "
                                    "and namespace");
        for (const ProviderRegistration& other : registrations_)
            conflict(reg, other);
        for (std::size_t m = 0; m < n; ++m)
            conflict(reg, regs[m]);
    }
    for (const ProviderRegistration& reg : regs) {
        std::size_t idx = registrations_.size();
        registrations_.push_back(reg);
        for (const std::string& ns : reg.namespaces)
            index_[indexKey(ns, reg.className)].push_back(idx);
    }
}

std::vector<ProviderRegistration> RegistrationTable::all() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {registrations_.begin(), registrations_.end()};
}

const ProviderRegistration* RegistrationTable::ownLocked(const std::string& ns,
                                                         const std::string& className,
                                                         ProviderRegistration::Type type) const {
    auto it = index_.find(indexKey(ns, className));
    if (it == index_.end())
        return nullptr;
    for (std::size_t idx : it->second)
        if (registrations_[idx].serves(type))
            return &registrations_[idx];
    return nullptr;
}

const ProviderRegistration* RegistrationTable::own(const std::string& ns,
                                                   const std::string& className,
                                                   ProviderRegistration::Type type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ownLocked(ns, className, type);
}

const ProviderRegistration* RegistrationTable::find(const std::string& ns,
                                                    const std::string& className,
                                                    ProviderRegistration::Type type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string name = className;
    // Bounded: a repository never holds a cycle, but a bound costs nothing.
    for (int hops = 0; hops < 1024 && !name.empty(); ++hops) {
        if (const ProviderRegistration* reg = ownLocked(ns, name, type))
            return reg;
        const CimClass* cls = classes_.findClass(ns, name);
        if (!cls)
            break;
        name = cls->superclass;
    }
    return nullptr;
}

std::vector<const ProviderRegistration*>
RegistrationTable::servingIn(const std::string& ns, ProviderRegistration::Type type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<const ProviderRegistration*> out;
    const std::string nsKey = normalNamespace(ns);
    for (const ProviderRegistration& reg : registrations_)
        if (reg.serves(type) &&
            std::any_of(reg.namespaces.begin(), reg.namespaces.end(),
                        [&](const std::string& n) { return normalNamespace(n) == nsKey; }))
            out.push_back(&reg);
    return out;
}

} // namespace diaghost
