// A way of checking HTTP Basic credentials, and what every way shares: a check is Accepted,
// Refused or Busy; recent successes are remembered, so that a client sending the same credentials
// with every request pays for one verification, not one per request; and only a few
// verifications run at once, past which a check waits a bounded time and is then answered Busy.
#ifndef DIAGSERVER_AUTHENTICATOR_H
#define DIAGSERVER_AUTHENTICATOR_H

#include "server/CredentialCache.h"
#include "server/VerificationSlots.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace diagserver {

class Authenticator {
public:
    enum class Verdict { Accepted, Refused, Busy };

    struct Limits {
        // Successful verifications remembered (0: none), and for how long each.
        std::size_t cacheCapacity = 1024;
        std::chrono::seconds cacheLifetime{60};
        // Verifications running at once (0: no limit); how many more may wait for one to end,
        // and for how long each, before a check is answered Busy.
        unsigned concurrentVerifications = 1;
        unsigned waitingVerifications = 2;
        std::chrono::milliseconds verificationWait{2000};
        // The clock remembered successes expire by: steady_clock when empty.
        std::function<CredentialCache::Clock::time_point()> now;
    };

    virtual ~Authenticator();
    Authenticator(const Authenticator&) = delete;
    Authenticator& operator=(const Authenticator&) = delete;

    // Whether the password is the user's. Busy when no verification could be started in time.
    // For a refusal, why tells the log what more is known than "wrong credentials" (empty when
    // nothing); it never holds the password. Thread-safe.
    virtual Verdict check(const std::string& user, const std::string& password,
                          std::string& why) = 0;
    // The same for a client at `remoteHost` (its address; empty when not known), which a way of
    // checking may weigh; what it remembers then holds for that client only. The address is
    // ignored by default.
    virtual Verdict check(const std::string& user, const std::string& password,
                          const std::string& remoteHost, std::string& why);
    Verdict check(const std::string& user, const std::string& password);
    // check() == Accepted.
    bool verify(const std::string& user, const std::string& password);

protected:
    // Throws std::runtime_error when the cache can draw no key.
    explicit Authenticator(const Limits& limits);

    // Accepted at once when these credentials verified lately against this generation of what
    // they are checked against and `rememberable` says a remembered success may stand (false for
    // an unknown user: the cache is looked up anyway, so that such a user costs as much as
    // another). Otherwise runs `verified` in a turn of the verifications allowed at once (Busy
    // when none comes in time) and remembers a success under the generation given.
    Verdict rememberedOrVerified(const std::string& user, const std::string& password,
                                 std::uint64_t generation, bool rememberable,
                                 const std::function<bool()>& verified);
    // Forgets every remembered success.
    void forgetSuccesses();

private:
    CredentialCache cache_;
    VerificationSlots slots_;
};

} // namespace diagserver

#endif
