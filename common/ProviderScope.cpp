#include "common/ProviderScope.h"

namespace NQORVA20 {

namespace {

thread_local const void* currentProvider = nullptr;
thread_local std::atomic<int>* startupUpcalls = nullptr;

} // namespace

void ProviderScope::enter(const void* provider) noexcept {
    currentProvider = provider;
}

const void* ProviderScope::current() noexcept {
    return currentProvider;
}

ProviderScope::StartupUpcall::StartupUpcall() noexcept : counter_(startupUpcalls) {
    if (counter_ != nullptr)
        counter_->fetch_add(1);
}

ProviderScope::StartupUpcall::~StartupUpcall() {
    if (counter_ != nullptr)
        counter_->fetch_sub(1);
}

ProviderScope::RunningStartup::RunningStartup(std::atomic<int>& upcalls) noexcept
    : previous_(startupUpcalls) {
    startupUpcalls = &upcalls;
}

ProviderScope::RunningStartup::~RunningStartup() {
    startupUpcalls = previous_;
}

} // namespace NQORVA20
