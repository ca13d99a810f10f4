// The host's CMPIEnumeration: a list of values (instances, object paths or plain data) it owns,
// read once from front to back with getNext; toArray copies them all.
#ifndef DIAGHOST_BROKER_HOSTENUMERATION_H
#define DIAGHOST_BROKER_HOSTENUMERATION_H

#include "host/broker/HostObject.h"

#include <cmpift.h>

#include <vector>

namespace diaghost {

class HostEnumeration final : public HostObject {
public:
    // Takes the items, whose objects must be placed with Placement::Parent (or owned by nobody:
    // they are then taken over); elementType is what toArray gives an empty enumeration.
    // Owned by nobody.
    static HostEnumeration* create(Broker& broker, std::vector<CMPIData> items,
                                   CMPIType elementType);
    static HostEnumeration* from(const CMPIEnumeration* en);
    static CMPIEnumerationFT* table();

    CMPIEnumeration* cmpi() { return &cmpi_; }
    const std::vector<CMPIData>& items() const { return items_; }
    CMPIType elementType() const { return elementType_; }
    std::size_t position() const { return next_; }
    // The next item, or null when every item was read.
    const CMPIData* next();

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }
    ~HostEnumeration() override;

private:
    HostEnumeration(Broker& broker, std::vector<CMPIData> items, CMPIType elementType);

    CMPIEnumeration cmpi_;
    std::vector<CMPIData> items_;
    CMPIType elementType_;
    std::size_t next_ = 0;
};

} // namespace diaghost

#endif
