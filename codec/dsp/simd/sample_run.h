// Consecutive samples of which a kernel takes eight at many places.
//
// A 64-byte load that does not start at a cache line takes as long as two. So with AVX-512 the run
// is loaded once, and the eight samples are put together from two registers, which needs their
// place to be a constant. Shorter vectors are loaded where they lie, in loops over plain ints.
#pragma once

#include <utility>

#include "codec/dsp/simd/vec.h"

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

#if defined(__AVX512F__) && !defined(KELG729F_PLAIN)

// The samples x[0 ... 8 kVectors - 1].
template <int kVectors>
class SampleRun {
 public:
  KELG729F_VEC explicit SampleRun(const double* x) {
    for (int i = 0; i < kVectors; ++i) vector_[i] = load(x + i * kLanes);
  }
  // x[i ... i + 7].
  template <int i>
  KELG729F_VEC Vec8 from(Constant<i>) const {
    static_assert(i >= 0 && i <= (kVectors - 1) * kLanes);
    constexpr int v = i / kLanes, lane = i % kLanes;
    if constexpr (lane == 0) {
      return vector_[v];
    } else {
      const auto low = reinterpret_cast<__m512i>(vector_[v].part[0]);
      const auto high = reinterpret_cast<__m512i>(vector_[v + 1].part[0]);
      return {{reinterpret_cast<Native>(_mm512_maskz_alignr_epi64(0xff, high, low, lane))}};
    }
  }

 private:
  Vec8 vector_[kVectors];
};

// f of 0, 1, ..., n - 1, from which f makes places.
template <int n, typename F>
KELG729F_VEC void for_places(const F& f) {
  [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
    (f(Constant<i>()), ...);
  }
  (std::make_integer_sequence<int, n>());
}

#else

template <int kVectors>
class SampleRun {
 public:
  KELG729F_VEC explicit SampleRun(const double* x) : x_(x) {}
  KELG729F_VEC Vec8 from(int i) const { return load(x_ + i); }

 private:
  const double* x_;
};

template <int n, typename F>
KELG729F_VEC void for_places(const F& f) {
  for (int i = 0; i < n; ++i) f(i);
}

#endif

}  // namespace KELG729F_TARGET
}  // namespace g729
