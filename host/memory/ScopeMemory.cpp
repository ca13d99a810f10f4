#include "host/memory/ScopeMemory.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>

// Use after free is caught only in memory the sanitizer's own allocator hands out. The thread
// sanitizer sees scope memory as it is, so its atomics and reuse are checked there.
#if defined(__SANITIZE_ADDRESS__)
#define DIAGHOST_SCOPE_MEMORY_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define DIAGHOST_SCOPE_MEMORY_BYPASS 1
#endif
#endif

namespace diaghost {

namespace {

#ifndef DIAGHOST_SCOPE_MEMORY_BYPASS

// Address space only: pages are committed a chunk at a time as threads ask for them. Where the
// process's address space is limited, a quarter of the limit at most, so that the C library
// keeps room for everything else.
constexpr std::size_t mostReserved = std::size_t{64} << 30;
constexpr std::size_t granule = 16;
// The chunk's header takes its first cache line, so that a thread filling the chunk and threads
// freeing blocks in it do not share a line with the blocks.
constexpr std::size_t headerBytes = 64;
// Added to a chunk's live count while a thread fills it: the count cannot reach zero then, and
// the filling thread counts the blocks it hands out without an atomic operation.
constexpr std::uint64_t fillerBias = std::uint64_t{1} << 62;

struct ChunkHeader {
    std::atomic<std::uint64_t> live;
    // The next chunk of a list of free chunks. Free chunks are listed through their own headers,
    // so that handing a chunk back, which happens inside a block's release, never allocates.
    ChunkHeader* nextFree;
};

// A list of free chunks, newest first.
struct FreeChunks {
    ChunkHeader* head = nullptr;
    std::size_t count = 0;

    void push(char* chunk) {
        auto* h = reinterpret_cast<ChunkHeader*>(chunk);
        h->nextFree = head;
        head = h;
        ++count;
    }
    char* pop() {
        ChunkHeader* h = head;
        if (h == nullptr)
            return nullptr;
        head = h->nextFree;
        --count;
        return reinterpret_cast<char*>(h);
    }
};

// A chunk given back to the kernel keeps its first page, which holds its header and the link.
constexpr std::size_t pageBytes = 4096;

class Chunks;
Chunks& chunks();

class Chunks {
public:
    Chunks() {
        // A child forked while another thread held the lock must not inherit it held.
        ::pthread_atfork([] { chunks().lock(); }, [] { chunks().unlock(); },
                         [] { chunks().unlock(); });
        std::size_t bytes = mostReserved;
        struct rlimit limit {};
        if (::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
            limit.rlim_cur / 4 < bytes)
            bytes = static_cast<std::size_t>(limit.rlim_cur / 4) & ~(ScopeMemory::chunkSize - 1);
        if (bytes == 0)
            return;
        void* at = ::mmap(nullptr, bytes + ScopeMemory::chunkSize, PROT_NONE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (at == MAP_FAILED)
            return;
        bytes_ = bytes;
        // Chunks are aligned to their size, so that a block finds its chunk's header by masking.
        const auto raw = reinterpret_cast<std::uintptr_t>(at);
        base_ = reinterpret_cast<char*>((raw + ScopeMemory::chunkSize - 1) &
                                        ~(std::uintptr_t{ScopeMemory::chunkSize} - 1));
    }

    bool owns(const void* block) const {
        return base_ != nullptr &&
               reinterpret_cast<std::uintptr_t>(block) - reinterpret_cast<std::uintptr_t>(base_) <
                   bytes_;
    }

    bool reserved() const { return base_ != nullptr; }

    static ChunkHeader* headerOf(const void* block) {
        return reinterpret_cast<ChunkHeader*>(reinterpret_cast<std::uintptr_t>(block) &
                                              ~(std::uintptr_t{ScopeMemory::chunkSize} - 1));
    }

    // A chunk with its live count at the filler's bias; null when the range is used up or the
    // kernel refuses the pages.
    char* take() {
        char* chunk = nullptr;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            chunk = warm_.pop();
            if (chunk == nullptr)
                chunk = cold_.pop();
            if (chunk == nullptr && base_ != nullptr &&
                committed_ < bytes_ / ScopeMemory::chunkSize) {
                chunk = base_ + committed_ * ScopeMemory::chunkSize;
                if (::mprotect(chunk, ScopeMemory::chunkSize, PROT_READ | PROT_WRITE) != 0)
                    return nullptr;
                ++committed_;
            }
            if (chunk == nullptr)
                return nullptr;
            ++inUse_;
        }
        reinterpret_cast<ChunkHeader*>(chunk)->live.store(fillerBias, std::memory_order_relaxed);
        return chunk;
    }

    // Every block of the chunk is free and no thread fills it.
    void give(char* chunk) {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            --inUse_;
            if (warm_.count < ScopeMemory::warmChunksKept) {
                warm_.push(chunk);
                return;
            }
        }
        ::madvise(chunk + pageBytes, ScopeMemory::chunkSize - pageBytes, MADV_DONTNEED);
        std::lock_guard<std::mutex> guard(mutex_);
        cold_.push(chunk);
    }

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

