#include "bench/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> count;
std::atomic<std::size_t> bytes;

}  // namespace

void* operator new(std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  bytes.fetch_add(size, std::memory_order_relaxed);
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace kvbench {

std::size_t allocations() { return count; }
std::size_t allocatedBytes() { return bytes; }

}  // namespace kvbench
