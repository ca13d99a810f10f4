#include "host/broker/CmpiCall.h"

#include "host/broker/CallArena.h"
#include "host/broker/CallScope.h"
#include "host/broker/HostString.h"

#include <exception>
#include <new>

namespace diaghost {

CMPIStatus CmpiCall::status(Broker& broker, CMPIrc rc, const std::string& text) noexcept {
    CMPIStatus s{rc, nullptr};
    try {
        s.msg = HostString::make(broker, text.c_str(), text.size(), HostObject::Placement::Scope);
    } catch (...) {
        s.msg = nullptr;
    }
    return s;
}

void CmpiCall::set(CMPIStatus* out, Broker& broker, CMPIrc rc, const std::string& text) noexcept {
    if (out)
        *out = status(broker, rc, text);
}

CMPIStatus CmpiCall::failure() noexcept {
    const char* text = "unknown exception";
    try {
        throw;
    } catch (const std::bad_alloc&) {
        text = "out of memory";
    } catch (const std::exception& e) {
        text = e.what();
    } catch (...) {
    }
    CMPIStatus s{CMPI_RC_ERR_FAILED, nullptr};
    try {
        if (CallArena* arena = CallScope::innermost())
            s.msg = HostString::make(arena->broker(), text, std::char_traits<char>::length(text),
                                     HostObject::Placement::Scope);
    } catch (...) {
        s.msg = nullptr;
    }
    return s;
}

} // namespace diaghost
