// Memory for the objects a call scope makes. A scope makes its objects one after the other and
// frees them together when it closes, so they are carved from 2 MiB chunks by bumping a pointer:
// no allocator search or bin sorting when they are made, and nothing to coalesce when they go.
// A chunk counts its live blocks and is handed back when the last one is freed, on whatever
// thread; a chunk whose blocks are all freed while its thread still fills it starts again from
// its beginning, so that the next call reuses memory that is already mapped and cached. Objects
// that outlive their scope (clones and copies handed to a caller, and the parts a kept object
// takes later) come from the C library, so that no kept object pins a chunk of transient ones.
// Chunks lie in one reserved address range, which tells a block's origin by one comparison.
// Under the address sanitizer, and when the range cannot be reserved or is used up, nothing
// comes from here.
#ifndef DIAGHOST_MEMORY_SCOPEMEMORY_H
#define DIAGHOST_MEMORY_SCOPEMEMORY_H

#include <cstddef>

namespace diaghost {

class ScopeMemory {
public:
    static constexpr std::size_t chunkSize = std::size_t{2} << 20;
    // Blocks larger than this come from the C library.
    static constexpr std::size_t largestBlock = std::size_t{64} << 10;
    // Chunks whose blocks are all freed and that keep their pages for the next one asked for;
    // any further ones give their pages back to the kernel.
    static constexpr std::size_t warmChunksKept = 16;

    // A block of `size` bytes aligned to 16, when a call scope is open on this thread outside a
    // durable section; null otherwise, and the caller asks the C library.
    static void* allocate(std::size_t size) noexcept;
    // Whether a block came from allocate.
    static bool owns(const void* block) noexcept;
    // Takes back a block allocate gave, on any thread.
    static void deallocate(void* block) noexcept;

    // A call scope opened, or closed after freeing its objects, on this thread.
    static void scopeOpened() noexcept;
    static void scopeClosed() noexcept;

    // While one lives on a thread, what the thread makes comes from the C library.
    class Durable {
    public:
        Durable() noexcept;
        ~Durable();
        Durable(const Durable&) = delete;
        Durable& operator=(const Durable&) = delete;
    };

    // While one lives on a thread, what the thread makes comes from where `container` lives: the
    // parts an object takes in a later call (a kept clone changed, say) are as durable as it is.
    class PartsOf {
    public:
        explicit PartsOf(const void* container) noexcept;
        ~PartsOf();
        PartsOf(const PartsOf&) = delete;
        PartsOf& operator=(const PartsOf&) = delete;

    private:
        bool durable_;
    };

    // Whether what this thread makes now comes from here.
    static bool active() noexcept;
    // Whether blocks come from here at all in this process: not under the address sanitizer, and
    // the range reserved.
    static bool available() noexcept;
    // Chunks holding live blocks or being filled by a thread, over all threads.
    static std::size_t chunksInUse() noexcept;
};

} // namespace diaghost

#endif
