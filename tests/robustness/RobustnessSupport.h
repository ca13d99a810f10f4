// What the robustness suites share: the four diagnostic services of the real provider libraries
// with an element each can test, one RunDiagnostic through the object manager, record counts read
// straight from the registry, and the switch between the short and the long variants.
#ifndef ZORQ_TESTS_ROBUSTNESS_ROBUSTNESSSUPPORT_H
#define ZORQ_TESTS_ROBUSTNESS_ROBUSTNESSSUPPORT_H

#include "../providers/ProviderTestSupport.h"

#include "host/OperationResult.h"

#include <cstddef>
#include <string>
#include <vector>

namespace robusttest {

using diaghost::Host;
using diaghost::OperationResult;

struct ServiceTarget {
    std::string serviceClass;
    std::string serviceName;
    std::string servicePath;    // as the host renders it
    std::string elementPath;    // an element the service accepts
    std::string recordClass;    // where its runs are published
    std::string availableClass; // the association from the service to its elements
};

// The two file-system and the two network-port services, in a fixed order.
std::vector<ServiceTarget> serviceTargets(Host& host);

// The target's service path with another name: well-formed, but nothing is published there.
std::string unknownServicePath(const ServiceTarget& target);

// One RunDiagnostic of the target's service on its element.
OperationResult runOnce(Host& host, const ServiceTarget& target);

// How many instances of the class the registry serves now.
std::size_t servedCount(const std::string& className);

// True when DIAGCORE_LONG_TESTS is set to anything but "" or "0": the long variants run.
bool longRun();

// Built with AddressSanitizer or ThreadSanitizer.
bool underSanitizer();
bool underThreadSanitizer();

// Resident set size of the process in bytes (0 when unknown); bytes the allocator has handed out
// and not got back (0 under a sanitizer, whose allocator it cannot see).
std::size_t residentBytes();
std::size_t heapInUse();

} // namespace robusttest

#endif
