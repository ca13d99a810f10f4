// Serves the instance declarations of the loaded MOF ("instance of Class { ... };") for classes
// no provider serves, as an object manager serves the instances its repository holds. Values take
// the property types the class declares; a class default fills a property the declaration leaves
// out. Association instances among them answer references and associators by their REF values.
// Everything it makes belongs to the calling thread's current CallScope; results are returned
// (copied) into the given sink.
#ifndef DIAGHOST_PROVIDERS_STATICINSTANCEPROVIDER_H
#define DIAGHOST_PROVIDERS_STATICINSTANCEPROVIDER_H

#include "host/broker/OperationStatus.h"

#include <cmpidt.h>

#include <string>
#include <vector>

namespace diaghost {

class Broker;
class ResultSink;

class StaticInstanceProvider {
public:
    explicit StaticInstanceProvider(Broker& broker);

    // The declared instances of exactly className, as instances or as their paths.
    OperationStatus enumerate(const std::string& ns, const std::string& className, bool namesOnly,
                              ResultSink& out) const;
    // The declared instance of the path's class whose keys equal the path's keys;
    // CMPI_RC_ERR_NOT_FOUND when none.
    OperationStatus getInstance(const std::string& ns, const CMPIObjectPath* path,
                                ResultSink& out) const;
    // Declared instances of exactly assocClass that refer to `source` (through the REF property
    // `role`, when one is given), as instances or as their paths.
    OperationStatus references(const std::string& ns, const std::string& assocClass,
                               const CMPIObjectPath* source, const char* role, bool namesOnly,
                               ResultSink& out) const;
    // The paths at the other ends of those instances: each REF other than the one naming
    // source, limited to resultRole and to objects of resultClass (or subclasses) when given.
    OperationStatus associatedPaths(const std::string& ns, const std::string& assocClass,
                                    const CMPIObjectPath* source, const char* resultClass,
                                    const char* role, const char* resultRole,
                                    std::vector<CMPIObjectPath*>& out) const;
    // The classes in ns with declared instances, once each, in declaration order.
    std::vector<std::string> classesWithInstances(const std::string& ns) const;

private:
    // Builds every declared instance of exactly className; the first failure stops.
    OperationStatus build(const std::string& ns, const std::string& className,
                          std::vector<CMPIInstance*>& out) const;

    Broker& broker_;
};

} // namespace diaghost

#endif
