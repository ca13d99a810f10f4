#include "host/broker/NamedValues.h"

#include "host/broker/DataCopy.h"
#include "host/memory/ScopeMemory.h"
#include "host/text/CimNames.h"

namespace diaghost {

NamedValues::~NamedValues() {
    for (auto& e : entries_)
        DataCopy::destroy(e.second);
}

CMPIrc NamedValues::add(Broker& broker, const char* name, const CMPIValue* value, CMPIType type) {
    ScopeMemory::PartsOf parts(this);
    CMPIData copy{};
    CMPIrc rc = DataCopy::copy(broker, value, type, HostObject::Placement::Parent, copy);
    if (rc != CMPI_RC_OK)
        return rc;
    for (auto& e : entries_) {
        if (sameName(e.first, name)) {
            DataCopy::destroy(e.second);
            e.second = copy;
            return CMPI_RC_OK;
        }
    }
    try {
        entries_.emplace_back(name, copy);
    } catch (...) {
        DataCopy::destroy(copy);
        throw;
    }
    return CMPI_RC_OK;
}

CMPIrc NamedValues::copyFrom(Broker& broker, const NamedValues& other) {
    for (const auto& e : other.entries_) {
        entries_.emplace_back(e.first, DataCopy::null(e.second.type));
        CMPIrc rc =
            DataCopy::copy(broker, e.second, HostObject::Placement::Parent, entries_.back().second);
        if (rc != CMPI_RC_OK)
            return rc;
    }
    return CMPI_RC_OK;
}

const CMPIData* NamedValues::find(std::string_view name) const {
    for (const auto& e : entries_) {
        if (sameName(e.first, name))
            return &e.second;
    }
    return nullptr;
}

} // namespace diaghost
