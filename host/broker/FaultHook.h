// Where a broker asks whether one of its own functions is to fail on purpose. The broker holds at
// most one hook and asks it at the top of each function listed here; without a hook (the normal
// case) asking costs one atomic load. Tests attach an injector to see how providers cope with an
// object manager that runs out of resources.
#ifndef DIAGHOST_BROKER_FAULTHOOK_H
#define DIAGHOST_BROKER_FAULTHOOK_H

#include <cstddef>

namespace diaghost {

class FaultHook {
public:
    enum class Function {
        NewInstance,
        NewObjectPath,
        NewString,
        NewArray,
        GetProperty,
        EnumerateInstances,
        Clone,
    };
    static constexpr std::size_t functionCount = 7;

    virtual ~FaultHook() = default;
    // True when this call of f is to fail; called from any thread.
    virtual bool shouldFail(Function f) = 0;

    // The broker function's CMPI name ("newInstance", ...).
    static const char* name(Function f);
};

} // namespace diaghost

#endif
