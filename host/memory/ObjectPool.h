// Memory for the broker's objects. While a call scope is open, objects come from the scope
// memory (ScopeMemory). Otherwise small blocks are recycled: freed blocks are kept per thread in
// free lists of 16-byte size classes, up to a fixed number of bytes per thread, and returned to
// the C library when the thread ends. Under a sanitizer every block goes straight to the C
// library, so that use after free is still caught.
#ifndef DIAGHOST_MEMORY_OBJECTPOOL_H
#define DIAGHOST_MEMORY_OBJECTPOOL_H

#include <cstddef>

namespace diaghost {

class ObjectPool {
public:
    // A block of at least `size` bytes, aligned for any object; throws bad_alloc.
    static void* allocate(std::size_t size);
    // Takes back a block that allocate gave for the same size, on any thread.
    static void deallocate(void* block, std::size_t size) noexcept;
    // A block of any size for an object that keeps its data behind itself; throws bad_alloc.
    static void* allocateBlock(std::size_t size);
    // Takes back a block that allocateBlock gave, on any thread.
    static void deallocateBlock(void* block) noexcept;

    // The bytes of freed blocks the calling thread keeps at most.
    static constexpr std::size_t keptBytesPerThread = std::size_t{32} << 20;
    // Larger blocks are not kept.
    static constexpr std::size_t largestKept = 512;
};

} // namespace diaghost

#endif
