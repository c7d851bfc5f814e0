#include "tests/support/heap_counter.h"

#include <dlfcn.h>

#include <atomic>
#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED
#endif

#ifdef SANITIZED

long heap_calls() {
  return 0;
}
bool heap_is_counted() {
  return false;
}

#else

namespace {

std::atomic<long> calls{0};

// Counts, then does what the C library's function of that name does. Looked up every time: a
// variable that remembers would have to be guarded, and a guard may want memory itself.
template <typename Result, typename... Arguments>
Result counted(const char* name, Arguments... arguments) {
  ++calls;
  return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

long heap_calls() {
  return calls.load();
}
bool heap_is_counted() {
  return true;
}

// Seen by the libraries, whatever the rest of the program hides. The headers that declare these
// differ in attributes; without them any C library's will do.
#pragma GCC visibility push(default)
extern "C" {
#define COUNTED(result, name, parameters, ...)  \
  result name parameters {                      \
    return counted<result>(#name, __VA_ARGS__); \
  }
COUNTED(void*, malloc, (size_t size), size)
COUNTED(void*, calloc, (size_t count, size_t size), count, size)
COUNTED(void*, realloc, (void* block, size_t size), block, size)
COUNTED(void*, reallocarray, (void* block, size_t count, size_t size), block, count, size)
COUNTED(void*, aligned_alloc, (size_t alignment, size_t size), alignment, size)
COUNTED(void*, memalign, (size_t alignment, size_t size), alignment, size)
COUNTED(int, posix_memalign, (void** block, size_t alignment, size_t size), block, alignment, size)
COUNTED(void*, valloc, (size_t size), size)
COUNTED(void*, pvalloc, (size_t size), size)
#undef COUNTED
}
#pragma GCC visibility pop

#endif
