// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "bench/allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t count;

}  // namespace

void* operator new(std::size_t size) {
  ++count;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace kvbench {

std::size_t allocations() { return count; }

}  // namespace kvbench
