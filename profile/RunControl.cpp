#include "profile/RunControl.h"

namespace NQORVA20::profile {

namespace {

thread_local const RunControl* currentControl = nullptr;

} // namespace

RunControl::RunControl(StopCheck stop, ProgressSink progress, bool quickMode, unsigned coverage)
    : stop_(std::move(stop)), progress_(std::move(progress)), quickMode_(quickMode),
      coverage_(coverage) {}

const RunControl& RunControl::current() {
    static const RunControl none;
    return currentControl != nullptr ? *currentControl : none;
}

RunControl::Scope::Scope(const RunControl& control) : previous_(currentControl) {
    currentControl = &control;
}

RunControl::Scope::~Scope() {
    currentControl = previous_;
}

} // namespace NQORVA20::profile
