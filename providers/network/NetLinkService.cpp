#include "providers/network/NetLinkService.h"

#include "providers/common/SystemErrorText.h"
#include "providers/common/TestOutcome.h"
#include "providers/network/NetDiag.h"

#include <sys/stat.h>

#include <cerrno>

namespace NQORVA20::providers {

NetLinkService::NetLinkService(std::string installDate, std::string systemName,
                               const NetworkPorts& ports)
    : ElementDiagService(netdiag::serviceClass, netdiag::recordClass, std::move(installDate),
                         std::move(systemName), ports.catalog(),
                         {netdiag::linkServiceName, "Network port link",
                          "Checks that a network interface is operationally up and senses a "
                          "carrier",
                          netdiag::notPublished, netdiag::aborted}),
      ports_(ports) {}

std::string NetLinkService::elementName(std::size_t index) const {
    return ports_.interface(index).name;
}

unsigned int NetLinkService::runOnElement(std::size_t index, DiagnosticRecord& record) {
    const NetInterfaceTable::Interface& port = ports_.interface(index);
    struct stat info;
    if (::stat(port.directory.c_str(), &info) != 0) {
        failWith(record, {"NET_PORT_MISSING"},
                 port.name + ": the interface is gone: " + SystemErrorText::describe(errno));
        return TestFailed;
    }
    std::string error;
    const auto state = NetInterfaceTable::attribute(port.directory, "operstate", &error);
    if (!state) {
        failWith(record, {"NET_STATE_UNREADABLE"}, port.name + ": cannot read operstate: " + error);
        return TestNotRun;
    }
    const bool loopback = NetInterfaceTable::isLoopback(port);
    std::string details = port.name + (loopback ? " (loopback)" : "") + ": operstate " + *state;

    if (*state == "unknown" && loopback) {
        passWith(record, details + "; a loopback interface has no link state");
        return TestPassed;
    }
    if (*state != "up") {
        failWith(record, {"NET_LINK_DOWN"}, details + "; the link is not up");
        return TestFailed;
    }
    const auto carrier = NetInterfaceTable::number(port.directory, "carrier", &error);
    if (!carrier) {
        passWith(record, details + "; carrier not reported (" + error + ")");
        return TestPassed;
    }
    if (*carrier == 0) {
        failWith(record, {"NET_NO_CARRIER"}, details + "; carrier 0: no link on the medium");
        return TestFailed;
    }
    passWith(record, details + "; carrier " + std::to_string(*carrier));
    return TestPassed;
}

} // namespace NQORVA20::providers
