#include "providers/network/NetErrorsService.h"

#include "providers/common/EnvironmentSetting.h"
#include "providers/common/SystemErrorText.h"
#include "providers/common/TestOutcome.h"
#include "providers/network/NetDiag.h"

#include <sys/stat.h>

#include <cerrno>
#include <limits>
#include <vector>

namespace NQORVA20::providers {

namespace {

unsigned long long saturatingSum(unsigned long long a, unsigned long long b) {
    return a > std::numeric_limits<unsigned long long>::max() - b
               ? std::numeric_limits<unsigned long long>::max()
               : a + b;
}

std::string limitText(const EnvironmentSetting::Limit& limit) {
    return limit.value ? "maximum " + std::to_string(*limit.value) : "no maximum";
}

} // namespace

NetErrorsService::NetErrorsService(std::string installDate, std::string systemName,
                                   const NetworkPorts& ports)
    : ElementDiagService(netdiag::serviceClass, netdiag::recordClass, std::move(installDate),
                         std::move(systemName), ports.catalog(),
                         {netdiag::errorsServiceName, "Network port errors",
                          "Checks a network interface's error and drop counters against the "
                          "configured limits",
                          netdiag::notPublished, netdiag::aborted}),
      ports_(ports) {}

std::string NetErrorsService::elementName(std::size_t index) const {
    return ports_.interface(index).name;
}

unsigned int NetErrorsService::runOnElement(std::size_t index, DiagnosticRecord& record) {
    const NetInterfaceTable::Interface& port = ports_.interface(index);
    struct stat info;
    if (::stat(port.directory.c_str(), &info) != 0) {
        failWith(record, {"NET_PORT_MISSING"},
                 port.name + ": the interface is gone: " + SystemErrorText::describe(errno));
        return TestFailed;
    }
    const std::string statistics = port.directory + "/statistics";
    const char* const counterNames[] = {"rx_errors", "tx_errors", "rx_dropped", "tx_dropped"};
    unsigned long long counters[4] = {0, 0, 0, 0};
    for (int i = 0; i < 4; ++i) {
        std::string error;
        const auto value = NetInterfaceTable::number(statistics, counterNames[i], &error);
        if (!value) {
            failWith(record, {"NET_STATS_UNAVAILABLE"},
                     port.name + ": cannot read statistics/" + counterNames[i] + ": " + error);
            return TestNotRun;
        }
        counters[i] = *value;
    }
    const unsigned long long errors = saturatingSum(counters[0], counters[1]);
    const unsigned long long drops = saturatingSum(counters[2], counters[3]);
    const EnvironmentSetting::Limit maxErrors = EnvironmentSetting::limit("ZORQ_NET_MAX_ERRORS", 0);
    const EnvironmentSetting::Limit maxDrops =
        EnvironmentSetting::limit("ZORQ_NET_MAX_DROPS", std::nullopt);

    std::string details = port.name + ": rx_errors " + std::to_string(counters[0]) +
                          ", tx_errors " + std::to_string(counters[1]) + " (total " +
                          std::to_string(errors) + ", " + limitText(maxErrors) + "); rx_dropped " +
                          std::to_string(counters[2]) + ", tx_dropped " +
                          std::to_string(counters[3]) + " (total " + std::to_string(drops) + ", " +
                          limitText(maxDrops) + ")";
    for (const std::string& note : {maxErrors.note, maxDrops.note})
        if (!note.empty())
            details += "; " + note;

    std::vector<std::string> failures;
    if (maxErrors.value && errors > *maxErrors.value)
        failures.push_back("NET_ERRORS");
    if (maxDrops.value && drops > *maxDrops.value)
        failures.push_back("NET_DROPS");
    if (failures.empty()) {
        passWith(record, details);
        return TestPassed;
    }
    failWith(record, failures, details);
    return TestFailed;
}

} // namespace NQORVA20::providers
