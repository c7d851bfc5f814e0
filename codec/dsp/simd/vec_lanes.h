// Vec8 operations in which lanes meet: comparisons as bit masks and a shift across lanes. They move
// or compare values and never round, so every build agrees on them as on the rest of Vec8.
#pragma once

#include "codec/dsp/simd/vec.h"

#if !defined(KELG729F_PLAIN) && defined(__SSE2__)
#include <immintrin.h>
#endif

namespace g729 {
inline namespace KELG729F_TARGET {

// Lane i is lane(i). What lane() reads may just have been stored as vectors: eight loads get it
// without a stall, which storing the lanes and loading them as vectors does not.
template <typename F>
KELG729F_VEC Vec8 from_lanes(const F& lane) {
  Vec8 r;
  for (int i = 0; i < kParts; ++i) {
    [[maybe_unused]] const int first = i * kNativeLanes;
#if defined(KELG729F_PLAIN)
    r.part[i] = lane(first);
#elif defined(__AVX512F__)
    r.part[i] = Native{lane(0), lane(1), lane(2), lane(3), lane(4), lane(5), lane(6), lane(7)};
#elif defined(__AVX__)
    r.part[i] = Native{lane(first), lane(first + 1), lane(first + 2), lane(first + 3)};
#else
    r.part[i] = Native{lane(first), lane(first + 1)};
#endif
  }
  return r;
}

// Bit i is set when a[i] > b[i].
KELG729F_VEC unsigned lanes_greater(Vec8 a, Vec8 b) {
#if !defined(KELG729F_PLAIN) && defined(__AVX512F__)
  return _mm512_cmp_pd_mask(a.part[0], b.part[0], _CMP_GT_OQ);
#else
  unsigned bits = 0;
  for (int i = 0; i < kParts; ++i) {
#if defined(KELG729F_PLAIN)
    const int part = a.part[i] > b.part[i];
#elif defined(__AVX__)
    const int part = _mm256_movemask_pd(_mm256_cmp_pd(a.part[i], b.part[i], _CMP_GT_OQ));
#elif defined(__SSE2__)
    const int part = _mm_movemask_pd(_mm_cmpgt_pd(a.part[i], b.part[i]));
#else
    int part = 0;
    for (int k = 0; k < kNativeLanes; ++k) part |= (a.part[i][k] > b.part[i][k]) << k;
#endif
    bits |= static_cast<unsigned>(part) << (i * kNativeLanes);
  }
  return bits;
#endif
}

// Bit i is set when a[i] <= b[i]; none of the lanes is a NaN.
KELG729F_VEC unsigned lanes_at_most(Vec8 a, Vec8 b) {
  return ~lanes_greater(a, b) & ((1U << kLanes) - 1);
}

// Index of the lowest set bit; lanes is not 0.
KELG729F_VEC int first_lane(unsigned lanes) {
  return __builtin_ctz(lanes);
}

// The bits of `lanes` above bit i.
KELG729F_VEC unsigned lanes_after(unsigned lanes, int i) {
  return lanes & (~1U << i);
}

// Lane i becomes v[i + 1], the last lane 0.
KELG729F_VEC Vec8 shift_down(Vec8 v) {
#if defined(KELG729F_PLAIN)
  for (int i = 0; i + 1 < kParts; ++i) v.part[i] = v.part[i + 1];
  v.part[kParts - 1] = 0.0;
#else
  for (int i = 0; i < kParts; ++i) {
    const Native next = i + 1 < kParts ? v.part[i + 1] : Native{};
#if defined(__AVX512F__)
    v.part[i] = __builtin_shufflevector(v.part[i], next, 1, 2, 3, 4, 5, 6, 7, 8);
#elif defined(__AVX__)
    v.part[i] = __builtin_shufflevector(v.part[i], next, 1, 2, 3, 4);
#else
    v.part[i] = __builtin_shufflevector(v.part[i], next, 1, 2);
#endif
  }
#endif
  return v;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
