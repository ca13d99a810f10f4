#include "common/ProviderScope.h"

namespace NQORVA20 {

namespace {

thread_local const void* currentProvider = nullptr;
thread_local ProviderScope::UpcallListener* runningStartup = nullptr;
thread_local const void* startingProvider = nullptr;

} // namespace

void ProviderScope::enter(const void* provider) noexcept {
    currentProvider = provider;
}

const void* ProviderScope::current() noexcept {
    return currentProvider;
}

const void* ProviderScope::owner() noexcept {
    return startingProvider != nullptr ? startingProvider : currentProvider;
}

ProviderScope::StartupUpcall::StartupUpcall(std::string className) noexcept
    : listener_(runningStartup), className_(std::move(className)) {
    if (listener_ != nullptr)
        listener_->upcallBegins(className_);
}

ProviderScope::StartupUpcall::~StartupUpcall() {
    if (listener_ != nullptr)
        listener_->upcallEnds(className_);
}

ProviderScope::RunningStartup::RunningStartup(UpcallListener& listener,
                                              const void* provider) noexcept
    : previous_(runningStartup), previousProvider_(startingProvider) {
    runningStartup = &listener;
    startingProvider = provider;
}

ProviderScope::RunningStartup::~RunningStartup() {
    runningStartup = previous_;
    startingProvider = previousProvider_;
}

} // namespace NQORVA20
