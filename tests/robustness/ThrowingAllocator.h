// Replaces the program's global operator new with one that can be made to run out of memory:
// while armed, the first `budget` allocations succeed and every later one throws std::bad_alloc
// (the nothrow forms answer null). Disarmed it only counts nothing and allocates with malloc.
#ifndef ZORQ_TESTS_ROBUSTNESS_THROWINGALLOCATOR_H
#define ZORQ_TESTS_ROBUSTNESS_THROWINGALLOCATOR_H

#include <cstddef>

namespace robusttest {

class ThrowingAllocator {
public:
    static void arm(std::size_t budget);
    // Disarms and tells whether an allocation was refused since arm().
    static bool disarm();
    // Called by the replaced operators: false when this allocation is to fail.
    static bool grant();
};

// Arms for the life of the object.
class ArmedAllocator {
public:
    explicit ArmedAllocator(std::size_t budget) { ThrowingAllocator::arm(budget); }
    ~ArmedAllocator() { ThrowingAllocator::disarm(); }
    ArmedAllocator(const ArmedAllocator&) = delete;
    ArmedAllocator& operator=(const ArmedAllocator&) = delete;
};

} // namespace robusttest

#endif
