// Sixteen floats at a time, to rule out in single precision what cannot be the result; what is left
// is decided in double precision, so no result depends on these. As many parts as a Vec8 has.
#pragma once

#include "codec/dsp/simd/vec.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kFloatLanes = 2 * kLanes;

#if defined(KELG729F_PLAIN)
inline constexpr int kFloatParts = kFloatLanes;
using NativeFloat = float;
using NativeFloatUnaligned = float;
#else
inline constexpr int kFloatParts = kParts;
typedef float NativeFloat __attribute__((vector_size(8 * kNativeLanes)));
typedef float NativeFloatUnaligned
    __attribute__((vector_size(8 * kNativeLanes), aligned(4), may_alias));
#endif

struct Float16 {
  NativeFloat part[kFloatParts];
};

KELG729F_VEC Float16 load(const float* p) {
  Float16 r;
  for (int i = 0; i < kFloatParts; ++i)
    r.part[i] = *reinterpret_cast<const NativeFloatUnaligned*>(p + i * kFloatLanes / kFloatParts);
  return r;
}

KELG729F_VEC void store(float* p, Float16 v) {
  for (int i = 0; i < kFloatParts; ++i)
    *reinterpret_cast<NativeFloatUnaligned*>(p + i * kFloatLanes / kFloatParts) = v.part[i];
}

KELG729F_VEC Float16 splat(float x) {
  Float16 r;
  for (int i = 0; i < kFloatParts; ++i) r.part[i] = x - NativeFloat{};
  return r;
}

KELG729F_VEC Float16 operator+(Float16 a, Float16 b) {
  for (int i = 0; i < kFloatParts; ++i) a.part[i] += b.part[i];
  return a;
}
KELG729F_VEC Float16 operator-(Float16 a, Float16 b) {
  for (int i = 0; i < kFloatParts; ++i) a.part[i] -= b.part[i];
  return a;
}
KELG729F_VEC Float16 operator*(Float16 a, Float16 b) {
  for (int i = 0; i < kFloatParts; ++i) a.part[i] *= b.part[i];
  return a;
}

// a < b ? a : b and a > b ? a : b. The compiler would at times compare and then blend, which
// takes three times as long in a chain.
KELG729F_VEC Float16 smaller(Float16 a, Float16 b) {
  for (int i = 0; i < kFloatParts; ++i) {
#if !defined(KELG729F_PLAIN) && defined(__AVX512F__)
    a.part[i] = _mm512_maskz_min_ps(0xffff, a.part[i], b.part[i]);
#elif !defined(KELG729F_PLAIN) && defined(__AVX__)
    a.part[i] = _mm256_min_ps(a.part[i], b.part[i]);
#elif !defined(KELG729F_PLAIN) && defined(__SSE2__)
    a.part[i] = _mm_min_ps(a.part[i], b.part[i]);
#else
    a.part[i] = a.part[i] < b.part[i] ? a.part[i] : b.part[i];
#endif
  }
  return a;
}
KELG729F_VEC Float16 larger(Float16 a, Float16 b) {
  for (int i = 0; i < kFloatParts; ++i) {
#if !defined(KELG729F_PLAIN) && defined(__AVX512F__)
    a.part[i] = _mm512_maskz_max_ps(0xffff, a.part[i], b.part[i]);
#elif !defined(KELG729F_PLAIN) && defined(__AVX__)
    a.part[i] = _mm256_max_ps(a.part[i], b.part[i]);
#elif !defined(KELG729F_PLAIN) && defined(__SSE2__)
    a.part[i] = _mm_max_ps(a.part[i], b.part[i]);
#else
    a.part[i] = a.part[i] > b.part[i] ? a.part[i] : b.part[i];
#endif
  }
  return a;
}

// Lane i is a[i] where that is below b[i], else c[i].
KELG729F_VEC Float16 below_or(Float16 a, Float16 b, Float16 c) {
  for (int i = 0; i < kFloatParts; ++i) a.part[i] = a.part[i] < b.part[i] ? a.part[i] : c.part[i];
  return a;
}

// 1 / v, off by 2^-11.4 of it at most, and by more or less from machine to machine.
KELG729F_VEC Float16 reciprocal(Float16 v) {
  for (int i = 0; i < kFloatParts; ++i) {
#if defined(KELG729F_PLAIN) || !defined(__SSE2__)
    v.part[i] = 1.0F / v.part[i];
#elif defined(__AVX512F__)
    v.part[i] = _mm512_maskz_rcp14_ps(0xffff, v.part[i]);
#elif defined(__AVX__)
    v.part[i] = _mm256_rcp_ps(v.part[i]);
#else
    v.part[i] = _mm_rcp_ps(v.part[i]);
#endif
  }
  return v;
}

