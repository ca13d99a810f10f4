#include "instance/InstanceRegistry.h"

#include "builder/InstanceBuilder.h"
#include "common/Constants.h"
#include "common/CoreLog.h"
#include "instance/CMPIUtil.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace NQORVA20 {

InstanceRegistry::Instance::Instance(InstanceImpl* impl, CMPIInstance* cmpiInstance)
    : impl(impl), cmpiInstance(cmpiInstance) {}

InstanceRegistry* InstanceRegistry::Singleton() {
    // Made on first use and never destroyed: an object manager thread still serving while the
    // process runs its exit handlers must not find the maps torn down, and everything the
    // registry keeps stays reachable until the process is gone.
    static InstanceRegistry* registry = new InstanceRegistry;
    return registry;
}

std::string InstanceRegistry::NormalizeClassName(std::string className) {
    for (char& c : className)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return className;
}

void InstanceRegistry::RegisterInstance(const CMPIBroker* broker, const CMPIContext* context,
                                        InstanceImpl* impl) {
    if (impl == nullptr)
        return;
    std::ostringstream logText;
    InstanceBuilder builder(cimNameSpace);
    // Built twice: the second build's function table clones the first.
    CMPIInstance* first = builder.build(broker, context, impl->getClassName(), *impl);
    CMPIInstance* second = builder.build(broker, context, impl->getClassName(), *impl);
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    CMPIInstance* clone = nullptr;
    if (first != nullptr && second != nullptr)
        clone = second->ft->clone(first, &status);
    logText << "Created instance: " << static_cast<const void*>(clone)
            << ", hdl = " << (clone ? clone->hdl : nullptr);
    coreLog(broker, LogDebug, logText.str());
    if (clone == nullptr || clone->ft == nullptr)
        return; // nothing the registry could serve
    CMPIObjectPath* path = clone->ft->getObjectPath(clone, &status);
    const std::string classKey = NormalizeClassName(CMPIUtil::GetClassName(path));
    const std::string pathText = CMPIUtil::GetObjectPathString(path);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        Instance* record = new Instance(impl, clone);
        InstanceContainer*& container = instanceContainers[classKey];
        if (container == nullptr)
            container = new InstanceContainer;
        Instance*& slot = (*container)[pathText];
        // The record a later registration under the same text replaces stays alive, with its
        // instance object and clone: a provider may still hold either.
        if (slot != nullptr)
            superseded_.push_back(slot);
        slot = record;
        impl->setObjectPath(pathText);
    }
    coreLog(broker, LogDebug, ">>>>> Registered " + pathText);
}

InstanceRegistry::Instance* InstanceRegistry::lookup(const CMPIBroker* broker,
                                                     const std::string& classKey,
                                                     const std::string& pathText) {
    bool noContainer = false;
    Instance* found = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        InstanceContainer* container = instanceContainers[classKey];
        if (container == nullptr)
            noContainer = true;
        else
            found = (*container)[pathText];
    }
    if (noContainer)
        coreLog(broker, LogWarning, " Couldn't find instanceContainer");
    return found;
}

InstanceRegistry::Instance* InstanceRegistry::GetInstance(const CMPIBroker* broker,
                                                          const CMPIObjectPath* path) {
    return lookup(broker, NormalizeClassName(CMPIUtil::GetClassName(path)),
                  CMPIUtil::GetObjectPathString(path));
}

CMPIInstance* InstanceRegistry::GetCMPIInstance(const CMPIBroker* broker,
                                                const CMPIObjectPath* path) {
    Instance* record = GetInstance(broker, path);
    if (record == nullptr) {
        coreLog(broker, LogWarning, "Didn't find instance");
        return nullptr;
    }
    return record->cmpiInstance;
}

void InstanceRegistry::GetCMPIInstances(const CMPIBroker* broker, const CMPIObjectPath* path,
                                        std::vector<CMPIInstance*>& instances) {
    GetCMPIInstances(broker, CMPIUtil::GetClassName(path), instances);
}

void InstanceRegistry::GetCMPIInstances(const CMPIBroker*, std::string className,
                                        std::vector<CMPIInstance*>& instances) {
    const std::string classKey = NormalizeClassName(className);
    std::lock_guard<std::mutex> lock(mutex_);
    InstanceContainer* container = instanceContainers[classKey];
    if (container == nullptr)
        return;
    const std::size_t firstNew = instances.size();
    // Entries left behind by lookups that missed hold no record; they are skipped, and the
    // ordering question is asked of the first entry that has one.
    InstanceImpl* firstImpl = nullptr;
    for (const auto& entry : *container) {
        if (entry.second == nullptr || entry.second->cmpiInstance == nullptr)
            continue;
        if (firstImpl == nullptr)
            firstImpl = entry.second->impl;
        instances.push_back(entry.second->cmpiInstance);
    }
    if (instances.size() == firstNew || firstImpl == nullptr ||
        firstImpl->find("EnumOrder") == firstImpl->end())
        return;
    // Each key is read once; the order is the one a comparison of keys gives.
    std::vector<std::pair<CMPIUint32, CMPIInstance*>> keyed;
    keyed.reserve(instances.size() - firstNew);
    for (std::size_t i = firstNew; i < instances.size(); ++i) {
        CMPIInstance* inst = instances[i];
        CMPIData key = inst->ft->getProperty(inst, "EnumOrder", nullptr);
        keyed.emplace_back(key.value.uint32, inst);
    }
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (std::size_t i = 0; i < keyed.size(); ++i)
        instances[firstNew + i] = keyed[i].second;
}

CMPIStatus InstanceRegistry::InvokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                                          const CMPIResult* result, const CMPIObjectPath* path,
                                          std::string methodName, const CMPIArgs* in,
                                          CMPIArgs* out) {
    Instance* record = GetInstance(broker, path);
    if (record == nullptr || record->impl == nullptr) {
        CMPIStatus notFound = {CMPI_RC_ERR_NOT_FOUND, nullptr};
        return notFound;
    }
    return record->impl->invokeMethod(broker, context, result, path, methodName, in, out);
}

} // namespace NQORVA20
