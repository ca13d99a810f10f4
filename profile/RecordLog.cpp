#include "profile/RecordLog.h"

#include <limits>

namespace NQORVA20::profile {

RecordLog::RecordLog(std::size_t maxEntries, Overwrite policy, const ProfileClock& clock)
    : maxEntries_(maxEntries), policy_(policy), clock_(clock) {}

void RecordLog::erase(Sequence sequence) const {
    auto it = entries_.find(sequence);
    if (it == entries_.end())
        return;
    const Entry& entry = it->second;
    if (entry.expires)
        expiries_.erase({*entry.expires, sequence});
    ids_.erase(entry.id);
    entries_.erase(it);
}

void RecordLog::purge() const {
    const ProfileClock::Micros now = clock_.now();
    while (!expiries_.empty() && expiries_.begin()->first <= now) {
        const Sequence sequence = expiries_.begin()->second;
        // Taken off the queue before the entry goes, so the loop always moves on.
        expiries_.erase(expiries_.begin());
        erase(sequence);
    }
}

bool RecordLog::hasRoom() const {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    return policy_ == Overwrite::Wraps || entries_.size() < maxEntries_;
}

bool RecordLog::add(Entry entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    const ProfileClock::Micros now = clock_.now();
    if (entry.expires && *entry.expires <= now)
        return true;
    if (auto same = ids_.find(entry.id); same != ids_.end())
        erase(same->second);
    if (entries_.size() >= maxEntries_) {
        if (policy_ == Overwrite::Never)
            return false;
        // Wraps: drop the oldest until there is room; a log of no entries keeps nothing.
        while (!entries_.empty() && entries_.size() >= maxEntries_)
            erase(entries_.begin()->first);
        if (maxEntries_ == 0)
            return true;
    }
    if (entry.created == 0)
        entry.created = now;
    const Sequence sequence = next_++;
    if (entry.expires)
        expiries_.insert({*entry.expires, sequence});
    ids_.emplace(entry.id, sequence);
    entries_.emplace(sequence, std::move(entry));
    return true;
}

std::vector<RecordLog::Entry> RecordLog::entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    std::vector<Entry> out;
    out.reserve(entries_.size());
    for (const auto& [sequence, entry] : entries_)
        out.push_back(entry);
    return out;
}

std::optional<RecordLog::Entry> RecordLog::find(const std::string& id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    auto it = ids_.find(id);
    if (it == ids_.end())
        return std::nullopt;
    return entries_.at(it->second);
}

std::size_t RecordLog::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    return entries_.size();
}

void RecordLog::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
    ids_.clear();
    expiries_.clear();
}

RecordLog::Footprint RecordLog::footprint() const {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    return Footprint{entries_.size(), ids_.size(), expiries_.size()};
}

bool RecordLog::kept(std::uint32_t resultPersistence) {
    return resultPersistence != 0;
}

std::optional<ProfileClock::Micros> RecordLog::expiryFor(std::uint32_t resultPersistence,
                                                         ProfileClock::Micros now) {
    if (resultPersistence == keepUntilCleared)
        return std::nullopt;
    const ProfileClock::Micros length =
        static_cast<ProfileClock::Micros>(resultPersistence) * ProfileClock::second;
    // Saturates rather than wrapping for a clock set near the end of its range.
    if (now > std::numeric_limits<ProfileClock::Micros>::max() - length)
        return std::numeric_limits<ProfileClock::Micros>::max();
    return now + length;
}

} // namespace NQORVA20::profile