// Smallest of the lanes.
KELG729F_VEC float smallest_lane(Float16 v) {
  NativeFloat least = v.part[0];
  for (int i = 1; i < kFloatParts; ++i) least = least < v.part[i] ? least : v.part[i];
#if defined(KELG729F_PLAIN)
  return least;
#else
#if defined(__AVX512F__)
  const auto low8 = __builtin_shufflevector(least, least, 0, 1, 2, 3, 4, 5, 6, 7);
  const auto high8 = __builtin_shufflevector(least, least, 8, 9, 10, 11, 12, 13, 14, 15);
  const auto eight = low8 < high8 ? low8 : high8;
#else
  const auto eight = least;
#endif
#if defined(__AVX__)
  const auto low4 = __builtin_shufflevector(eight, eight, 0, 1, 2, 3);
  const auto high4 = __builtin_shufflevector(eight, eight, 4, 5, 6, 7);
  const auto four = low4 < high4 ? low4 : high4;
#else
  const auto four = eight;
#endif
  const auto swapped = __builtin_shufflevector(four, four, 2, 3, 0, 1);
  const auto two = four < swapped ? four : swapped;
  return two[0] < two[1] ? two[0] : two[1];
#endif
}

KELG729F_VEC float largest_lane(Float16 v) {
  return -smallest_lane(splat(0.0F) - v);
}

// Sum of the lanes, in any order.
KELG729F_VEC float sum(Float16 v) {
  float t[kFloatLanes];
  store(t, v);
  for (int half = kFloatLanes / 2; half > 0; half /= 2)
    for (int i = 0; i < half; ++i) t[i] += t[i + half];
  return t[0];
}

// Lanes 0..7 are `low` rounded to floats, lanes 8..15 are `high`.
KELG729F_VEC Float16 narrow(Vec8 low, Vec8 high) {
  Float16 r;
#if defined(KELG729F_PLAIN)
  for (int i = 0; i < kLanes; ++i) {
    r.part[i] = static_cast<float>(low.part[i]);
    r.part[kLanes + i] = static_cast<float>(high.part[i]);
  }
#else
  typedef float Half __attribute__((vector_size(4 * kNativeLanes)));
  const auto half = [&](int i) {
    return __builtin_convertvector(i < kParts ? low.part[i] : high.part[i - kParts], Half);
  };
  for (int i = 0; i < kParts; ++i) {
    const Half first = half(2 * i), second = half(2 * i + 1);
#if defined(__AVX512F__)
    r.part[i] = _mm512_insertf32x8(_mm512_castps256_ps512(first), second, 1);
#elif defined(__AVX__)
    r.part[i] = __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
#else
    r.part[i] = __builtin_shufflevector(first, second, 0, 1, 2, 3);
#endif
  }
#endif
  return r;
}

// Bit i is set when a[i] <= b[i].
KELG729F_VEC unsigned lanes_at_most(Float16 a, Float16 b) {
#if !defined(KELG729F_PLAIN) && defined(__AVX512F__)
  return _mm512_cmp_ps_mask(a.part[0], b.part[0], _CMP_LE_OQ);
#else
  unsigned bits = 0;
  for (int i = 0; i < kFloatParts; ++i) {
#if defined(KELG729F_PLAIN)
    const int part = a.part[i] <= b.part[i];
#elif defined(__AVX__)
    const int part = _mm256_movemask_ps(_mm256_cmp_ps(a.part[i], b.part[i], _CMP_LE_OQ));
#elif defined(__SSE2__)
    const int part = _mm_movemask_ps(_mm_cmple_ps(a.part[i], b.part[i]));
#else
    int part = 0;
    for (int k = 0; k < kFloatLanes / kFloatParts; ++k) part |= (a.part[i][k] <= b.part[i][k]) << k;
#endif
    bits |= static_cast<unsigned>(part) << (i * kFloatLanes / kFloatParts);
  }
  return bits;
#endif
}

// Bit i is set unless a[i] <= b[i]: also when the two cannot be compared.
KELG729F_VEC unsigned lanes_above(Float16 a, Float16 b) {
  return ~lanes_at_most(a, b) & ((1U << kFloatLanes) - 1);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
