// Checks Basic credentials with PAM, for a service configured in /etc/pam.d or in a folder of its
// own: the user is authenticated (the modules' prompts answered with the password, or the user
// name when echoed) and then its account checked, and both must succeed. One transaction runs at a
// time in the whole process, whatever the limits allow (the audit library PAM logs each step
// through keeps process-wide state, as some modules do), and a module's delay after a failure is
// not slept through on a server thread, as the bounds on verifications already throttle guessing.
// The client's address, when given, is the modules' PAM_RHOST. A success is remembered for the
// cache's lifetime and that client, so a password changed or an account closed meanwhile lets in
// until then. Bad input is refused, never thrown at.
#ifndef DIAGSERVER_PAMAUTHENTICATOR_H
#define DIAGSERVER_PAMAUTHENTICATOR_H

#include "server/Authenticator.h"

#include <stdexcept>
#include <string>

namespace diagserver {

class PamAuthenticator : public Authenticator {
public:
    // A service name or configuration folder that cannot be used.
    class Error : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // The limits are on PAM transactions; more than one at once is never allowed.
    struct Options : Authenticator::Limits {
        // The folder the service's file is read from instead of the system's (empty: the
        // system's, where a service without a file falls back to "other").
        std::string configDir;
    };

    // Throws Error for an empty service name, one holding '/' or a blank, or a configuration
    // folder that is not one; the service's file itself is read at every verification.
    explicit PamAuthenticator(std::string service);
    PamAuthenticator(std::string service, Options options);

    using Authenticator::check;
    // Accepted from the cache, or when the service's modules authenticate the user with the
    // password and accept its account. A refusal's why names the step that failed and PAM's
    // reason, or the fault of the input (an empty user name, a NUL in the password).
    Verdict check(const std::string& user, const std::string& password, std::string& why) override;
    Verdict check(const std::string& user, const std::string& password,
                  const std::string& remoteHost, std::string& why) override;

    const std::string& service() const { return service_; }

private:
    static Options oneAtATime(Options options);
    // Whether a file configures the service (its own, or "other" to fall back to).
    bool configured() const;
    // One PAM transaction, from pam_start to pam_end; false with why set when a step fails.
    bool transaction(const std::string& user, const std::string& password,
                     const std::string& remoteHost, std::string& why) const;

    std::string service_;
    std::string configDir_;
};

} // namespace diagserver

#endif
