// This machine as the one ZORQ_ComputerSystem instance: Name is its fully qualified host name
// (NameFormat "IP"), the name every diagnostic service and element of the ZORQ providers
// carries as its hosting system.
#ifndef ZORQ_PROVIDERS_COMPUTERSYSTEM_COMPUTERSYSTEM_H
#define ZORQ_PROVIDERS_COMPUTERSYSTEM_COMPUTERSYSTEM_H

#include "instance/InstanceImpl.h"

#include <string>

namespace NQORVA20::providers {

class ComputerSystem : public InstanceImpl {
public:
    static constexpr char className[] = "ZORQ_ComputerSystem";

    explicit ComputerSystem(std::string hostName);
    ~ComputerSystem() override;
    // Sets (overwriting) the keys, names and fixed states.
    void init() override;

private:
    std::string hostName_;
};

} // namespace NQORVA20::providers

#endif
