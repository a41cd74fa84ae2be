// The program's operators new and delete: those of the C library, with a count.
#include "bench/allocation_count.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <new>

namespace {

bool isCounting = false;
std::int64_t allocations = 0;

}  // namespace

void Bench::countAllocations(bool on) {
  isCounting = on;
  if (on) allocations = 0;
}

std::int64_t Bench::allocationCount() { return allocations; }

std::int64_t Bench::residentBytes() {
  malloc_trim(0);
  std::ifstream statm("/proc/self/statm");
  std::int64_t mapped = 0;
  std::int64_t resident = 0;
  statm >> mapped >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

void* operator new(std::size_t size) {
  if (isCounting) ++allocations;
  if (void* const p = std::malloc(size != 0 ? size : 1)) return p;
  throw std::bad_alloc();
}

void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t /*size*/) noexcept { std::free(p); }
