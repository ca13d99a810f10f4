#include "server/CredentialCache.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

#include <algorithm>
#include <stdexcept>
#include <string.h>

namespace diagserver {

namespace {

// Time independent of where, or whether, the digests differ.
bool sameDigest(const std::array<unsigned char, 32>& a, const std::array<unsigned char, 32>& b) {
    unsigned char diff = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    return diff == 0;
}

} // namespace

CredentialCache::CredentialCache(std::size_t capacity, Clock::duration lifetime,
                                 std::function<Clock::time_point()> now)
    : capacity_(capacity), lifetime_(lifetime), clock_(std::move(now)) {
    if (gnutls_rnd(GNUTLS_RND_KEY, key_, sizeof key_) != 0)
        throw std::runtime_error("no random key could be drawn for the credential cache");
}

CredentialCache::~CredentialCache() {
    explicit_bzero(key_, sizeof key_);
}

CredentialCache::Clock::time_point CredentialCache::now() const {
    return clock_ ? clock_() : Clock::now();
}

CredentialCache::Digest CredentialCache::digestOf(const std::string& user,
                                                  const std::string& password) const {
    // "USER\0PASSWORD": a user name holds no NUL, so no two pairs give the same text.
    std::string text;
    text.reserve(user.size() + 1 + password.size());
    text.append(user).push_back('\0');
    text.append(password);
    Digest digest{};
    const int rc = gnutls_hmac_fast(GNUTLS_MAC_SHA256, key_, sizeof key_, text.data(), text.size(),
                                    digest.data());
    explicit_bzero(text.data(), text.size());
    if (rc != 0)
        throw std::runtime_error(std::string("HMAC-SHA256 failed: ") + gnutls_strerror(rc));
    return digest;
}

void CredentialCache::prune(Clock::time_point now) {
    entries_.erase(
        std::remove_if(entries_.begin(), entries_.end(),
                       [&](const Entry& e) { return e.generation < newest_ || e.expires <= now; }),
        entries_.end());
}

bool CredentialCache::contains(const std::string& user, const std::string& password,
                               std::uint64_t generation) {
    if (capacity_ == 0)
        return false;
    const Digest digest = digestOf(user, password);
    const Clock::time_point at = now();
    std::lock_guard<std::mutex> lock(mutex_);
    if (generation < newest_)
        return false;
    newest_ = generation;
    prune(at);
    unsigned found = 0;
    for (const Entry& e : entries_)
        found |= static_cast<unsigned>(sameDigest(e.digest, digest)) &
                 static_cast<unsigned>(e.user == user);
    return found != 0;
}

void CredentialCache::insert(const std::string& user, const std::string& password,
                             std::uint64_t generation) {
    if (capacity_ == 0)
        return;
    const Digest digest = digestOf(user, password);
    const Clock::time_point at = now();
    std::lock_guard<std::mutex> lock(mutex_);
    if (generation < newest_)
        return;
    newest_ = generation;
    prune(at);
    // Stored again, the credentials move to the back with a new expiry.
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& e) { return sameDigest(e.digest, digest); }),
                   entries_.end());
    while (entries_.size() >= capacity_)
        entries_.pop_front();
    entries_.push_back(Entry{digest, user, generation, at + lifetime_});
}

void CredentialCache::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

std::size_t CredentialCache::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}

} // namespace diagserver
