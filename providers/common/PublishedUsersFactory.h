// An AvailServiceFactory whose users are the elements the family itself has already published,
// read from the registry. A family's start-up runs inside the first request to its provider; an
// upcall to enumerate its own element class would reach that same provider again (on another
// thread in some object managers, which then waits on the start-up), so start-up asks nobody.
#ifndef ZORQ_PROVIDERS_COMMON_PUBLISHEDUSERSFACTORY_H
#define ZORQ_PROVIDERS_COMMON_PUBLISHEDUSERSFACTORY_H

#include "factory/AvailServiceFactory.h"
#include "providers/common/InstanceListEnumeration.h"

#include <memory>
#include <vector>

namespace NQORVA20::providers {

class PublishedUsersFactory : public AvailServiceFactory {
public:
    // The registered instances of className, in the order an enumeration of the class answers
    // them. The enumeration lives as long as this factory (or until the next call).
    CMPIEnumeration* EnumerateUsers(const CMPIBroker* broker, const CMPIContext* ctx,
                                    std::string className) override;

private:
    std::unique_ptr<InstanceListEnumeration> users_;
};

} // namespace NQORVA20::providers

#endif
