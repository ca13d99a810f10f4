// The bounds on what a client may send the core in an object path: the path of a request and the
// reference arguments of a method. A path beyond them is refused (CMPI_RC_ERR_INVALID_PARAMETER
// with the reason) before the core makes or keeps anything from it, so a client cannot make the
// object manager hold megabytes per request.
#ifndef DIAGCORE_INSTANCE_CLIENTLIMITS_H
#define DIAGCORE_INSTANCE_CLIENTLIMITS_H

#include "common/Export.h"

#include <cmpidt.h>

#include <cstddef>
#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT ClientLimits {
public:
    static constexpr std::size_t maxPathText = 64 * 1024;
    static constexpr std::size_t maxKeyText = 4 * 1024; // a key's name or string value
    static constexpr unsigned int maxKeys = 256;

    // Empty when the path is within the bounds (a null path is, for the callers to refuse as
    // they always have); otherwise the reason, naming what was too large.
    static std::string Exceeded(const CMPIObjectPath* path);
    // A status refusing the path for that reason, its message made by the broker.
    static CMPIStatus Refusal(const CMPIBroker* broker, const std::string& what,
                              const std::string& reason);
};

} // namespace NQORVA20

#endif
