#include "host/memory/ObjectPool.h"

#include "host/memory/ScopeMemory.h"

#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define DIAGHOST_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer)
#define DIAGHOST_POOL_BYPASS 1
#endif
#endif

namespace diaghost {

namespace {

constexpr std::size_t granule = 16;

std::size_t classOf(std::size_t size) {
    return (size - 1) / granule;
}

#ifndef DIAGHOST_POOL_BYPASS
constexpr std::size_t classCount = ObjectPool::largestKept / granule;

struct FreeBlock {
    FreeBlock* next;
};

struct ThreadCache {
    FreeBlock* heads[classCount] = {};
    std::size_t keptBytes = 0;
    ~ThreadCache();
};

// Set once the thread's cache is gone: blocks freed later in the thread's exit go to the C
// library directly. Trivially destructible, so it stays readable to the thread's very end.
thread_local bool cacheGone = false;
thread_local ThreadCache cache;

ThreadCache::~ThreadCache() {
    cacheGone = true;
    for (FreeBlock*& head : heads)
        while (head != nullptr) {
            FreeBlock* block = head;
            head = block->next;
            ::operator delete(block);
        }
    keptBytes = 0;
}
#endif

} // namespace

void* ObjectPool::allocate(std::size_t size) {
    if (void* block = ScopeMemory::allocate(size))
        return block;
    if (size == 0 || size > largestKept)
        return ::operator new(size);
    const std::size_t index = classOf(size);
#ifndef DIAGHOST_POOL_BYPASS
    if (!cacheGone) {
        ThreadCache& c = cache;
        if (FreeBlock* block = c.heads[index]) {
            c.heads[index] = block->next;
            // Freed blocks are cold: the next one is asked into the cache before it is needed.
            __builtin_prefetch(block->next);
            c.keptBytes -= (index + 1) * granule;
            return block;
        }
    }
#endif
    return ::operator new((index + 1) * granule);
}

void ObjectPool::deallocate(void* block, std::size_t size) noexcept {
    if (block == nullptr)
        return;
    if (ScopeMemory::owns(block)) {
        ScopeMemory::deallocate(block);
        return;
    }
#ifndef DIAGHOST_POOL_BYPASS
    if (size != 0 && size <= largestKept && !cacheGone) {
        const std::size_t index = classOf(size);
        const std::size_t bytes = (index + 1) * granule;
        ThreadCache& c = cache;
        if (c.keptBytes + bytes <= keptBytesPerThread) {
            c.heads[index] = new (block) FreeBlock{c.heads[index]};
            c.keptBytes += bytes;
            return;
        }
    }
#else
    (void)size;
#endif
    ::operator delete(block);
}

void* ObjectPool::allocateBlock(std::size_t size) {
    if (void* block = ScopeMemory::allocate(size))
        return block;
    return ::operator new(size);
}

void ObjectPool::deallocateBlock(void* block) noexcept {
    if (ScopeMemory::owns(block))
        ScopeMemory::deallocate(block);
    else
        ::operator delete(block);
}

} // namespace diaghost
