// What every function the host puts into a CMPI function table needs: filling the optional
// status out-parameter, statuses with a message string, and a guard that turns any escaping
// C++ exception into CMPI_RC_ERR_FAILED so that none crosses the C boundary.
#ifndef DIAGHOST_BROKER_CMPICALL_H
#define DIAGHOST_BROKER_CMPICALL_H

#include "host/memory/ScopeMemory.h"

#include <cmpidt.h>

#include <cxxabi.h>
#include <string>

namespace diaghost {

class Broker;

class CmpiCall {
public:
    static CMPIStatus status(CMPIrc rc) { return CMPIStatus{rc, nullptr}; }
    static void set(CMPIStatus* out, CMPIrc rc) {
        if (out) {
            out->rc = rc;
            out->msg = nullptr;
        }
    }
    // A status whose message is a string of the calling thread's current scope for broker (no
    // message when even that cannot be made).
    static CMPIStatus status(Broker& broker, CMPIrc rc, const std::string& text) noexcept;
    static void set(CMPIStatus* out, Broker& broker, CMPIrc rc, const std::string& text) noexcept;
    // The status for the exception being handled: CMPI_RC_ERR_FAILED with its text, the message
    // made in the thread's innermost scope when one is open. Call only inside a catch block.
    static CMPIStatus failure() noexcept;

    // The data getters answer when there is nothing to give: no type, null and not found.
    static CMPIData notFound() {
        CMPIData d{};
        d.type = CMPI_null;
        d.state = CMPI_nullValue | CMPI_notFound;
        return d;
    }

    // Runs body; an exception leaving it sets *out to failure() and answers fallback. Only the
    // forced unwinding of a cancelled thread passes.
    template <class R, class Body>
    static R guard(CMPIStatus* out, R fallback, Body&& body) {
        try {
            return body();
        } catch (abi::__forced_unwind&) {
            throw; // thread cancellation must unwind on
        } catch (...) {
            CMPIStatus s = failure();
            if (out)
                *out = s;
            return fallback;
        }
    }
    // Runs a body answering a CMPIStatus; an exception becomes failure().
    template <class Body>
    static CMPIStatus guardStatus(Body&& body) {
        try {
            return body();
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            return failure();
        }
    }

    // What the clone function of every broker-made object hands out: a deep copy owned by the
    // caller, made from the C library's memory since it may outlive every call scope.
    template <class Owner>
    static Owner* durableCopy(const Owner& self) {
        ScopeMemory::Durable durable;
        return static_cast<Owner*>(self.copy());
    }

    // The release function of every broker-made object: Owner::from finds the host object behind
    // the CMPI structure, CMPI_RC_ERR_INVALID_HANDLE when there is none.
    template <class Owner, class Cmpi>
    static CMPIStatus release(Cmpi* object) {
        return guardStatus([&] {
            Owner* self = Owner::from(object);
            if (!self)
                return status(CMPI_RC_ERR_INVALID_HANDLE);
            self->release();
            return status(CMPI_RC_OK);
        });
    }
};

} // namespace diaghost

#endif
