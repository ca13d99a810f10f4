// For tests: makes chosen broker functions fail on purpose, to see how providers cope with an
// object manager that runs out of resources: an armed function answers null (or no data) with
// CMPI_RC_ERR_FAILED and the message "injected fault: <function>", either on every Nth call
// counted per function or at random with a fixed seed. Disarmed (the default) it costs one atomic
// load per call. Safe to arm, disarm and consult from several threads at once.
#ifndef DIAGHOST_TESTING_FAULTINJECTOR_H
#define DIAGHOST_TESTING_FAULTINJECTOR_H

#include "host/broker/FaultHook.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <random>

namespace diaghost {

class FaultInjector : public FaultHook {
public:
    FaultInjector() = default;
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;

    // The chosen functions fail on their Nth, 2Nth, ... call from now on (n of 0 disarms).
    void failEvery(unsigned int n, std::initializer_list<Function> functions);
    // Each call of a chosen function fails with the given probability (0 to 1), drawn from a
    // generator seeded with seed.
    void failAtRandom(double probability, std::uint64_t seed,
                      std::initializer_list<Function> functions);
    // Every function works again; the counters keep their values.
    void disarm();
    bool armed() const { return armed_.load(std::memory_order_acquire); }

    // Asked by the broker on each call of f: true when this call is to fail.
    bool shouldFail(Function f) override;

    // Calls of f seen while armed, and the failures injected into them.
    std::uint64_t calls(Function f) const;
    std::uint64_t failures(Function f) const;
    std::uint64_t totalFailures() const;

private:
    enum class Mode { Every, Random };

    std::atomic<bool> armed_{false};
    std::array<std::atomic<bool>, functionCount> chosen_{};
    std::array<std::atomic<std::uint64_t>, functionCount> calls_{};
    std::array<std::atomic<std::uint64_t>, functionCount> failures_{};
    std::mutex mutex_; // guards the settings below and the generator
    Mode mode_ = Mode::Every;
    unsigned int every_ = 0;
    std::uint64_t threshold_ = 0; // a draw below this fails
    std::mt19937_64 random_;
};

} // namespace diaghost

#endif
