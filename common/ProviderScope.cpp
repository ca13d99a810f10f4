#include "common/ProviderScope.h"

namespace NQORVA20 {

namespace {

thread_local const void* currentProvider = nullptr;
thread_local ProviderScope::UpcallListener* runningStartup = nullptr;

} // namespace

void ProviderScope::enter(const void* provider) noexcept {
    currentProvider = provider;
}

const void* ProviderScope::current() noexcept {
    return currentProvider;
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

ProviderScope::RunningStartup::RunningStartup(UpcallListener& listener) noexcept
    : previous_(runningStartup) {
    runningStartup = &listener;
}

ProviderScope::RunningStartup::~RunningStartup() {
    runningStartup = previous_;
}

} // namespace NQORVA20
