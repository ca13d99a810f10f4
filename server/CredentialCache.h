// Recent successful password verifications, so that a client sending the same Basic credentials
// with every request pays for one crypt(3) verification, not one per request. Neither the
// password nor anything it could be checked against offline is kept: an entry is known by the
// HMAC-SHA256 of "USER\0PASSWORD" under a key drawn at random for this object and never written
// anywhere. An entry belongs to one generation of the password file and dies when a newer one is
// asked about or stored, and at its expiry; past the capacity the oldest entry goes. Thread-safe.
#ifndef DIAGSERVER_CREDENTIALCACHE_H
#define DIAGSERVER_CREDENTIALCACHE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace diagserver {

class CredentialCache {
public:
    using Clock = std::chrono::steady_clock;

    // capacity 0 remembers nothing. now: the clock expiry is read from (steady_clock when
    // empty). Throws std::runtime_error when no random key can be drawn.
    CredentialCache(std::size_t capacity, Clock::duration lifetime,
                    std::function<Clock::time_point()> now = {});
    // Wipes the key.
    ~CredentialCache();
    CredentialCache(const CredentialCache&) = delete;
    CredentialCache& operator=(const CredentialCache&) = delete;

    // Whether these credentials were stored for this generation and have not expired. Every
    // entry is compared, each in constant time, so the answer takes as long wherever (and
    // whether) a match lies.
    bool contains(const std::string& user, const std::string& password, std::uint64_t generation);
    // Remembers credentials that were just verified against this generation of the file; an
    // older generation than one already seen is not stored.
    void insert(const std::string& user, const std::string& password, std::uint64_t generation);
    // Forgets every entry.
    void clear();
    // Entries held, expired ones not yet dropped included.
    std::size_t size() const;
    std::size_t capacity() const { return capacity_; }

private:
    using Digest = std::array<unsigned char, 32>;
    struct Entry {
        Digest digest;
        std::string user;
        std::uint64_t generation;
        Clock::time_point expires;
    };

    Digest digestOf(const std::string& user, const std::string& password) const;
    // Drops expired entries and those of generations before the newest seen; mutex_ held.
    void prune(Clock::time_point now);
    Clock::time_point now() const;

    const std::size_t capacity_;
    const Clock::duration lifetime_;
    const std::function<Clock::time_point()> clock_;
    unsigned char key_[32];
    mutable std::mutex mutex_;
    std::uint64_t newest_ = 0;
    // Oldest first.
    std::deque<Entry> entries_;
};

} // namespace diagserver

#endif
