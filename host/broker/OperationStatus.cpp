#include "host/broker/OperationStatus.h"

#include "host/broker/HostString.h"

#include <cstdio>

namespace diaghost {

OperationStatus OperationStatus::fromCmpi(const CMPIStatus& status) {
    const char* text = HostString::textOf(status.msg);
    if (!text)
        return make(status.rc);
    return make(status.rc, text);
}

const char* rcName(CMPIrc rc) {
    // On the number: header sets differ in which codes their enumeration lists, and a code not
    // named here is given by number whichever set declares it.
    switch (static_cast<int>(rc)) {
    case CMPI_RC_OK:
        return "CMPI_RC_OK";
    case CMPI_RC_ERR_FAILED:
        return "CMPI_RC_ERR_FAILED";
    case CMPI_RC_ERR_ACCESS_DENIED:
        return "CMPI_RC_ERR_ACCESS_DENIED";
    case CMPI_RC_ERR_INVALID_NAMESPACE:
        return "CMPI_RC_ERR_INVALID_NAMESPACE";
    case CMPI_RC_ERR_INVALID_PARAMETER:
        return "CMPI_RC_ERR_INVALID_PARAMETER";
    case CMPI_RC_ERR_INVALID_CLASS:
        return "CMPI_RC_ERR_INVALID_CLASS";
    case CMPI_RC_ERR_NOT_FOUND:
        return "CMPI_RC_ERR_NOT_FOUND";
    case CMPI_RC_ERR_NOT_SUPPORTED:
        return "CMPI_RC_ERR_NOT_SUPPORTED";
    case CMPI_RC_ERR_CLASS_HAS_CHILDREN:
        return "CMPI_RC_ERR_CLASS_HAS_CHILDREN";
    case CMPI_RC_ERR_CLASS_HAS_INSTANCES:
        return "CMPI_RC_ERR_CLASS_HAS_INSTANCES";
    case CMPI_RC_ERR_INVALID_SUPERCLASS:
        return "CMPI_RC_ERR_INVALID_SUPERCLASS";
    case CMPI_RC_ERR_ALREADY_EXISTS:
        return "CMPI_RC_ERR_ALREADY_EXISTS";
    case CMPI_RC_ERR_NO_SUCH_PROPERTY:
        return "CMPI_RC_ERR_NO_SUCH_PROPERTY";
    case CMPI_RC_ERR_TYPE_MISMATCH:
        return "CMPI_RC_ERR_TYPE_MISMATCH";
    case CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED:
        return "CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED";
    case CMPI_RC_ERR_INVALID_QUERY:
        return "CMPI_RC_ERR_INVALID_QUERY";
    case CMPI_RC_ERR_METHOD_NOT_AVAILABLE:
        return "CMPI_RC_ERR_METHOD_NOT_AVAILABLE";
    case CMPI_RC_ERR_METHOD_NOT_FOUND:
        return "CMPI_RC_ERR_METHOD_NOT_FOUND";
    case CMPI_RC_DO_NOT_UNLOAD:
        return "CMPI_RC_DO_NOT_UNLOAD";
    case CMPI_RC_NEVER_UNLOAD:
        return "CMPI_RC_NEVER_UNLOAD";
    case CMPI_RC_ERR_INVALID_HANDLE:
        return "CMPI_RC_ERR_INVALID_HANDLE";
    case CMPI_RC_ERR_INVALID_DATA_TYPE:
        return "CMPI_RC_ERR_INVALID_DATA_TYPE";
    case CMPI_RC_ERROR_SYSTEM:
        return "CMPI_RC_ERROR_SYSTEM";
    case CMPI_RC_ERROR:
        return "CMPI_RC_ERROR";
    }
    // Other codes: the text lives in a per-thread buffer until this thread's next such call.
    static thread_local char buffer[32];
    std::snprintf(buffer, sizeof buffer, "CMPI_RC_%d", static_cast<int>(rc));
    return buffer;
}

OperationStatus OperationStatus::failed(const char* what, const char* why) noexcept {
    OperationStatus status = make(CMPI_RC_ERR_FAILED);
    try {
        status.message = std::string(what) + " failed";
        if (why)
            status.message += std::string(": ") + why;
        status.hasMessage = true;
    } catch (...) {
        status.message.clear();
    }
    return status;
}

} // namespace diaghost
