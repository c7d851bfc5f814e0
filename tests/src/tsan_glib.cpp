// GLib as ThreadSanitizer must see it.
//
// GLib is not built with the sanitizer and makes its locks from futexes, so the sanitizer sees no
// lock at all. These definitions stand before GLib's own, call them, and report what they order:
// what one thread did before it let a lock go happens before what another does once it has it.
// The elements' own use of the locks is thereby checked, not excused.
#include <dlfcn.h>
#include <glib.h>
#include <sanitizer/tsan_interface.h>

namespace {

template <typename F>
F real(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define NEXT(name) static const auto next = real<decltype(&name)>(#name)
#define VISIBLE extern "C" __attribute__((visibility("default")))

#define LOCK_AND_UNLOCK(type, lock, trylock, unlock) \
  VISIBLE void lock(type* mutex) {                   \
    NEXT(lock);                                      \
    next(mutex);                                     \
    __tsan_acquire(mutex);                           \
  }                                                  \
  VISIBLE gboolean trylock(type* mutex) {            \
    NEXT(trylock);                                   \
    const gboolean got = next(mutex);                \
    if (got) __tsan_acquire(mutex);                  \
    return got;                                      \
  }                                                  \
  VISIBLE void unlock(type* mutex) {                 \
    NEXT(unlock);                                    \
    __tsan_release(mutex);                           \
    next(mutex);                                     \
  }

LOCK_AND_UNLOCK(GMutex, g_mutex_lock, g_mutex_trylock, g_mutex_unlock)
LOCK_AND_UNLOCK(GRecMutex, g_rec_mutex_lock, g_rec_mutex_trylock, g_rec_mutex_unlock)

VISIBLE void g_cond_wait(GCond* cond, GMutex* mutex) {
  NEXT(g_cond_wait);
  __tsan_release(mutex);
  next(cond, mutex);
  __tsan_acquire(mutex);
}

VISIBLE gboolean g_cond_wait_until(GCond* cond, GMutex* mutex, gint64 end_time) {
  NEXT(g_cond_wait_until);
  __tsan_release(mutex);
  const gboolean signalled = next(cond, mutex, end_time);
  __tsan_acquire(mutex);
  return signalled;
}
