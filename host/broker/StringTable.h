// The texts held by objects that outlive their call (kept instances, their paths, arrays and
// results handed on) are stored once per process: every such copy of one text shares one
// immutable HostString, counted by its holders, so a registry of thousands of records of one
// service keeps each caption and description once. Strings are found by text under one lock;
// taking another hold of a string already held, and letting go of one that others still hold,
// take no lock. The table lives as long as the process.
#ifndef DIAGHOST_BROKER_STRINGTABLE_H
#define DIAGHOST_BROKER_STRINGTABLE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace diaghost {

class Broker;
class HostString;

class StringTable {
public:
    // The shared string of `length` bytes at text (not null), with one more holder: the one in
    // the table, or a new one made from the C library's memory. Throws bad_alloc.
    static HostString* acquire(Broker& broker, const char* text, std::size_t length);
    // One more holder of a shared string the caller holds.
    static HostString* retain(HostString* s) noexcept;
    // One holder less of a shared string; the last one takes it out of the table and frees it.
    static void release(HostString* s) noexcept;

    // The number of distinct texts held.
    static std::size_t size() noexcept;

private:
    class Table;
    static std::atomic<std::uint32_t>& holdersOf(HostString& s) noexcept;
};

} // namespace diaghost

#endif
