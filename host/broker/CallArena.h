// The objects one owner holds on behalf of a broker: a call scope's objects, or the broker's own
// for objects made outside any call. Objects join when made and leave when released early or
// when the arena is cleared or destroyed, newest first. Marks cut the arena so that everything
// made after the mark can be freed at once. A scope's arena is used by its own thread only and
// takes no lock; a shared arena (the broker's) guards itself with a mutex.
#ifndef DIAGHOST_BROKER_CALLARENA_H
#define DIAGHOST_BROKER_CALLARENA_H

#include <cstddef>
#include <mutex>

namespace diaghost {

class Broker;
class HostObject;

class CallArena {
public:
    CallArena(Broker& broker, bool shared, CallArena* outer = nullptr);
    ~CallArena();
    CallArena(const CallArena&) = delete;
    CallArena& operator=(const CallArena&) = delete;

    Broker& broker() const { return *broker_; }
    // The arena of the scope that was innermost when this one opened.
    CallArena* outer() const { return outer_; }
    void setOuter(CallArena* outer) { outer_ = outer; }

    // Takes an object owned by nobody.
    void adopt(HostObject* object);
    // Removes an object of this arena and frees it.
    void release(HostObject* object);
    // Removes an object of this arena without freeing it; it is then owned by nobody.
    void detach(HostObject* object);

    // A new mark at the end of the arena.
    void* mark();
    // Frees everything made since `mark` and the mark itself; false (nothing freed) when the mark
    // is not in this arena.
    bool releaseTo(const void* mark);

    // The objects held, marks not counted.
    std::size_t size() const;
    // Frees everything, newest first.
    void clear();

private:
    std::unique_lock<std::mutex> lock() const;
    void unlink(HostObject* object);
    static void destroyChain(HostObject* first);

    Broker* broker_;
    CallArena* outer_;
    bool shared_;
    mutable std::mutex mutex_;
    HostObject* head_ = nullptr;
    HostObject* tail_ = nullptr;
    std::size_t count_ = 0;
};

} // namespace diaghost

#endif
