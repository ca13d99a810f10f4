#include "host/broker/CallArena.h"

#include "host/broker/HostObject.h"

namespace diaghost {

namespace {

// A cut in an arena: never handed out as a CMPI object, only as the opaque mark of the memory
// functions.
class ArenaMark final : public HostObject {
public:
    explicit ArenaMark(Broker& broker) : HostObject(Kind::Mark, broker) {}
    HostObject* copy() const override { return nullptr; }
};

} // namespace

CallArena::CallArena(Broker& broker, bool shared, CallArena* outer)
    : broker_(&broker), outer_(outer), shared_(shared) {}

CallArena::~CallArena() {
    clear();
}

std::unique_lock<std::mutex> CallArena::lock() const {
    return shared_ ? std::unique_lock<std::mutex>(mutex_) : std::unique_lock<std::mutex>();
}

void CallArena::adopt(HostObject* object) {
    auto guard = lock();
    object->arena_ = this;
    object->owner_ = HostObject::Owner::Arena;
    object->prev_ = tail_;
    object->next_ = nullptr;
    if (tail_)
        tail_->next_ = object;
    else
        head_ = object;
    tail_ = object;
    if (object->kind() != HostObject::Kind::Mark)
        ++count_;
}

void CallArena::unlink(HostObject* object) {
    if (object->prev_)
        object->prev_->next_ = object->next_;
    else
        head_ = object->next_;
    if (object->next_)
        object->next_->prev_ = object->prev_;
    else
        tail_ = object->prev_;
    object->prev_ = object->next_ = nullptr;
    object->arena_ = nullptr;
    object->owner_ = HostObject::Owner::Nobody;
    if (object->kind() != HostObject::Kind::Mark)
        --count_;
}

void CallArena::release(HostObject* object) {
    {
        auto guard = lock();
        unlink(object);
    }
    delete object;
}

void CallArena::detach(HostObject* object) {
    auto guard = lock();
    unlink(object);
}

void* CallArena::mark() {
    HostObject* m = new ArenaMark(*broker_);
    adopt(m);
    return m;
}

bool CallArena::releaseTo(const void* mark) {
    HostObject* first = nullptr;
    {
        auto guard = lock();
        HostObject* at = tail_;
        while (at && at != mark)
            at = at->prev_;
        if (!at || at->kind() != HostObject::Kind::Mark)
            return false;
        first = at;
        // Cut the chain before the mark; everything from the mark on leaves the arena.
        tail_ = first->prev_;
        if (tail_)
            tail_->next_ = nullptr;
        else
            head_ = nullptr;
        first->prev_ = nullptr;
        for (HostObject* o = first; o; o = o->next_) {
            o->arena_ = nullptr;
            o->owner_ = HostObject::Owner::Nobody;
            if (o->kind() != HostObject::Kind::Mark)
                --count_;
        }
    }
    destroyChain(first);
    return true;
}

std::size_t CallArena::size() const {
    auto guard = lock();
    return count_;
}

void CallArena::clear() {
    HostObject* last = nullptr;
    {
        auto guard = lock();
        last = tail_;
        if (shared_) {
            // Other threads may release these objects: from now on they see them owned by nobody.
            for (HostObject* o = head_; o; o = o->next_) {
                o->arena_ = nullptr;
                o->owner_ = HostObject::Owner::Nobody;
            }
        }
        head_ = tail_ = nullptr;
        count_ = 0;
    }
    // One pass, newest first: later objects may refer to earlier ones, never the other way round.
    while (last) {
        HostObject* before = last->prev_;
        last->arena_ = nullptr;
        last->owner_ = HostObject::Owner::Nobody;
        delete last;
        last = before;
    }
}

void CallArena::destroyChain(HostObject* first) {
    if (!first)
        return;
    HostObject* last = first;
    while (last->next_)
        last = last->next_;
    // Newest first: later objects may refer to earlier ones, never the other way round.
    while (last) {
        HostObject* before = last->prev_;
        delete last;
        last = before;
    }
}

} // namespace diaghost
