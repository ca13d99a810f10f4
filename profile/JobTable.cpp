#include "profile/JobTable.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace NQORVA20::profile {

JobTable::JobTable(const ProfileClock& clock, std::size_t maxEnded)
    : clock_(clock), maxEnded_(maxEnded) {}

void JobTable::purge() {
    const ProfileClock::Micros now = clock_.now();
    jobs_.erase(
        std::remove_if(jobs_.begin(), jobs_.end(),
                       [now](const std::shared_ptr<DiagJob>& job) { return job->expired(now); }),
        jobs_.end());
    // Each ended job's end read once; only the surplus of oldest ones is picked out, so that a
    // full table costs one pass per new job rather than a sort of all it keeps.
    std::vector<std::pair<ProfileClock::Micros, const DiagJob*>> ended;
    for (const auto& job : jobs_)
        if (job->ended())
            ended.emplace_back(job->endTime(), job.get());
    if (ended.size() <= maxEnded_)
        return;
    const std::size_t surplus = ended.size() - maxEnded_;
    std::nth_element(ended.begin(), ended.begin() + static_cast<std::ptrdiff_t>(surplus - 1),
                     ended.end());
    std::vector<const DiagJob*> oldest;
    oldest.reserve(surplus);
    for (std::size_t i = 0; i < surplus; ++i)
        oldest.push_back(ended[i].second);
    std::sort(oldest.begin(), oldest.end());
    jobs_.erase(std::remove_if(jobs_.begin(), jobs_.end(),
                               [&](const std::shared_ptr<DiagJob>& job) {
                                   return std::binary_search(oldest.begin(), oldest.end(),
                                                             job.get());
                               }),
                jobs_.end());
}

std::shared_ptr<DiagJob> JobTable::add(const std::string& idPrefix, DiagJob::Identity identity) {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    identity.instanceId = idPrefix + std::to_string(next_++);
    if (identity.name.empty())
        identity.name = identity.instanceId;
    auto job = std::make_shared<DiagJob>(std::move(identity), clock_);
    jobs_.push_back(job);
    return job;
}

std::shared_ptr<DiagJob> JobTable::find(const std::string& instanceId) {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    for (const auto& job : jobs_)
        if (job->identity().instanceId == instanceId)
            return job;
    return nullptr;
}

std::vector<std::shared_ptr<DiagJob>> JobTable::all() {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    return jobs_;
}

std::size_t JobTable::size() {
    std::lock_guard<std::mutex> lock(mutex_);
    purge();
    return jobs_.size();
}

} // namespace NQORVA20::profile
