#include "server/CimRequest.h"

#include "host/text/CimNames.h"

namespace diagserver {

const CimRequest::Value* CimRequest::param(std::string_view name) const {
    for (const auto& [given, value] : params)
        if (diaghost::sameName(given, name))
            return &value;
    return nullptr;
}

} // namespace diagserver
