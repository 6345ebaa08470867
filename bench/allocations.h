/// Counts of heap allocations, from the program's own operator new.
#ifndef BENCH_ALLOCATIONS_H
#define BENCH_ALLOCATIONS_H

#include <cstddef>

namespace kvbench {

/// How many allocations, and of how many bytes, there have been in this process.
std::size_t allocations();
std::size_t allocatedBytes();

}  // namespace kvbench

#endif  // BENCH_ALLOCATIONS_H