    std::size_t inUse() {
        std::lock_guard<std::mutex> guard(mutex_);
        return inUse_;
    }

private:
    char* base_ = nullptr;
    std::size_t bytes_ = 0;
    std::mutex mutex_;
    std::size_t committed_ = 0;
    std::size_t inUse_ = 0;
    FreeChunks warm_;
    FreeChunks cold_;
};

// Made on first use and never destroyed: blocks are freed during the process's exit, after
// static destructors may have run.
Chunks& chunks() {
    static Chunks* const all = new Chunks();
    return *all;
}

void dropLive(ChunkHeader* header, std::uint64_t count) {
    if (header->live.fetch_sub(count, std::memory_order_acq_rel) == count)
        chunks().give(reinterpret_cast<char*>(header));
}

struct ThreadChunk {
    char* chunk = nullptr;
    char* next = nullptr;
    char* end = nullptr;
    // Blocks handed out from the chunk since it was taken or last started again.
    std::uint64_t made = 0;
    int scopes = 0;
    int durable = 0;

    ~ThreadChunk();
    ChunkHeader* header() const { return reinterpret_cast<ChunkHeader*>(chunk); }
    // Starts the chunk again from its beginning when every block of it has been freed.
    bool restartIfFree() {
        if (chunk == nullptr || header()->live.load(std::memory_order_acquire) != fillerBias - made)
            return false;
        next = chunk + headerBytes;
        made = 0;
        header()->live.store(fillerBias, std::memory_order_relaxed);
        return true;
    }
    void retire() {
        if (chunk == nullptr)
            return;
        ChunkHeader* h = header();
        chunk = next = end = nullptr;
        dropLive(h, fillerBias - made);
        made = 0;
    }
    bool refill(std::size_t size) {
        if (restartIfFree() && next + size <= end)
            return true;
        retire();
        chunk = chunks().take();
        if (chunk == nullptr)
            return false;
        next = chunk + headerBytes;
        end = chunk + ScopeMemory::chunkSize;
        return next + size <= end;
    }
};

// Set once the thread's state is gone: blocks asked for later in the thread's exit come from the
// C library. Trivially destructible, so it stays readable to the thread's very end.
thread_local bool stateGone = false;
thread_local ThreadChunk state;

ThreadChunk::~ThreadChunk() {
    stateGone = true;
    retire();
}

#endif

// Counts a durable section of the calling thread in (1) or out (-1).
void durableSection(int step) noexcept {
#ifndef DIAGHOST_SCOPE_MEMORY_BYPASS
    if (!stateGone)
        state.durable += step;
#else
    (void)step;
#endif
}

} // namespace

void* ScopeMemory::allocate(std::size_t size) noexcept {
#ifdef DIAGHOST_SCOPE_MEMORY_BYPASS
    (void)size;
    return nullptr;
#else
    if (stateGone)
        return nullptr;
    ThreadChunk& t = state;
    if (t.scopes == 0 || t.durable != 0 || size == 0 || size > largestBlock)
        return nullptr;
    size = (size + granule - 1) & ~(granule - 1);
    if (static_cast<std::size_t>(t.end - t.next) < size && !t.refill(size))
        return nullptr;
    void* block = t.next;
    t.next += size;
    ++t.made;
    return block;
#endif
}

bool ScopeMemory::owns(const void* block) noexcept {
#ifdef DIAGHOST_SCOPE_MEMORY_BYPASS
    (void)block;
    return false;
#else
    return block != nullptr && chunks().owns(block);
#endif
}

void ScopeMemory::deallocate(void* block) noexcept {
#ifdef DIAGHOST_SCOPE_MEMORY_BYPASS
    (void)block;
#else
    dropLive(Chunks::headerOf(block), 1);
#endif
}

void ScopeMemory::scopeOpened() noexcept {
#ifndef DIAGHOST_SCOPE_MEMORY_BYPASS
    if (!stateGone)
        ++state.scopes;
#endif
}

void ScopeMemory::scopeClosed() noexcept {
#ifndef DIAGHOST_SCOPE_MEMORY_BYPASS
    if (stateGone)
        return;
    ThreadChunk& t = state;
    // The next call on this thread reuses the memory this one used, while it is still cached.
    if (--t.scopes == 0)
        t.restartIfFree();
#endif
}

ScopeMemory::Durable::Durable() noexcept {
    durableSection(1);
}

ScopeMemory::Durable::~Durable() {
    durableSection(-1);
}

ScopeMemory::PartsOf::PartsOf(const void* container) noexcept : durable_(!owns(container)) {
    if (durable_)
        durableSection(1);
}

ScopeMemory::PartsOf::~PartsOf() {
    if (durable_)
        durableSection(-1);
}

bool ScopeMemory::active() noexcept {
#ifdef DIAGHOST_SCOPE_MEMORY_BYPASS
    return false;
#else
    return !stateGone && state.scopes != 0 && state.durable == 0 && chunks().reserved();
#endif
}

bool ScopeMemory::available() noexcept {
#ifdef DIAGHOST_SCOPE_MEMORY_BYPASS
    return false;
#else
    return chunks().reserved();
#endif
}

std::size_t ScopeMemory::chunksInUse() noexcept {
#ifdef DIAGHOST_SCOPE_MEMORY_BYPASS
    return 0;
#else
    return chunks().inUse();
#endif
}

} // namespace diaghost
