#include "server/Authenticator.h"

namespace diagserver {

Authenticator::Authenticator(const Limits& limits)
    : cache_(limits.cacheCapacity, limits.cacheLifetime, limits.now),
      slots_(limits.concurrentVerifications, limits.waitingVerifications, limits.verificationWait) {
}

Authenticator::~Authenticator() = default;

Authenticator::Verdict Authenticator::check(const std::string& user, const std::string& password) {
    std::string why;
    return check(user, password, why);
}

Authenticator::Verdict Authenticator::check(const std::string& user, const std::string& password,
                                            const std::string&, std::string& why) {
    return check(user, password, why);
}

bool Authenticator::verify(const std::string& user, const std::string& password) {
    return check(user, password) == Verdict::Accepted;
}

Authenticator::Verdict Authenticator::rememberedOrVerified(const std::string& user,
                                                           const std::string& password,
                                                           std::uint64_t generation,
                                                           bool rememberable,
                                                           const std::function<bool()>& verified) {
    const bool remembered = cache_.contains(user, password, generation);
    if (rememberable && remembered)
        return Verdict::Accepted;
    bool ok = false;
    {
        const VerificationSlots::Turn turn = slots_.take();
        if (!turn)
            return Verdict::Busy;
        ok = verified();
    }
    // Remembered under the generation read before verifying: had the source changed meanwhile,
    // the entry is already dead.
    if (ok)
        cache_.insert(user, password, generation);
    return ok ? Verdict::Accepted : Verdict::Refused;
}

void Authenticator::forgetSuccesses() {
    cache_.clear();
}

} // namespace diagserver
