// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The count of heap allocations, from the program's own operator new.
#ifndef BENCH_ALLOCATIONS_H
#define BENCH_ALLOCATIONS_H

#include <cstddef>

namespace kvbench {

/// How many allocations there have been in this thread.
std::size_t allocations();

}  // namespace kvbench

#endif  // BENCH_ALLOCATIONS_H
