#include "profile/JobTable.h"

#include <algorithm>

namespace NQORVA20::profile {

JobTable::JobTable(const ProfileClock& clock, std::size_t maxEnded)
    : clock_(clock), maxEnded_(maxEnded) {}

void JobTable::purge() {
    const ProfileClock::Micros now = clock_.now();
    jobs_.erase(
        std::remove_if(jobs_.begin(), jobs_.end(),
                       [now](const std::shared_ptr<DiagJob>& job) { return job->expired(now); }),
        jobs_.end());
    std::vector<std::shared_ptr<DiagJob>> ended;
    for (const auto& job : jobs_)
        if (job->ended())
            ended.push_back(job);
    if (ended.size() <= maxEnded_)
        return;
    std::sort(ended.begin(), ended.end(),
              [](const auto& a, const auto& b) { return a->endTime() < b->endTime(); });
    ended.resize(ended.size() - maxEnded_);
    jobs_.erase(std::remove_if(jobs_.begin(), jobs_.end(),
                               [&](const std::shared_ptr<DiagJob>& job) {
                                   return std::find(ended.begin(), ended.end(), job) != ended.end();
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
