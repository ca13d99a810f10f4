#include "PeakHeap.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace {

std::atomic<bool> counting{false};
std::atomic<long long> current{0};
std::atomic<long long> highest{0};

void added(void* block) {
    if (!block || !counting.load(std::memory_order_relaxed))
        return;
    long long now = current.fetch_add(static_cast<long long>(malloc_usable_size(block)),
                                      std::memory_order_relaxed) +
                    static_cast<long long>(malloc_usable_size(block));
    long long seen = highest.load(std::memory_order_relaxed);
    while (now > seen && !highest.compare_exchange_weak(seen, now, std::memory_order_relaxed)) {
    }
}

void removed(void* block) {
    if (block && counting.load(std::memory_order_relaxed))
        current.fetch_sub(static_cast<long long>(malloc_usable_size(block)),
                          std::memory_order_relaxed);
}

} // namespace

namespace peakheap {

void begin() {
    current.store(0);
    highest.store(0);
    counting.store(true);
}

std::size_t end() {
    counting.store(false);
    return static_cast<std::size_t>(highest.load());
}

} // namespace peakheap

extern "C" {

void* malloc(std::size_t size) {
    void* block = __libc_malloc(size);
    added(block);
    return block;
}

void* calloc(std::size_t count, std::size_t size) {
    void* block = __libc_calloc(count, size);
    added(block);
    return block;
}

void* realloc(void* block, std::size_t size) {
    removed(block);
    void* moved = __libc_realloc(block, size);
    added(moved ? moved : (size ? block : nullptr));
    return moved;
}

void free(void* block) {
    removed(block);
    __libc_free(block);
}
}
