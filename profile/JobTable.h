// The jobs of one provider module: filed when their run is asked for, found by InstanceID, and
// gone once expired. However their settings read, at most a fixed number of ended jobs are kept
// (the oldest to end goes first), so the table does not grow without bound. Thread-safe.
#ifndef DIAGPROFILE_JOBTABLE_H
#define DIAGPROFILE_JOBTABLE_H

#include "profile/DiagJob.h"
#include "profile/ProfileClock.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace NQORVA20::profile {

class JobTable {
public:
    explicit JobTable(const ProfileClock& clock, std::size_t maxEnded = 1000);

    // A new job, with an InstanceID of `idPrefix` and a number no job of this table had.
    std::shared_ptr<DiagJob> add(const std::string& idPrefix, DiagJob::Identity identity);
    // Null when there is no such job (or no more).
    std::shared_ptr<DiagJob> find(const std::string& instanceId);
    // Every job kept, oldest first.
    std::vector<std::shared_ptr<DiagJob>> all();
    std::size_t size();

private:
    void purge();

    const ProfileClock& clock_;
    const std::size_t maxEnded_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<DiagJob>> jobs_;
    unsigned long long next_ = 1;
};

} // namespace NQORVA20::profile

#endif
