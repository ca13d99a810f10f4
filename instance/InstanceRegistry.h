// The process-wide store of every instance the providers publish. Registering an instance object
// builds its CMPIInstance, keeps a clone, and files both under the upper-cased class name and the
// object-path text; every later enumerate, get, association and method call is answered from
// here. Nothing is ever taken out: instance objects, records and clones live until the process
// ends. One registry-wide lock guards each operation; it is not held while an instance object's
// method runs.
#ifndef DIAGCORE_INSTANCE_INSTANCEREGISTRY_H
#define DIAGCORE_INSTANCE_INSTANCEREGISTRY_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace NQORVA20 {

class DIAGCORE_EXPORT InstanceRegistry {
public:
    // The registry's record of one registered instance.
    class DIAGCORE_EXPORT Instance {
    public:
        Instance(InstanceImpl* impl, CMPIInstance* cmpiInstance);
        InstanceImpl* impl;
        CMPIInstance* cmpiInstance;
    };
    using InstanceContainer = std::map<std::string, Instance*>;

    static InstanceRegistry* Singleton();

    // Takes the instance object into the registry's keeping for the rest of the process. When
    // the broker could not make its CMPIInstance the object is kept but not served, and its
    // object-path text stays as it was: only filing writes it.
    void RegisterInstance(const CMPIBroker* broker, const CMPIContext* context, InstanceImpl* impl);
    // The record filed under the path's class and object-path text (or the same keys in another
    // order), or null. A lookup that misses leaves nothing behind.
    Instance* GetInstance(const CMPIBroker* broker, const CMPIObjectPath* path);
    CMPIInstance* GetCMPIInstance(const CMPIBroker* broker, const CMPIObjectPath* path);
    // Appends the class's instances, ordered by "EnumOrder" when the first one (smallest
    // object-path text) has that property, else by object-path text.
    void GetCMPIInstances(const CMPIBroker* broker, const CMPIObjectPath* path,
                          std::vector<CMPIInstance*>& instances);
    void GetCMPIInstances(const CMPIBroker* broker, std::string className,
                          std::vector<CMPIInstance*>& instances);
    // The normalised names of the classes filed, in byte order; with a provider given (a
    // ProviderScope tag), only the classes whose first instance was filed while that provider
    // was being served.
    std::vector<std::string> ClassKeys(const void* provider);
    // Runs the method of the instance object filed under the path; CMPI_RC_ERR_NOT_FOUND when
    // there is none.
    CMPIStatus InvokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                            const CMPIResult* result, const CMPIObjectPath* path,
                            std::string methodName, const CMPIArgs* in, CMPIArgs* out);
    // The class name with every character upper-cased by the C library's toupper.
    static std::string NormalizeClassName(std::string className);

private:
    InstanceRegistry() = default;
    Instance* lookup(const CMPIBroker* broker, const std::string& classKey,
                     const std::string& pathText, const CMPIObjectPath* path);
    // The container's entry for the text, made (without a record) when there is none.
    Instance*& entry(InstanceContainer& container, const std::string& pathText,
                     std::size_t keysHash);
    // The record filed under the text, or under a text with the same keys in another order; null
    // when there is none. Adds nothing.
    Instance* find(const InstanceContainer& container, const std::string& pathText,
                   const CMPIObjectPath* path) const;
    // The class and the key bindings of a path, independent of the order of its keys (and of
    // the keys of the paths it refers to).
    static std::string OrderFreeKey(const CMPIObjectPath* path);

    std::map<std::string, InstanceContainer*> instanceContainers;
    // Every container entry by its object-path text, hashed, so that a lookup does not walk a
    // large ordered container. The keys view the containers' own key texts, which never move
    // or go away.
    struct Filed {
        InstanceContainer* container;
        Instance** slot;
    };
    std::unordered_map<std::string_view, Filed> filed_;
    // Every container entry by the hash of its order-free key, for a path whose keys come in
    // another order than the filed text's.
    struct Keyed {
        InstanceContainer* container;
        Instance** slot;
    };
    std::unordered_multimap<std::size_t, Keyed> byKeys_;
    // Each container's records in object-path-text order, remade by the first enumeration after a
    // registration changed the container, so that enumerations read one flat list instead of
    // walking the container's nodes. Entries without a record are left out.
    struct Ordered {
        std::vector<Instance*> records;
        bool stale = true;
    };
    std::unordered_map<const InstanceContainer*, Ordered> ordered_;
    // The provider library each container was first filed for (null when none was named).
    std::unordered_map<const InstanceContainer*, const void*> owners_;
    // Records replaced by a later registration under the same object-path text; kept, never read.
    std::vector<Instance*> superseded_;
    // Instance objects whose registration failed for want of a CMPIInstance; kept, never served.
    std::vector<InstanceImpl*> unserved_;
    std::mutex mutex_;
};

} // namespace NQORVA20

#endif
