#include "providers/computersystem/ComputerSystem.h"

namespace NQORVA20::providers {

ComputerSystem::ComputerSystem(std::string hostName)
    : InstanceImpl(className), hostName_(std::move(hostName)) {
    ComputerSystem::init();
}

ComputerSystem::~ComputerSystem() = default;

void ComputerSystem::init() {
    get("CreationClassName") = className;
    get("Name") = hostName_;
    get("NameFormat") = "IP";
    get("ElementName") = hostName_;
    get("Caption") = "Computer system " + hostName_;
    get("Description") = "The machine the ZORQ diagnostic providers run on";
    get("Dedicated") = "0"; // not dedicated to one role
    get("OperationalStatus") = "2";
    get("EnabledState") = "2";
    get("RequestedState") = "12"; // not applicable
    get("EnabledDefault") = "2";
}

} // namespace NQORVA20::providers
