// The host's CMPIArray: a fixed number of elements of one type, each null until set. Elements
// are copies owned by the array; setting one checks the index and the type.
#ifndef DIAGHOST_BROKER_HOSTARRAY_H
#define DIAGHOST_BROKER_HOSTARRAY_H

#include "host/broker/HostObject.h"

#include <cmpift.h>

#include <vector>

namespace diaghost {

class HostArray final : public HostObject {
public:
    // The largest array the broker makes; bigger requests answer CMPI_RC_ERR_INVALID_PARAMETER.
    static constexpr CMPICount maxSize = 1u << 24;

    // `size` null elements of elementType (an array flag on it is ignored, chars become
    // strings), owned by nobody. The type must pass validElementType.
    static HostArray* create(Broker& broker, CMPICount size, CMPIType elementType);
    static bool validElementType(CMPIType type);

    static HostArray* from(const CMPIArray* a);
    static CMPIArrayFT* table();

    CMPIArray* cmpi() { return &cmpi_; }
    CMPIType elementType() const { return elementType_; }
    CMPICount size() const { return static_cast<CMPICount>(elements_.size()); }
    const CMPIData& at(CMPICount index) const { return elements_[index]; }

    // Stores a copy of the value at index: CMPI_RC_ERR_NO_SUCH_PROPERTY out of range,
    // CMPI_RC_ERR_TYPE_MISMATCH for a type other than the element type (CMPI_chars is taken for
    // strings); a null value pointer or CMPI_null makes the element null.
    CMPIrc set(CMPICount index, const CMPIValue* value, CMPIType type);

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }
    ~HostArray() override;

private:
    HostArray(Broker& broker, CMPIType elementType, CMPICount size);

    CMPIArray cmpi_;
    CMPIType elementType_;
    std::vector<CMPIData> elements_;
};

} // namespace diaghost

#endif
