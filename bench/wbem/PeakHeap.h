// Counts the heap a stretch of code uses at its peak: the program's malloc, calloc, realloc and
// free (PeakHeap.cpp) stand in front of the C library's and, while counting is on, add up the
// usable sizes of the blocks handed out and given back. Every library in the process allocates
// through them, so a parser's own blocks are counted as well as the decoder's.
#ifndef DIAGCORE_BENCH_WBEM_PEAKHEAP_H
#define DIAGCORE_BENCH_WBEM_PEAKHEAP_H

#include <cstddef>

namespace peakheap {

// Starts counting from zero.
void begin();
// Stops counting; returns the highest count seen since begin() (bytes; blocks freed during the
// stretch that were allocated before it lower the count, so this can only understate).
std::size_t end();

} // namespace peakheap

#endif // DIAGCORE_BENCH_WBEM_PEAKHEAP_H
