// A CMPIEnumeration a provider makes itself over a list of instances it holds, for the places
// where the core asks for an enumeration but the answer must not come through the object
// manager. The object owns the CMPI structure, not the instances; releasing it through its
// function table does nothing (its owner frees it), and clone and toArray are not supported.
#ifndef ZORQ_PROVIDERS_COMMON_INSTANCELISTENUMERATION_H
#define ZORQ_PROVIDERS_COMMON_INSTANCELISTENUMERATION_H

#include <cmpidt.h>
#include <cmpift.h>

#include <cstddef>
#include <vector>

namespace NQORVA20::providers {

class InstanceListEnumeration {
public:
    explicit InstanceListEnumeration(std::vector<CMPIInstance*> instances);
    InstanceListEnumeration(const InstanceListEnumeration&) = delete;
    InstanceListEnumeration& operator=(const InstanceListEnumeration&) = delete;

    CMPIEnumeration* cmpi() { return &cmpi_; }

private:
    static CMPIEnumerationFT* table();
    static InstanceListEnumeration* from(const CMPIEnumeration* e);
    static CMPIStatus release(CMPIEnumeration* e);
    static CMPIEnumeration* clone(const CMPIEnumeration* e, CMPIStatus* rc);
    static CMPIData getNext(const CMPIEnumeration* e, CMPIStatus* rc);
    static CMPIBoolean hasNext(const CMPIEnumeration* e, CMPIStatus* rc);
    static CMPIArray* toArray(const CMPIEnumeration* e, CMPIStatus* rc);

    CMPIEnumeration cmpi_;
    std::vector<CMPIInstance*> instances_;
    std::size_t next_ = 0;
};

} // namespace NQORVA20::providers

#endif
