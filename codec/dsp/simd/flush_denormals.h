// Denormal numbers are zero while a frame is coded.
#pragma once

#include <cstdint>
#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace g729 {
inline namespace KELG729F_TARGET {

// While one lives, what is below the smallest normal double counts as zero; then the caller's
// floating-point mode is back. Without it the filters decay in silence to denormal numbers and stay
// there, and many processors take a hundred times as long for an operation on one.
class FlushDenormals {
 public:
  FlushDenormals() : mode_(get()) { set(mode_ | kFlush); }
  ~FlushDenormals() { set(mode_); }
  FlushDenormals(const FlushDenormals&) = delete;
  FlushDenormals& operator=(const FlushDenormals&) = delete;

 private:
#if defined(__SSE2__)
  using Mode = unsigned;
  static constexpr Mode kFlush = 0x8040;  // results (15) and operands (6)
  static Mode get() {
    return _mm_getcsr();
  }
  static void set(Mode mode) {
    _mm_setcsr(mode);
  }
#elif defined(__aarch64__)
  using Mode = uint64_t;
  static constexpr Mode kFlush = 1 << 24;  // both
  static Mode get() {
    Mode mode;
    asm volatile("mrs %0, fpcr" : "=r"(mode));
    return mode;
  }
  static void set(Mode mode) {
    asm volatile("msr fpcr, %0" : : "r"(mode));
  }
#else
  using Mode = int;
  static constexpr Mode kFlush = 0;
  static Mode get() {
    return 0;
  }
  static void set(Mode) {}
#endif

  const Mode mode_;
};

}  // namespace KELG729F_TARGET
}  // namespace g729
