// The in-memory form of one CIM instance: a class name, property value texts by property name,
// and the object-path text under which the registry filed it. Root of every model class; a
// subclass fills its class name and defaults in init(). Not safe for concurrent writers.
#ifndef DIAGCORE_INSTANCE_INSTANCEIMPL_H
#define DIAGCORE_INSTANCE_INSTANCEIMPL_H

#include "common/Export.h"

#include <cmpidt.h>

#include <map>
#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT InstanceImpl {
public:
    using PropertyMap = std::map<std::string, std::string>;
    using iterator = PropertyMap::iterator;

    InstanceImpl();
    explicit InstanceImpl(std::string className);
    // A copy carries the other's properties only: its class name and object path stay empty.
    InstanceImpl(const InstanceImpl& other);
    // Replaces the properties only; class name and object path are kept.
    InstanceImpl& operator=(const InstanceImpl& other);
    virtual ~InstanceImpl();

    // The extrinsic method call routed to this instance. The base has no methods and answers
    // CMPI_RC_ERR_METHOD_NOT_FOUND without touching result or out.
    virtual CMPIStatus invokeMethod(const CMPIBroker* broker, const CMPIContext* context,
                                    const CMPIResult* result, const CMPIObjectPath* objectPath,
                                    std::string methodName, const CMPIArgs* in, CMPIArgs* out);
    virtual void init() = 0;

    void setClassName(std::string className);
    std::string getClassName();
    void setObjectPath(std::string objectPath);
    std::string getObjectPath();

    // Both insert the property with an empty text when it is absent.
    std::string& get(const std::string& name);
    std::string& operator[](const std::string& name);
    // Never inserts; end() when absent.
    iterator find(const std::string& name);
    iterator begin();
    iterator end();

    // Writes "name\t\tvalue" per property in name order to standard output, then an empty line.
    void print();

private:
    std::string className_;
    PropertyMap properties_;
    std::string objectPath_;
};

} // namespace NQORVA20

#endif
