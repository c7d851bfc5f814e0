#include "tests/support/heap_counter.h"

#include <atomic>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__GLIBC__)

long heap_calls() {
  return 0;
}
bool heap_is_counted() {
  return false;
}

#else

namespace {
std::atomic<long> calls{0};
}

long heap_calls() {
  return calls.load();
}
bool heap_is_counted() {
  return true;
}

// Seen by libstdc++, whatever the rest of the program hides.
#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);

void* malloc(size_t size) {
  ++calls;
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  ++calls;
  return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
  ++calls;
  return __libc_realloc(block, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
  ++calls;
  return __libc_memalign(alignment, size);
}
}
#pragma GCC visibility pop

#endif
