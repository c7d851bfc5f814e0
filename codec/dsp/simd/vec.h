// Eight doubles at a time, whatever the machine's registers hold.
//
// Every kernel is written on Vec8 or on single doubles. A Vec8 is as many native vectors as make
// eight lanes: one with AVX-512, two with AVX, four with SSE2 or NEON, eight plain doubles when the
// build has vector code switched off. A lane never meets another lane except in slide(), which only
// moves, and in sum(), whose order is fixed; so every build yields the same doubles.
#pragma once

#if defined(__SSE2__) && !defined(KELG729F_PLAIN)
#include <immintrin.h>
#endif

namespace g729 {
inline namespace KELG729F_TARGET {

#if defined(KELG729F_PLAIN)
inline constexpr int kNativeLanes = 1;
using Native = double;
using NativeUnaligned = double;
using NativeMask = long long;
#else
#if defined(__AVX512F__)
inline constexpr int kNativeLanes = 8;
#elif defined(__AVX__)
inline constexpr int kNativeLanes = 4;
#else
inline constexpr int kNativeLanes = 2;
#endif
typedef double Native __attribute__((vector_size(8 * kNativeLanes)));
typedef double NativeUnaligned
    __attribute__((vector_size(8 * kNativeLanes), aligned(8), may_alias));
typedef long long NativeMask __attribute__((vector_size(8 * kNativeLanes)));
#endif

inline constexpr int kLanes = 8;
inline constexpr int kParts = kLanes / kNativeLanes;

struct Vec8 {
  Native part[kParts];
};

// Lane-wise truth: all bits of a lane set or clear (any non-zero or zero in the plain build).
struct Mask8 {
  NativeMask part[kParts];
};

#define KELG729F_VEC inline __attribute__((always_inline))

KELG729F_VEC Vec8 load(const double* p) {
  Vec8 r;
  for (int i = 0; i < kParts; ++i)
    r.part[i] = *reinterpret_cast<const NativeUnaligned*>(p + i * kNativeLanes);
  return r;
}

KELG729F_VEC void store(double* p, Vec8 v) {
  for (int i = 0; i < kParts; ++i)
    *reinterpret_cast<NativeUnaligned*>(p + i * kNativeLanes) = v.part[i];
}

KELG729F_VEC Vec8 splat(double x) {
  Vec8 r;
  // x - 0 is x for every x and compiles to a bare broadcast; 0 + x is not, for x = -0.
  for (int i = 0; i < kParts; ++i) r.part[i] = x - Native{};
  return r;
}

KELG729F_VEC Vec8 operator+(Vec8 a, Vec8 b) {
  for (int i = 0; i < kParts; ++i) a.part[i] += b.part[i];
  return a;
}
KELG729F_VEC Vec8 operator-(Vec8 a, Vec8 b) {
  for (int i = 0; i < kParts; ++i) a.part[i] -= b.part[i];
  return a;
}
KELG729F_VEC Vec8 operator*(Vec8 a, Vec8 b) {
  for (int i = 0; i < kParts; ++i) a.part[i] *= b.part[i];
  return a;
}
KELG729F_VEC Vec8 operator/(Vec8 a, Vec8 b) {
  for (int i = 0; i < kParts; ++i) a.part[i] /= b.part[i];
  return a;
}

KELG729F_VEC Mask8 operator<(Vec8 a, Vec8 b) {
  Mask8 m;
  for (int i = 0; i < kParts; ++i) m.part[i] = a.part[i] < b.part[i];
  return m;
}
KELG729F_VEC Mask8 operator>(Vec8 a, Vec8 b) {
  return b < a;
}
KELG729F_VEC Mask8 operator<=(Vec8 a, Vec8 b) {
  Mask8 m;
  for (int i = 0; i < kParts; ++i) m.part[i] = a.part[i] <= b.part[i];
  return m;
}

// Lane-wise m ? a : b.
KELG729F_VEC Vec8 select(Mask8 m, Vec8 a, Vec8 b) {
  Vec8 r;
  for (int i = 0; i < kParts; ++i) r.part[i] = m.part[i] ? a.part[i] : b.part[i];
  return r;
}

// Lane-wise square root.
KELG729F_VEC Vec8 square_root(Vec8 v) {
#if defined(KELG729F_PLAIN)
  for (int i = 0; i < kParts; ++i) v.part[i] = __builtin_sqrt(v.part[i]);
#elif defined(__AVX512F__)
  for (int i = 0; i < kParts; ++i) v.part[i] = _mm512_maskz_sqrt_pd(0xff, v.part[i]);
#elif defined(__AVX__)
  for (int i = 0; i < kParts; ++i) v.part[i] = _mm256_sqrt_pd(v.part[i]);
#elif defined(__SSE2__)
  for (int i = 0; i < kParts; ++i) v.part[i] = _mm_sqrt_pd(v.part[i]);
#else
  for (int i = 0; i < kParts; ++i)
    for (int k = 0; k < kNativeLanes; ++k) v.part[i][k] = __builtin_sqrt(v.part[i][k]);
#endif
  return v;
}

// Lane i is lane i - 1 of `v`; lane 0 is lane 7 of `before`. What a recursion needs that moves an
// array by one element from step to step.
KELG729F_VEC Vec8 slide(Vec8 before, Vec8 v) {
  Vec8 r;
  for (int i = 0; i < kParts; ++i) {
    const Native left = i == 0 ? before.part[kParts - 1] : v.part[i - 1];
#if defined(KELG729F_PLAIN)
    r.part[i] = left;
#elif defined(__AVX512F__)
    r.part[i] = __builtin_shufflevector(left, v.part[i], 7, 8, 9, 10, 11, 12, 13, 14);
#elif defined(__AVX__)
    r.part[i] = __builtin_shufflevector(left, v.part[i], 3, 4, 5, 6);
#else
    r.part[i] = __builtin_shufflevector(left, v.part[i], 1, 2);
#endif
  }
  return r;
}

// Sum of the lanes, always as ((0+4)+(2+6)) + ((1+5)+(3+7)).
KELG729F_VEC double sum(Vec8 v) {
#if defined(KELG729F_PLAIN)
  const double* t = v.part;
  return ((t[0] + t[4]) + (t[2] + t[6])) + ((t[1] + t[5]) + (t[3] + t[7]));
#else
#if defined(__AVX__)
#if defined(__AVX512F__)
  const Native all = v.part[0];
  const auto four =
      __builtin_shufflevector(all, all, 0, 1, 2, 3) + __builtin_shufflevector(all, all, 4, 5, 6, 7);
#else
  const auto four = v.part[0] + v.part[1];
#endif
  const auto two =
      __builtin_shufflevector(four, four, 0, 1) + __builtin_shufflevector(four, four, 2, 3);
#else
  const auto two = (v.part[0] + v.part[2]) + (v.part[1] + v.part[3]);
#endif
  return two[0] + two[1];
#endif
}

}  // namespace KELG729F_TARGET
}  // namespace g729
