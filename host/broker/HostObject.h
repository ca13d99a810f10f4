// Base of every object the broker hands out through a CMPI function table (strings, arrays,
// instances, paths, ...). It records who owns the object: a call arena (freed when the call's
// scope closes), the object containing it (freed with that object), or nobody (a clone, freed
// when released). It also remembers the broker that made it, for the objects it makes in turn.
#ifndef DIAGHOST_BROKER_HOSTOBJECT_H
#define DIAGHOST_BROKER_HOSTOBJECT_H

#include "host/memory/ObjectPool.h"

#include <cstddef>
#include <cstdint>

namespace diaghost {

class Broker;
class CallArena;

class HostObject {
public:
    enum class Kind : std::uint8_t {
        String,
        Array,
        DateTime,
        ObjectPath,
        Instance,
        Args,
        Enumeration,
        Context,
        Error,
        Block, // memory from cmpiMalloc
        Mark   // a memory mark
    };
    enum class Owner : std::uint8_t { Nobody, Arena, Parent };
    // Where a newly made object goes.
    enum class Placement : std::uint8_t {
        Scope,  // the calling thread's innermost open scope of the broker (or the broker itself)
        Nobody, // the caller, who must release it
        Parent  // the object that will contain it
    };

    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;
    virtual ~HostObject() = default;

    // Objects come from the broker's recycled memory; the virtual destructor hands the block back
    // with the size of the object's own class.
    static void* operator new(std::size_t size) { return ObjectPool::allocate(size); }
    static void* operator new(std::size_t, void* where) noexcept { return where; }
    static void operator delete(void* block, std::size_t size) noexcept {
        ObjectPool::deallocate(block, size);
    }

    Kind kind() const { return kind_; }
    Owner owner() const { return owner_; }
    Broker& broker() const { return *broker_; }
    CallArena* arena() const { return arena_; }

    // Hands an object owned by nobody to its new owner.
    void place(Placement where);
    // What CMRelease does: frees an object owned by nobody or by an arena (leaving the arena);
    // a part of another object stays, as it is freed with its container. An object of a call
    // scope is released on that scope's thread, as scopes take no locks.
    void release();
    // A deep copy owned by nobody; null for kinds that cannot be copied (blocks, marks).
    virtual HostObject* copy() const = 0;
    // The CMPI struct ({hdl, ft}) the object is known by to providers; null for blocks and marks.
    virtual void* cmpiObject() { return nullptr; }

    // The host object behind any CMPI encapsulated object (anything laid out as {hdl, ft}) made
    // by a broker of this host; null for null and for objects of other origin.
    static HostObject* fromCmpi(const void* object);
    // The CMPI type name of a kind ("CMPIInstance", ...).
    static const char* typeName(Kind kind);

protected:
    HostObject(Kind kind, Broker& broker) : broker_(&broker), kind_(kind) {}

private:
    friend class CallArena;

    Broker* broker_;
    CallArena* arena_ = nullptr;
    HostObject* prev_ = nullptr;
    HostObject* next_ = nullptr;
    Kind kind_;
    Owner owner_ = Owner::Nobody;
};

} // namespace diaghost

#endif
