// One provider call on the calling thread. Whatever the broker makes while this is the innermost
// open scope of the thread is released when the scope closes, unless it was cloned (clones live
// until released), as an object manager frees a call's objects when the call returns. Scopes
// nest: an upcall into another provider opens its own.
#ifndef DIAGCORE_HOST_CALLSCOPE_H
#define DIAGCORE_HOST_CALLSCOPE_H

#include <cstddef>

namespace NQORVA20::host {

class Broker;
class CallArena;

class CallScope {
public:
    explicit CallScope(Broker& broker);
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    // How many broker objects this scope owns right now.
    std::size_t ownedCount() const;

private:
    Broker& broker_;
    CallArena* arena_;
};

} // namespace NQORVA20::host

#endif
