#include "host/broker/CallScope.h"

#include "host/broker/Broker.h"
#include "host/broker/CallArena.h"
#include "host/broker/HostObject.h"
#include "host/memory/ScopeMemory.h"

namespace diaghost {

namespace {
thread_local CallArena* tInnermost = nullptr;
}

CallScope::CallScope(Broker& broker)
    : broker_(broker), arena_(new CallArena(broker_, false, tInnermost)) {
    tInnermost = arena_;
    ScopeMemory::scopeOpened();
}

CallScope::~CallScope() {
    if (tInnermost == arena_) {
        tInnermost = arena_->outer();
    } else {
        // Closed out of order: take it out of the chain wherever it is.
        for (CallArena* a = tInnermost; a; a = a->outer()) {
            if (a->outer() == arena_) {
                a->setOuter(arena_->outer());
                break;
            }
        }
    }
    delete arena_;
    ScopeMemory::scopeClosed();
}

std::size_t CallScope::ownedCount() const {
    return arena_->size();
}

CallArena& CallScope::arenaFor(Broker& broker) {
    for (CallArena* a = tInnermost; a; a = a->outer()) {
        if (&a->broker() == &broker)
            return *a;
    }
    return broker.ownArena();
}

CallArena* CallScope::innermost() {
    return tInnermost;
}

bool CallScope::adopt(Broker& broker, const void* object) {
    HostObject* o = HostObject::fromCmpi(object);
    if (!o || &o->broker() != &broker || o->owner() != HostObject::Owner::Nobody)
        return false;
    if (o->kind() == HostObject::Kind::Block || o->kind() == HostObject::Kind::Mark)
        return false;
    arenaFor(broker).adopt(o);
    return true;
}

} // namespace diaghost
