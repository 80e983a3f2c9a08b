#ifndef VELTRA_BENCH_ALLOCATION_COUNT_H
#define VELTRA_BENCH_ALLOCATION_COUNT_H

#include <cstdint>

namespace bench {

/// How often the calling thread has called operator new. A program that links
/// allocation_count.cpp has every allocation counted, those of the libraries it loads included.
std::uint64_t Allocations();

}  // namespace bench

#endif
