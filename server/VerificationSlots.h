// Bounds how many costly credential verifications run at once. Past the limit a few callers may
// wait a bounded time for a turn and the rest are turned away at once, so that a flood of
// requests needing a verification holds a bounded number of threads and cores. Thread-safe.
#ifndef DIAGSERVER_VERIFICATIONSLOTS_H
#define DIAGSERVER_VERIFICATIONSLOTS_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace diagserver {

class VerificationSlots {
public:
    // A turn taken by take(), given back when it is destroyed; false when none came.
    class Turn {
    public:
        Turn() = default;
        Turn(Turn&& other) noexcept;
        ~Turn();
        explicit operator bool() const { return slots_ != nullptr || unbounded_; }

    private:
        friend class VerificationSlots;
        Turn(VerificationSlots* slots, bool unbounded) : slots_(slots), unbounded_(unbounded) {}
        VerificationSlots* slots_ = nullptr;
        bool unbounded_ = false;
    };

    // limit: verifications at once (0: no limit, and nobody waits); waiters: how many callers may
    // wait while all are taken; wait: how long each of them may.
    VerificationSlots(unsigned limit, unsigned waiters, std::chrono::milliseconds wait);
    VerificationSlots(const VerificationSlots&) = delete;
    VerificationSlots& operator=(const VerificationSlots&) = delete;

    // A turn at once when one is free; otherwise, when fewer than `waiters` are waiting already,
    // the first freed within `wait`. An empty Turn when none came.
    Turn take();

private:
    void release();

    const unsigned limit_;
    const unsigned waiters_;
    const std::chrono::milliseconds wait_;
    std::mutex mutex_;
    std::condition_variable freed_;
    unsigned running_ = 0;
    unsigned waiting_ = 0;
};

} // namespace diagserver

#endif
