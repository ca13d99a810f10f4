#include "host/testing/FaultInjector.h"

#include <limits>

namespace diaghost {

namespace {

std::size_t indexOf(FaultInjector::Function f) {
    return static_cast<std::size_t>(f);
}

} // namespace

void FaultInjector::failEvery(unsigned int n, std::initializer_list<Function> functions) {
    std::lock_guard<std::mutex> lock(mutex_);
    armed_.store(false, std::memory_order_release);
    for (auto& c : chosen_)
        c.store(false);
    for (auto& c : calls_)
        c.store(0);
    if (n == 0)
        return;
    for (Function f : functions)
        chosen_[indexOf(f)].store(true);
    mode_ = Mode::Every;
    every_ = n;
    armed_.store(true, std::memory_order_release);
}

void FaultInjector::failAtRandom(double probability, std::uint64_t seed,
                                 std::initializer_list<Function> functions) {
    std::lock_guard<std::mutex> lock(mutex_);
    armed_.store(false, std::memory_order_release);
    for (auto& c : chosen_)
        c.store(false);
    if (!(probability > 0.0))
        return;
    for (Function f : functions)
        chosen_[indexOf(f)].store(true);
    mode_ = Mode::Random;
    const double max = static_cast<double>(std::numeric_limits<std::uint64_t>::max());
    threshold_ = probability >= 1.0 ? std::numeric_limits<std::uint64_t>::max()
                                    : static_cast<std::uint64_t>(probability * max);
    random_.seed(seed);
    armed_.store(true, std::memory_order_release);
}

void FaultInjector::disarm() {
    std::lock_guard<std::mutex> lock(mutex_);
    armed_.store(false, std::memory_order_release);
}

bool FaultInjector::shouldFail(Function f) {
    if (!armed_.load(std::memory_order_acquire))
        return false;
    const std::size_t i = indexOf(f);
    if (!chosen_[i].load())
        return false;
    std::lock_guard<std::mutex> lock(mutex_);
    if (!armed_.load(std::memory_order_relaxed))
        return false;
    const std::uint64_t call = ++calls_[i];
    const bool fail = mode_ == Mode::Every ? call % every_ == 0 : random_() < threshold_;
    if (fail)
        ++failures_[i];
    return fail;
}

std::uint64_t FaultInjector::calls(Function f) const {
    return calls_[indexOf(f)].load();
}

std::uint64_t FaultInjector::failures(Function f) const {
    return failures_[indexOf(f)].load();
}

std::uint64_t FaultInjector::totalFailures() const {
    std::uint64_t total = 0;
    for (const auto& f : failures_)
        total += f.load();
    return total;
}

} // namespace diaghost
