#include "host/broker/MemoryServices.h"

#include "host/broker/Broker.h"
#include "host/broker/CallArena.h"
#include "host/broker/CallScope.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/HostObject.h"

#include <cstring>
#include <cxxabi.h>
#include <limits>
#include <new>

namespace diaghost {

namespace {

// A block from cmpiMalloc: this header, then the caller's bytes at a 16-byte boundary.
class MemoryBlock final : public HostObject {
public:
    static constexpr unsigned magicValue = 0x6d656d62; // "memb"

    static MemoryBlock* create(Broker& broker, std::size_t size) {
        if (size > std::numeric_limits<std::size_t>::max() - headerSize())
            return nullptr;
        void* raw = ::operator new(headerSize() + size, std::nothrow);
        if (!raw)
            return nullptr;
        return new (raw) MemoryBlock(broker, size);
    }
    static constexpr std::size_t headerSize() { return (sizeof(MemoryBlock) + 15) & ~15u; }
    static MemoryBlock* fromData(void* data) {
        auto* block = reinterpret_cast<MemoryBlock*>(static_cast<char*>(data) - headerSize());
        return block->magic_ == magicValue ? block : nullptr;
    }

    void* data() { return reinterpret_cast<char*>(this) + headerSize(); }
    std::size_t size() const { return size_; }
    HostObject* copy() const override { return nullptr; }
    ~MemoryBlock() override { magic_ = 0; }

    static void operator delete(void* p) { ::operator delete(p); }

private:
    MemoryBlock(Broker& broker, std::size_t size)
        : HostObject(Kind::Block, broker), size_(size), magic_(magicValue) {}

    std::size_t size_;
    unsigned magic_;
};

// Runs body; no exception leaves (these functions have no status to report one in).
template <class R, class Body>
R quietly(R fallback, Body&& body) {
    try {
        return body();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return fallback;
    }
}

void* allocate(Broker& broker, std::size_t size) {
    MemoryBlock* block = MemoryBlock::create(broker, size);
    if (!block)
        return nullptr;
    try {
        CallScope::arenaFor(broker).adopt(block);
    } catch (...) {
        delete block;
        throw;
    }
    return block->data();
}

CMPIGcStat* mark(const CMPIBroker* mb, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIGcStat*>(nullptr), [&]() -> CMPIGcStat* {
        Broker* b = Broker::from(mb);
        if (!b) {
            CmpiCall::set(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return nullptr;
        }
        CmpiCall::set(rc, CMPI_RC_OK);
        return CallScope::arenaFor(*b).mark();
    });
}

CMPIStatus release(const CMPIBroker* mb, const CMPIGcStat* gc) {
    return CmpiCall::guardStatus([&] {
        Broker* b = Broker::from(mb);
        if (!b)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (!gc)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_PARAMETER);
        // The mark is normally in the current scope; one made outside any scope is the
        // broker's.
        if (CallScope::arenaFor(*b).releaseTo(gc) || b->ownArena().releaseTo(gc))
            return CmpiCall::status(CMPI_RC_OK);
        return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
    });
}

void* cmpiMalloc(const CMPIBroker* mb, std::size_t size) {
    Broker* b = Broker::from(mb);
    return b ? quietly<void*>(nullptr, [&] { return allocate(*b, size); }) : nullptr;
}

void* cmpiCalloc(const CMPIBroker* mb, std::size_t count, std::size_t size) {
    Broker* b = Broker::from(mb);
    if (!b || (size != 0 && count > std::numeric_limits<std::size_t>::max() / size))
        return nullptr;
    void* p = quietly<void*>(nullptr, [&] { return allocate(*b, count * size); });
    if (p)
        std::memset(p, 0, count * size);
    return p;
}

void cmpiFree(const CMPIBroker* mb, void* ptr) {
    if (!Broker::from(mb) || !ptr)
        return;
    if (MemoryBlock* block = MemoryBlock::fromData(ptr))
        quietly(0, [&] {
            block->release();
            return 0;
        });
}

void* cmpiRealloc(const CMPIBroker* mb, void* ptr, std::size_t size) {
    Broker* b = Broker::from(mb);
    if (!b)
        return nullptr;
    return quietly<void*>(nullptr, [&]() -> void* {
        if (!ptr)
            return allocate(*b, size);
        MemoryBlock* old = MemoryBlock::fromData(ptr);
        if (!old)
            return nullptr;
        if (size == 0) {
            old->release();
            return nullptr;
        }
        MemoryBlock* block = MemoryBlock::create(*b, size);
        if (!block)
            return nullptr;
        std::memcpy(block->data(), old->data(), old->size() < size ? old->size() : size);
        // The new block takes the old one's place with its owner.
        CallArena* arena = old->arena();
        (arena ? *arena : CallScope::arenaFor(*b)).adopt(block);
        old->release();
        return block->data();
    });
}

char* cmpiStrDup(const CMPIBroker* mb, const char* str) {
    Broker* b = Broker::from(mb);
    if (!b || !str)
        return nullptr;
    std::size_t n = std::strlen(str) + 1;
    char* out = static_cast<char*>(quietly<void*>(nullptr, [&] { return allocate(*b, n); }));
    if (out)
        std::memcpy(out, str, n);
    return out;
}

template <class T>
void freeObject(const CMPIBroker* mb, T* object) {
    if (!Broker::from(mb))
        return;
    if (HostObject* o = HostObject::fromCmpi(object))
        quietly(0, [&] {
            o->release();
            return 0;
        });
}

void freeInstance(const CMPIBroker* mb, CMPIInstance* inst) {
    freeObject(mb, inst);
}
void freeObjectPath(const CMPIBroker* mb, CMPIObjectPath* op) {
    freeObject(mb, op);
}
void freeArgs(const CMPIBroker* mb, CMPIArgs* args) {
    freeObject(mb, args);
}
void freeString(const CMPIBroker* mb, CMPIString* str) {
    freeObject(mb, str);
}
void freeArray(const CMPIBroker* mb, CMPIArray* array) {
    freeObject(mb, array);
}
void freeDateTime(const CMPIBroker* mb, CMPIDateTime* dt) {
    freeObject(mb, dt);
}
// The host makes no select expressions, so there is never one of its own to free.
void freeSelectExp(const CMPIBroker*, CMPISelectExp*) {}

CMPIBrokerMemFT memTable = {CMPIVersion200, mark,       release,   cmpiMalloc,   cmpiCalloc,
                            cmpiRealloc,    cmpiStrDup, cmpiFree,  freeInstance, freeObjectPath,
                            freeArgs,       freeString, freeArray, freeDateTime, freeSelectExp};

} // namespace

CMPIBrokerMemFT* MemoryServices::table() {
    return &memTable;
}

} // namespace diaghost
