// Consecutive samples of which a kernel takes eight at many places.
//
// A 64-byte load that does not start at a cache line takes as long as two. So where a register
// holds eight doubles the run is loaded once, and the eight samples are put together from two
// registers, which needs their place to be a constant. Shorter vectors are loaded where they lie,
// in loops over plain ints.
#pragma once

#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// An int known at compile time.
template <int v>
struct Constant {
  constexpr operator int() const { return v; }
};
template <int a, int b>
constexpr Constant<a + b> operator+(Constant<a>, Constant<b>) {
  return {};
}
template <int a, int b>
constexpr Constant<a - b> operator-(Constant<a>, Constant<b>) {
  return {};
}

// The samples x[0 ... 8 kVectors - 1]; from(i) is x[i ... i + 7].
template <int kVectors>
class RunInRegisters {
 public:
  KELG729F_VEC explicit RunInRegisters(const double* x) {
    for (int i = 0; i < kVectors; ++i) vector_[i] = load(x + i * kLanes);
  }
  template <int i>
  KELG729F_VEC Vec8 from(Constant<i>) const {
    static_assert(i >= 0 && i <= (kVectors - 1) * kLanes);
    constexpr int v = i / kLanes, first = i % kLanes;
    if constexpr (first == 0)
      return vector_[v];
    else
      return window<first>(vector_[v], vector_[v + 1]);
  }

 private:
  Vec8 vector_[kVectors];
};

class RunInMemory {
 public:
  KELG729F_VEC explicit RunInMemory(const double* x) : x_(x) {}
  KELG729F_VEC Vec8 from(int i) const { return load(x_ + i); }

 private:
  const double* x_;
};

inline constexpr bool kRunsInRegisters = kNativeLanes == kLanes;
template <int kVectors>
using SampleRun = std::conditional_t<kRunsInRegisters, RunInRegisters<kVectors>, RunInMemory>;

// f of 0, 1, ..., n - 1, from which f makes places.
template <int n, typename F>
KELG729F_VEC void for_places(const F& f) {
  if constexpr (kRunsInRegisters)
    [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
      (f(Constant<i>()), ...);
    }
  (std::make_integer_sequence<int, n>());
  else for (int i = 0; i < n; ++i) f(i);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
