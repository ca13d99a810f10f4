// The host's CMPIString: an immutable text stored right behind the object in one allocation.
// Its handle is the text itself (null for a string made from a null text), because the standard
// CMGetCharPtr macro reads the handle directly. A string in the StringTable is shared by every
// kept object holding its text; it is a part of each, and CMRelease leaves it alone.
#ifndef DIAGHOST_BROKER_HOSTSTRING_H
#define DIAGHOST_BROKER_HOSTSTRING_H

#include "host/broker/HostObject.h"

#include <cmpift.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace diaghost {

class HostString final : public HostObject {
public:
    // A copy of `length` bytes at text, owned by nobody; a null text gives a null char pointer.
    static HostString* create(Broker& broker, const char* text, std::size_t length);
    static CMPIString* make(Broker& broker, const char* text, std::size_t length, Placement where);
    // The same for a NUL-terminated (or null) text.
    static CMPIString* make(Broker& broker, const char* text, Placement where);

    // The host string behind s; null for null and for strings of other origin.
    static HostString* from(const CMPIString* s);
    static CMPIStringFT* table();
    // The text of any CMPIString, read through its function table if it is not one of ours.
    static const char* textOf(const CMPIString* s);

    CMPIString* cmpi() { return &face_.s; }
    const char* text() const { return static_cast<const char*>(face_.s.hdl); }
    std::size_t length() const { return length_; }
    // Whether the string is the StringTable's, held by the objects that keep it.
    bool shared() const { return holders_.load(std::memory_order_relaxed) != 0; }
    HostObject* copy() const override;
    void* cmpiObject() override { return &face_.s; }

    static void operator delete(void* p) { ObjectPool::deallocateBlock(p); }

private:
    struct Face {
        CMPIString s;
        HostString* self;
    };
    friend class StringTable;
    HostString(Broker& broker, char* text, std::size_t length);

    // Zero for a string of one owner.
    std::atomic<std::uint32_t> holders_{0};
    Face face_;
    std::size_t length_;
};

} // namespace diaghost

#endif
