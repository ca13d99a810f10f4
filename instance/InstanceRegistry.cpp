#include "instance/InstanceRegistry.h"

#include "builder/InstanceBuilder.h"
#include "common/CmpiBoundary.h"
#include "common/Constants.h"
#include "common/CoreLog.h"
#include "common/ProviderScope.h"
#include "instance/CMPIUtil.h"
#include "instance/SystemIdentity.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
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
    // Until the registry has filed it, the clone is nobody's: an exception (no memory) on the
    // way there releases it, and leaves the instance object to the caller.
    std::unique_ptr<CMPIInstance, void (*)(CMPIInstance*)> pendingClone(
        clone, [](CMPIInstance* c) { CmpiBoundary::release(c); });
    logText << "Created instance: " << static_cast<const void*>(clone)
            << ", hdl = " << (clone ? clone->hdl : nullptr);
    coreLog(broker, LogDebug, logText.str());
    if (!CmpiBoundary::usable(clone)) {
        std::lock_guard<std::mutex> lock(mutex_);
        unserved_.push_back(impl);
        return;
    }
    CMPIObjectPath* path = clone->ft->getObjectPath(clone, &status);
    const std::string classKey = NormalizeClassName(CMPIUtil::GetClassName(path));
    const std::string pathText = CMPIUtil::GetObjectPathString(path);
    const std::string registeredText = ">>>>> Registered " + pathText;
    const std::size_t keysHash = std::hash<std::string>()(OrderFreeKey(path));
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // Everything that allocates comes first; the filing itself cannot throw.
        auto record = std::make_unique<Instance>(impl, clone);
        superseded_.reserve(superseded_.size() + 1);
        InstanceContainer*& container = instanceContainers[classKey];
        if (container == nullptr) {
            owners_.reserve(owners_.size() + 1);
            container = new InstanceContainer;
            owners_.emplace(container, ProviderScope::owner());
        }
        Instance*& slot = entry(*container, pathText, keysHash);
        Ordered& ordered = ordered_[container];
        impl->setObjectPath(pathText);
        // The record a later registration under the same text replaces stays alive, with its
        // instance object and clone: a provider may still hold either.
        if (slot != nullptr)
            superseded_.push_back(slot);
        slot = record.release();
        ordered.stale = true;
        pendingClone.release();
    }
    coreLog(broker, LogDebug, registeredText);
}

InstanceRegistry::Instance* InstanceRegistry::lookup(const CMPIBroker* broker,
                                                     const std::string& classKey,
                                                     const std::string& pathText,
                                                     const CMPIObjectPath* path) {
    // A lookup that misses leaves nothing behind: a client asking for paths that do not exist
    // must not grow the registry.
    bool noContainer = false;
    Instance* found = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = instanceContainers.find(classKey);
        if (it == instanceContainers.end() || it->second == nullptr)
            noContainer = true;
        else
            found = find(*it->second, pathText, path);
    }
    if (noContainer)
        coreLog(broker, LogWarning, " Couldn't find instanceContainer");
    return found;
}

InstanceRegistry::Instance* InstanceRegistry::find(const InstanceContainer& container,
                                                   const std::string& pathText,
                                                   const CMPIObjectPath* path) const {
    auto filed = filed_.find(std::string_view(pathText));
    if (filed != filed_.end() && filed->second.container == &container)
        return *filed->second.slot;
    auto it = container.find(pathText);
    if (it != container.end())
        return it->second;
    // The same keys in another order (an object manager that keeps the order a client wrote).
    // A candidate of the same hash is confirmed from its kept instance's own path.
    const std::string wanted = OrderFreeKey(path);
    auto [first, last] = byKeys_.equal_range(std::hash<std::string>()(wanted));
    for (; first != last; ++first) {
        Instance* record = *first->second.slot;
        if (first->second.container != &container || record == nullptr ||
            !CmpiBoundary::usable(record->cmpiInstance))
            continue;
        CMPIInstance* kept = record->cmpiInstance;
        if (OrderFreeKey(kept->ft->getObjectPath(kept, nullptr)) == wanted)
            return record;
    }
    return nullptr;
}

InstanceRegistry::Instance*& InstanceRegistry::entry(InstanceContainer& container,
                                                     const std::string& pathText,
                                                     std::size_t keysHash) {
    auto filed = filed_.find(std::string_view(pathText));
    if (filed != filed_.end() && filed->second.container == &container)
        return *filed->second.slot;
    byKeys_.reserve(byKeys_.size() + 1);
    auto [it, added] = container.try_emplace(pathText, nullptr);
    // A text filed in another container as well keeps its first index entry; this one is then
    // found through the ordered container.
    if (filed == filed_.end())
        filed_.emplace(std::string_view(it->first), Filed{&container, &it->second});
    if (added)
        byKeys_.emplace(keysHash, Keyed{&container, &it->second});
    return it->second;
}

