// A hint for loops that visit many objects scattered over a large heap: the object a few places
// ahead in the list is asked into the cache while the current one is worked on. Changes nothing
// the loop computes; a pointer that is null or no longer valid is harmless to a prefetch.
#ifndef DIAGCORE_COMMON_PREFETCH_H
#define DIAGCORE_COMMON_PREFETCH_H

#include <cstddef>
#include <vector>

namespace NQORVA20 {

// How many places ahead: far enough to hide a cache miss behind the work on one object.
constexpr std::size_t prefetchDistance = 16;

template <class T>
inline void prefetchAhead(const std::vector<T*>& items, std::size_t index) {
#if defined(__GNUC__) || defined(__clang__)
    if (index + prefetchDistance < items.size()) {
        // The object and the line after it: brokers keep their own state right around the CMPI
        // structure they hand out.
        const char* ahead = reinterpret_cast<const char*>(items[index + prefetchDistance]);
        __builtin_prefetch(ahead);
        __builtin_prefetch(ahead + 64);
    }
#else
    (void)items;
    (void)index;
#endif
}

} // namespace NQORVA20

#endif
