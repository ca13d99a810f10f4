// The host's CMPIInstance: one value slot per property its class declares (inherited ones
// included), in the class's order, typed as declared and holding the class's default (null when
// it has none) until set. Property names are the class's own; the instance holds only its
// values, the path's namespace and host, and an optional property filter. Reading (getProperty,
// getObjectPath, clone) changes no value, so an instance may be read from several threads at once.
// From the second path an instance hands out, the key bindings of its paths are copied once and
// shared until a key property is set again; a value read with getProperty must not be changed in
// place (set it instead), or paths made later would not see the change.
#ifndef DIAGHOST_BROKER_HOSTINSTANCE_H
#define DIAGHOST_BROKER_HOSTINSTANCE_H

#include "host/broker/HostObject.h"
#include "host/broker/HostObjectPath.h"

#include <cmpift.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace diaghost {

struct CimClass;

class HostInstance final : public HostObject {
public:
    // Every property with a MOF initializer holds that default, typed as declared (the most
    // derived declaration's), every other property is null; owned by nobody. The class must
    // outlive the instance.
    static HostInstance* create(Broker& broker, const CimClass& cls, std::string ns,
                                std::string host);
    static HostInstance* from(const CMPIInstance* inst);
    static CMPIInstanceFT* table();

    CMPIInstance* cmpi() { return &cmpi_; }
    const CimClass& cimClass() const { return *class_; }
    // The class name as declared.
    const std::string& className() const;
    const std::string& nameSpace() const { return ns_; }
    const std::string& host() const { return host_; }
    std::size_t propertyCount() const { return count_; }
    const char* propertyName(std::size_t index) const;
    const CMPIData& at(std::size_t index) const { return values()[index]; }
    // The index of a declared property, ignoring case; -1 when the class has none of that name.
    long find(std::string_view name) const;

    // Stores a copy of the value: CMPI_RC_ERR_TYPE_MISMATCH for a type other than the declared
    // one (CMPI_chars is taken for strings, an instance for an embedded-object string); a null
    // value pointer or CMPI_null makes the property null. Properties outside a set filter are
    // left as they are.
    CMPIrc set(std::size_t index, const CMPIValue* value, CMPIType type);
    // The keys of a path become the values of the properties of those names; integer keys
    // convert to the declared width, keys of undeclared names or unfit types are skipped.
    void takeKeys(const HostObjectPath& path);
    // The namespace and host the instance's path carries.
    void setLocation(const std::string& ns, const std::string& host);
    // Only these properties (and keys, and the names in keyList) take values from now on;
    // a null list lifts the filter.
    void setFilter(const char** properties, const char** keyList);

    // A new path, owned by nobody: namespace and host of the instance, the class name as
    // declared, and the key properties that are set, in keyOrder().
    HostObjectPath* makePath() const;
    // The positions of the class's key properties in the order the instance's paths list them:
    // declaration order, or under the sfcb dialect the class's sfcbKeyOrder.
    std::vector<std::size_t> keyOrder() const;

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }
    ~HostInstance() override;

    // An instance and its values are one block of the broker's memory, values behind the
    // object: reading a value costs no second pointer to follow.
    static void operator delete(void* block) { ObjectPool::deallocateBlock(block); }

private:
    HostInstance(Broker& broker, const CimClass& cls, std::string ns, std::string host);
    // An instance with every property null.
    static HostInstance* allocate(Broker& broker, const CimClass& cls, std::string ns,
                                  std::string host);
    // Gives a property its class's default; one that cannot be made stays as it is.
    void setDefault(std::size_t index);
    // Where the values start in the block, found from the object's own address.
    static constexpr std::size_t valuesOffset();
    CMPIData* values() const;

    // What a path or a value read needs sits next to the CMPI structure, in the same cache lines.
    CMPIInstance cmpi_;
    const CimClass* class_;
    // Copies of the set key properties shared by the paths handed out: null until a path is
    // made and again after a key property changes, a marker after the first path, the copies
    // from the second on. Read and written atomically: concurrent readers may both fill it.
    mutable std::shared_ptr<HostObjectPath::KeySet> pathKeys_;
    // The number of values, fixed when the instance is made.
    std::size_t count_;
    std::string ns_;
    std::string host_;
    std::unique_ptr<std::vector<bool>> filter_;
};

constexpr std::size_t HostInstance::valuesOffset() {
    return (sizeof(HostInstance) + alignof(CMPIData) - 1) / alignof(CMPIData) * alignof(CMPIData);
}

inline CMPIData* HostInstance::values() const {
    return reinterpret_cast<CMPIData*>(reinterpret_cast<char*>(const_cast<HostInstance*>(this)) +
                                       valuesOffset());
}

} // namespace diaghost

#endif
