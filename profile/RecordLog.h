// The records of a diagnostic service's runs, one entry a run: its completion record and the
// setting-data record it ran with. Holds at most a fixed number of entries (when full, either the
// oldest makes room or new ones are refused) and forgets each entry at its expiry time, so neither
// a long life nor a flood of runs makes it grow. Thread-safe; reads return copies.
#ifndef DIAGPROFILE_RECORDLOG_H
#define DIAGPROFILE_RECORDLOG_H

#include "profile/ProfileClock.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace NQORVA20::profile {

class RecordLog {
public:
    using Properties = std::map<std::string, std::string>; // CIM property name -> value text

    struct Entry {
        // The key the entry is found by (the completion record's InstanceID).
        std::string id;
        // When the run's records were filed; add() stamps the clock's now() when left at 0.
        ProfileClock::Micros created = 0;
        // The entry is gone from every read once the clock reaches this; none: kept until
        // cleared (or pushed out by newer entries).
        std::optional<ProfileClock::Micros> expires;
        Properties completion;
        Properties setting;
        std::string elementPath; // object-path text of the element the run tested
        std::string jobId;       // InstanceID of the run's job
    };

    enum class Overwrite {
        Wraps, // a full log drops its oldest entry to take a new one
        Never, // a full log refuses new entries
    };

    // What the log holds internally, counted per container: each stays at or below maxEntries().
    struct Footprint {
        std::size_t entries = 0;
        std::size_t ids = 0;
        std::size_t expiries = 0;
    };

    RecordLog(std::size_t maxEntries, Overwrite policy, const ProfileClock& clock);

    // Whether a new run's entry would be taken: false only when the log is full and never
    // overwrites (the caller then answers Busy before starting the run).
    bool hasRoom() const;
    // Files an entry. A full Wraps log first drops its oldest entry; a full Never log refuses
    // (returns false) and keeps nothing of it. An entry whose expiry is already at or before now
    // (a ResultPersistence of 0) is accepted and not stored, and pushes nothing out. An entry
    // with the id of one already held takes its place and becomes the newest.
    bool add(Entry entry);
    // Every unexpired entry, oldest first.
    std::vector<Entry> entries() const;
    // The unexpired entry of that id; none when there is no such entry (or no more).
    std::optional<Entry> find(const std::string& id) const;
    // How many unexpired entries there are.
    std::size_t size() const;
    // Drops every entry (ClearLog).
    void clear();

    std::size_t maxEntries() const { return maxEntries_; }
    Overwrite policy() const { return policy_; }
    Footprint footprint() const;

    // Whether a run with this ResultPersistence leaves an entry at all: 0 means it does not.
    static bool kept(std::uint32_t resultPersistence);
    // The expiry of an entry filed at `now` with this ResultPersistence (seconds): none for
    // 0xFFFFFFFF (kept until cleared), now itself for 0 (already expired: add() stores nothing),
    // else now plus that many seconds.
    static std::optional<ProfileClock::Micros> expiryFor(std::uint32_t resultPersistence,
                                                         ProfileClock::Micros now);

    static constexpr std::uint32_t keepUntilCleared = 0xFFFFFFFFu;

private:
    using Sequence = std::uint64_t;

    // Removes every entry whose expiry is at or before now; costs only what it removes.
    void purge() const;
    void erase(Sequence sequence) const;

    const std::size_t maxEntries_;
    const Overwrite policy_;
    const ProfileClock& clock_;

    mutable std::mutex mutex_;
    // Entries by the order they were filed in (the first is the oldest).
    mutable std::map<Sequence, Entry> entries_;
    mutable std::unordered_map<std::string, Sequence> ids_;
    // The entries that expire, by expiry time: purging stops at the first one still due later.
    mutable std::set<std::pair<ProfileClock::Micros, Sequence>> expiries_;
    Sequence next_ = 0;
};

} // namespace NQORVA20::profile

#endif