std::string InstanceRegistry::OrderFreeKey(const CMPIObjectPath* path) {
    // The class and every key binding, name and value, sorted by name; a reference value is the
    // referenced path's own order-free key, so nested keys may come in any order too.
    if (!CmpiBoundary::usable(path))
        return std::string();
    std::string key = CMPIUtil::GetClassName(path);
    std::vector<std::pair<std::string, std::string>> bindings;
    const CMPICount count = path->ft->getKeyCount(path, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIString* name = nullptr;
        CMPIData data = path->ft->getKeyAt(path, i, &name, nullptr);
        const char* nameChars = CmpiBoundary::chars(name);
        std::string value;
        if (data.state & CMPI_nullValue) {
            value = "\x01";
        } else if (data.type == CMPI_string && data.value.string && data.value.string->ft) {
            value = CmpiBoundary::text(data.value.string);
        } else if (data.type == CMPI_ref) {
            value = "{" + OrderFreeKey(data.value.ref) + "}";
        } else if (data.type == CMPI_boolean) {
            value = data.value.boolean ? "true" : "false";
        } else if (data.type & CMPI_UINT) {
            value = std::to_string(data.type == CMPI_uint64   ? data.value.uint64
                                   : data.type == CMPI_uint32 ? data.value.uint32
                                   : data.type == CMPI_uint16 ? data.value.uint16
                                                              : data.value.uint8);
        } else if (data.type & CMPI_SINT) {
            value = std::to_string(data.type == CMPI_sint64   ? data.value.sint64
                                   : data.type == CMPI_sint32 ? data.value.sint32
                                   : data.type == CMPI_sint16 ? data.value.sint16
                                                              : data.value.sint8);
        } else {
            value = "#" + std::to_string(data.type);
        }
        bindings.emplace_back(nameChars ? nameChars : "", std::move(value));
    }
    std::sort(bindings.begin(), bindings.end());
    for (const auto& [name, value] : bindings) {
        key += '\n';
        key += name;
        key += '\0';
        key += value;
    }
    return key;
}

InstanceRegistry::Instance* InstanceRegistry::GetInstance(const CMPIBroker* broker,
                                                          const CMPIObjectPath* path) {
    // The object-path text carries no host or namespace: a path naming another system or
    // namespace would otherwise find this system's instance.
    if (!SystemIdentity::IsLocalPath(path))
        return nullptr;
    return lookup(broker, NormalizeClassName(CMPIUtil::GetClassName(path)),
                  CMPIUtil::GetObjectPathString(path), path);
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
    auto found = instanceContainers.find(classKey);
    if (found == instanceContainers.end() || found->second == nullptr)
        return;
    InstanceContainer* container = found->second;
    const std::size_t firstNew = instances.size();
    Ordered& ordered = ordered_[container];
    if (ordered.stale) {
        // Entries left behind by lookups that missed hold no record and are not listed.
        ordered.records.clear();
        for (const auto& entry : *container)
            if (entry.second != nullptr)
                ordered.records.push_back(entry.second);
        ordered.stale = false;
    }
    // The ordering question is asked of the first record that has an instance.
    InstanceImpl* firstImpl = nullptr;
    const std::vector<Instance*>& records = ordered.records;
    instances.reserve(firstNew + records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const Instance* record = records[i];
        if (record->cmpiInstance == nullptr)
            continue;
        if (firstImpl == nullptr)
            firstImpl = record->impl;
        instances.push_back(record->cmpiInstance);
    }
    if (instances.size() == firstNew || firstImpl == nullptr ||
        firstImpl->find("EnumOrder") == firstImpl->end())
        return;
    // Each key is read once. Equal keys keep their object-path-text order, so the order is the
    // one every comparison-based sort of the keys could give, and the same on every call.
    struct Keyed {
        CMPIUint32 key;
        std::uint32_t position;
        CMPIInstance* instance;
    };
    // Scratch kept by the thread between enumerations (the registry lock is held, so no other
    // enumeration uses it meanwhile): a large enumeration then does not fetch fresh pages from
    // the system every time.
    thread_local std::vector<Keyed> keyed;
    keyed.clear();
    keyed.reserve(instances.size() - firstNew);
    for (std::size_t i = firstNew; i < instances.size(); ++i) {
        CMPIInstance* inst = instances[i];
        CMPIData key = inst->ft->getProperty(inst, "EnumOrder", nullptr);
        keyed.push_back(Keyed{key.value.uint32, static_cast<std::uint32_t>(i - firstNew), inst});
    }
    std::sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
        return a.key != b.key ? a.key < b.key : a.position < b.position;
    });
    for (std::size_t i = 0; i < keyed.size(); ++i)
        instances[firstNew + i] = keyed[i].instance;
    constexpr std::size_t keptScratch = (std::size_t{4} << 20) / sizeof(Keyed);
    if (keyed.capacity() > keptScratch)
        std::vector<Keyed>().swap(keyed);
}

std::vector<std::string> InstanceRegistry::ClassKeys(const void* provider) {
    std::vector<std::string> keys;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [classKey, container] : instanceContainers) {
        if (container == nullptr)
            continue;
        auto owner = owners_.find(container);
        if (provider == nullptr || (owner != owners_.end() && owner->second == provider))
            keys.push_back(classKey);
    }
    return keys;
}

CMPIStatus InstanceRegistry::InvokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                                          const CMPIResult* result, const CMPIObjectPath* path,
                                          std::string methodName, const CMPIArgs* in,
                                          CMPIArgs* out) {
    Instance* record = GetInstance(broker, path);
    if (record == nullptr || record->impl == nullptr) {
        // A path the broker cannot render (no memory) names nothing the lookup could find: that
        // is a failure of the call, not an unknown instance.
        if (CmpiBoundary::usable(path) && CMPIUtil::GetObjectPathString(path).empty()) {
            return CmpiBoundary::status(broker, CMPI_RC_ERR_FAILED,
                                        "the object path could not be read");
        }
        return CmpiBoundary::status(CMPI_RC_ERR_NOT_FOUND);
    }
    return record->impl->invokeMethod(broker, context, result, path, methodName, in, out);
}

} // namespace NQORVA20
