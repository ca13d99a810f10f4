#include "instance/ClientLimits.h"

#include "common/CmpiBoundary.h"

#include <cmpift.h>

#include <cstring>

namespace NQORVA20 {

namespace {

std::size_t length(const CMPIString* s) {
    const char* chars = CmpiBoundary::chars(s);
    return chars ? std::strlen(chars) : 0;
}

} // namespace

std::string ClientLimits::Exceeded(const CMPIObjectPath* path) {
    if (!CmpiBoundary::usable(path))
        return {};
    const CMPICount keys = path->ft->getKeyCount(path, nullptr);
    if (keys > maxKeys)
        return "it has " + std::to_string(keys) + " keys, more than " + std::to_string(maxKeys);
    for (CMPICount i = 0; i < keys; ++i) {
        CMPIString* name = nullptr;
        CMPIData value = path->ft->getKeyAt(path, i, &name, nullptr);
        if (length(name) > maxKeyText)
            return "a key name is longer than " + std::to_string(maxKeyText) + " bytes";
        if (value.type == CMPI_string && !(value.state & CMPI_nullValue) &&
            length(value.value.string) > maxKeyText)
            return "the value of a key is longer than " + std::to_string(maxKeyText) + " bytes";
    }
    if (length(path->ft->toString(path, nullptr)) > maxPathText)
        return "its text is longer than " + std::to_string(maxPathText) + " bytes";
    return {};
}

CMPIStatus ClientLimits::Refusal(const CMPIBroker* broker, const std::string& what,
                                 const std::string& reason) {
    return CmpiBoundary::status(broker, CMPI_RC_ERR_INVALID_PARAMETER,
                                (what + " refused: " + reason).c_str());
}

} // namespace NQORVA20
