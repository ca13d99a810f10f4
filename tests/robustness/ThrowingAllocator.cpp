#include "ThrowingAllocator.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace robusttest {

namespace {

std::atomic<bool> armed{false};
std::atomic<bool> refused{false};
std::atomic<std::size_t> remaining{0};

void* allocate(std::size_t size) {
    if (!ThrowingAllocator::grant())
        return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

void ThrowingAllocator::arm(std::size_t budget) {
    remaining.store(budget);
    refused.store(false);
    armed.store(true);
}

bool ThrowingAllocator::disarm() {
    armed.store(false);
    return refused.load();
}

bool ThrowingAllocator::grant() {
    if (!armed.load(std::memory_order_relaxed))
        return true;
    std::size_t left = remaining.load();
    while (left > 0) {
        if (remaining.compare_exchange_weak(left, left - 1))
            return true;
    }
    refused.store(true);
    return false;
}

} // namespace robusttest

void* operator new(std::size_t size) {
    if (void* p = robusttest::allocate(size))
        return p;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return robusttest::allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return robusttest::allocate(size);
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete[](void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
