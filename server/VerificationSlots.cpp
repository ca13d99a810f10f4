#include "server/VerificationSlots.h"

#include <utility>

namespace diagserver {

VerificationSlots::Turn::Turn(Turn&& other) noexcept
    : slots_(std::exchange(other.slots_, nullptr)),
      unbounded_(std::exchange(other.unbounded_, false)) {}

VerificationSlots::Turn::~Turn() {
    if (slots_)
        slots_->release();
}

VerificationSlots::VerificationSlots(unsigned limit, unsigned waiters,
                                     std::chrono::milliseconds wait)
    : limit_(limit), waiters_(waiters), wait_(wait) {}

VerificationSlots::Turn VerificationSlots::take() {
    // Without a limit nothing is counted, but the turn still tells it was given.
    if (limit_ == 0)
        return Turn(nullptr, true);
    std::unique_lock<std::mutex> lock(mutex_);
    if (running_ < limit_) {
        ++running_;
        return Turn(this, false);
    }
    if (waiting_ >= waiters_)
        return Turn();
    ++waiting_;
    const bool freed = freed_.wait_for(lock, wait_, [&] { return running_ < limit_; });
    --waiting_;
    if (!freed)
        return Turn();
    ++running_;
    return Turn(this, false);
}

void VerificationSlots::release() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        --running_;
    }
    freed_.notify_one();
}

} // namespace diagserver
