#include "host/broker/StringTable.h"

#include "host/broker/HostString.h"
#include "host/memory/ScopeMemory.h"

#include <pthread.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

namespace diaghost {

namespace {

std::size_t hashOf(const char* text, std::size_t length) {
    return std::hash<std::string_view>{}(std::string_view(text, length));
}

} // namespace

// Open addressing with linear probing over a power-of-two array of string pointers: one pointer
// per slot, at most three quarters full, so a text costs the table 11 to 16 bytes.
class StringTable::Table {
public:
    Table() {
        // A child forked while another thread held the lock must not inherit it held.
        ::pthread_atfork([] { instance().lock_.lock(); }, [] { instance().lock_.unlock(); },
                         [] { instance().lock_.unlock(); });
    }

    static Table& instance() {
        // Never destroyed: kept objects may let go of their strings during the process's exit.
        static Table* table = new Table;
        return *table;
    }

    HostString* acquire(Broker& broker, const char* text, std::size_t length) {
        const std::size_t hash = hashOf(text, length);
        std::lock_guard<std::mutex> hold(lock_);
        std::size_t at = find(text, length, hash);
        if (!slots_.empty() && slots_[at]) {
            holdersOf(*slots_[at]).fetch_add(1, std::memory_order_relaxed);
            return slots_[at];
        }
        if ((count_ + 1) * 4 > slots_.size() * 3) {
            resize(slots_.empty() ? 64 : slots_.size() * 2);
            at = find(text, length, hash);
        }
        HostString* s;
        {
            ScopeMemory::Durable durable;
            s = HostString::create(broker, text, length);
        }
        s->place(HostObject::Placement::Parent);
        holdersOf(*s).store(1, std::memory_order_relaxed);
        slots_[at] = s;
        ++count_;
        return s;
    }

    void release(HostString* s) noexcept {
        std::uint32_t held = holdersOf(*s).load(std::memory_order_relaxed);
        while (held > 1)
            if (holdersOf(*s).compare_exchange_weak(held, held - 1, std::memory_order_acq_rel))
                return;
        {
            // Only a lookup under the lock can add a holder now; if none did, this is the last.
            std::lock_guard<std::mutex> hold(lock_);
            if (holdersOf(*s).fetch_sub(1, std::memory_order_acq_rel) != 1)
                return;
            erase(s);
        }
        delete s;
    }

    std::size_t size() noexcept {
        std::lock_guard<std::mutex> hold(lock_);
        return count_;
    }

private:
    // The slot holding the text, or the empty slot where it would go; slots_ not empty.
    std::size_t find(const char* text, std::size_t length, std::size_t hash) const {
        if (slots_.empty())
            return 0;
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
            const HostString* s = slots_[at];
            if (!s || (s->length() == length && std::memcmp(s->text(), text, length) == 0))
                return at;
        }
    }

    void resize(std::size_t capacity) {
        std::vector<HostString*> old(capacity, nullptr);
        old.swap(slots_);
        const std::size_t mask = capacity - 1;
        for (HostString* s : old) {
            if (!s)
                continue;
            std::size_t at = hashOf(s->text(), s->length()) & mask;
            while (slots_[at])
                at = (at + 1) & mask;
            slots_[at] = s;
        }
    }

    // Takes the string out and closes the gap, so that no probe sequence is broken by it.
    void erase(const HostString* s) noexcept {
        const std::size_t mask = slots_.size() - 1;
        std::size_t gap = find(s->text(), s->length(), hashOf(s->text(), s->length()));
        slots_[gap] = nullptr;
        --count_;
        for (std::size_t at = (gap + 1) & mask; slots_[at]; at = (at + 1) & mask) {
            const std::size_t home = hashOf(slots_[at]->text(), slots_[at]->length()) & mask;
            // The entry may move back into the gap unless its home lies after the gap, on the
            // way to where it stands.
            if (((at - home) & mask) >= ((at - gap) & mask)) {
                slots_[gap] = slots_[at];
                slots_[at] = nullptr;
                gap = at;
            }
        }
        if (count_ * 16 < slots_.size() && slots_.size() > 64) {
            try {
                resize(slots_.size() / 2);
            } catch (const std::bad_alloc&) {
                // A table larger than needed still works.
            }
        }
    }

    std::mutex lock_;
    std::vector<HostString*> slots_;
    std::size_t count_ = 0;
};

std::atomic<std::uint32_t>& StringTable::holdersOf(HostString& s) noexcept {
    return s.holders_;
}

HostString* StringTable::acquire(Broker& broker, const char* text, std::size_t length) {
    return Table::instance().acquire(broker, text, length);
}

HostString* StringTable::retain(HostString* s) noexcept {
    holdersOf(*s).fetch_add(1, std::memory_order_relaxed);
    return s;
}

void StringTable::release(HostString* s) noexcept {
    Table::instance().release(s);
}

std::size_t StringTable::size() noexcept {
    return Table::instance().size();
}

} // namespace diaghost
