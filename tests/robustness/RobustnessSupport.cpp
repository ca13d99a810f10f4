#include "RobustnessSupport.h"

#include "host/broker/CallScope.h"
#include "instance/InstanceRegistry.h"

#include <cmpift.h>

#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace robusttest {

namespace {

std::string elementOf(const std::string& serviceClass) {
    return serviceClass == "ZORQ_FSDiagService"
               ? zorqtest::fileSystemPath(zorqtest::FakeSystem::instance().mountPoint("rw"))
               : zorqtest::networkPortPath("eth0");
}

} // namespace

std::vector<ServiceTarget> serviceTargets(Host& host) {
    struct Family {
        const char* service;
        const char* record;
        const char* available;
    };
    const Family families[] = {
        {"ZORQ_FSDiagService", "ZORQ_FSDiagRecord", "ZORQ_FSAvailableDiagService"},
        {"ZORQ_NetDiagService", "ZORQ_NetDiagRecord", "ZORQ_NetAvailableDiagService"},
    };
    std::vector<ServiceTarget> targets;
    for (const Family& family : families) {
        auto services = host.enumerateInstances("root/cimv2", family.service);
        if (!services.ok())
            throw std::runtime_error(std::string("cannot enumerate ") + family.service + ": " +
                                     services.status.message);
        for (const CMPIInstance* service : services.instances()) {
            ServiceTarget target;
            target.serviceClass = family.service;
            target.serviceName = host.propertyText(service, "Name").value_or("");
            target.servicePath = host.pathText(service->ft->getObjectPath(service, nullptr));
            target.elementPath = elementOf(family.service);
            target.recordClass = family.record;
            target.availableClass = family.available;
            targets.push_back(target);
        }
    }
    return targets;
}

std::string unknownServicePath(const ServiceTarget& target) {
    std::string text = target.servicePath;
    const std::string name = "Name=\"" + target.serviceName + "\"";
    const std::size_t at = text.find(name);
    if (at == std::string::npos)
        throw std::runtime_error("no Name key in " + text);
    return text.replace(at, name.size(), "Name=\"Unpublished" + target.serviceName + "\"");
}

OperationResult runOnce(Host& host, const ServiceTarget& target) {
    diaghost::CallScope scope(host.broker());
    CMPIData element{};
    element.type = CMPI_ref;
    element.state = CMPI_goodValue;
    element.value.ref = host.parsePath(target.elementPath);
    return host.invokeMethod(target.servicePath, "RunDiagnostic", {{"ManagedElement", element}});
}

std::size_t servedCount(const std::string& className) {
    std::vector<CMPIInstance*> instances;
    NQORVA20::InstanceRegistry::Singleton()->GetCMPIInstances(nullptr, className, instances);
    return instances.size();
}

bool longRun() {
    const char* value = std::getenv("DIAGCORE_LONG_TESTS");
    return value != nullptr && *value != '\0' && std::string(value) != "0";
}

bool underThreadSanitizer() {
#if defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

bool underSanitizer() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

std::size_t residentBytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) != 0)
            continue;
        std::istringstream fields(line.substr(6));
        std::size_t kib = 0;
        fields >> kib;
        return kib * 1024;
    }
    return 0;
}

std::size_t heapInUse() {
    if (underSanitizer())
        return 0;
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace robusttest
