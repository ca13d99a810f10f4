// One provider call on the calling thread. Whatever the broker makes while this is the innermost
// open scope of the thread is released when the scope closes, unless it was cloned (clones live
// until released), as an object manager frees a call's objects when the call returns. Scopes
// nest: an upcall into another provider opens its own.
#ifndef DIAGHOST_BROKER_CALLSCOPE_H
#define DIAGHOST_BROKER_CALLSCOPE_H

#include <cstddef>

namespace diaghost {

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

    // Where an object the broker makes right now on this thread goes: the innermost open scope
    // of this thread opened for that broker, or the broker's own arena when there is none.
    static CallArena& arenaFor(Broker& broker);
    // The innermost open scope's arena on this thread, whatever its broker; null when none.
    static CallArena* innermost();
    // Hands an encapsulated object the caller owns (a clone, made by this broker) to the calling
    // thread's current scope for the broker, as if the broker had just made it there. False,
    // changing nothing, for null, for objects of other origin and for objects someone owns.
    static bool adopt(Broker& broker, const void* object);

private:
    Broker& broker_;
    CallArena* arena_;
};

} // namespace diaghost

#endif
