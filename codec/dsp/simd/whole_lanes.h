// Sixteen 32-bit integers at a time, each also taken for two 16-bit ones: sums of products of
// rounded numbers, exact and twice as fast as with floats. For screens, as float_lanes.h.
#pragma once

#include <bit>
#include <cstdint>

#include "codec/dsp/simd/float_lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {

#if defined(KELG729F_PLAIN)
using NativeWhole = int32_t;
using NativeWholeUnaligned = int32_t;
#else
typedef int32_t NativeWhole __attribute__((vector_size(8 * kNativeLanes)));
typedef int32_t NativeWholeUnaligned
    __attribute__((vector_size(8 * kNativeLanes), aligned(4), may_alias));
#endif

struct Whole16 {
  NativeWhole part[kFloatParts];
};

KELG729F_VEC Whole16 load(const int32_t* p) {
  Whole16 r;
  for (int i = 0; i < kFloatParts; ++i)
    r.part[i] = *reinterpret_cast<const NativeWholeUnaligned*>(p + i * kFloatLanes / kFloatParts);
  return r;
}

KELG729F_VEC void store(int32_t* p, Whole16 v) {
  for (int i = 0; i < kFloatParts; ++i)
    *reinterpret_cast<NativeWholeUnaligned*>(p + i * kFloatLanes / kFloatParts) = v.part[i];
}

KELG729F_VEC Whole16 splat(int32_t x) {
  Whole16 r;
  for (int i = 0; i < kFloatParts; ++i) r.part[i] = NativeWhole{} + x;
  return r;
}

KELG729F_VEC Whole16 operator+(Whole16 a, Whole16 b) {
  for (int i = 0; i < kFloatParts; ++i) a.part[i] += b.part[i];
  return a;
}

// Lane-wise the product of the low halves plus that of the high ones.
KELG729F_VEC Whole16 multiply_halves(Whole16 a, Whole16 b) {
  for (int i = 0; i < kFloatParts; ++i) {
#if !defined(KELG729F_PLAIN) && defined(__AVX512BW__)
    a.part[i] = reinterpret_cast<NativeWhole>(_mm512_madd_epi16(
        reinterpret_cast<__m512i>(a.part[i]), reinterpret_cast<__m512i>(b.part[i])));
#elif !defined(KELG729F_PLAIN) && defined(__AVX2__)
    a.part[i] = reinterpret_cast<NativeWhole>(_mm256_madd_epi16(
        reinterpret_cast<__m256i>(a.part[i]), reinterpret_cast<__m256i>(b.part[i])));
#elif !defined(KELG729F_PLAIN) && defined(__SSE2__)
    a.part[i] = reinterpret_cast<NativeWhole>(
        _mm_madd_epi16(reinterpret_cast<__m128i>(a.part[i]), reinterpret_cast<__m128i>(b.part[i])));
#else
    constexpr int kHalf = 16;
    a.part[i] = ((a.part[i] << kHalf) >> kHalf) * ((b.part[i] << kHalf) >> kHalf) +
                (a.part[i] >> kHalf) * (b.part[i] >> kHalf);
#endif
  }
  return a;
}

// Lane-wise low + 65536 high, both within 16 bits.
KELG729F_VEC Whole16 join_halves(Whole16 low, Whole16 high) {
  for (int i = 0; i < kFloatParts; ++i) low.part[i] = (low.part[i] & 0xFFFF) | (high.part[i] << 16);
  return low;
}

// Lane i is lane i + 1 of `v`; the last lane is lane 0 of `after`.
KELG729F_VEC Whole16 next_lanes(Whole16 v, Whole16 after) {
  Whole16 r;
  for (int i = 0; i < kFloatParts; ++i) {
    const NativeWhole a = v.part[i], b = i + 1 < kFloatParts ? v.part[i + 1] : after.part[0];
#if defined(KELG729F_PLAIN)
    static_cast<void>(a);
    r.part[i] = b;
#elif defined(__AVX512F__)
    r.part[i] =
        __builtin_shufflevector(a, b, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
#elif defined(__AVX__)
    r.part[i] = __builtin_shufflevector(a, b, 1, 2, 3, 4, 5, 6, 7, 8);
#else
    r.part[i] = __builtin_shufflevector(a, b, 1, 2, 3, 4);
#endif
  }
  return r;
}

// Rounded towards zero; within 32 bits.
KELG729F_VEC Whole16 truncate(Float16 v) {
  Whole16 r;
  for (int i = 0; i < kFloatParts; ++i)
#if defined(KELG729F_PLAIN)
    r.part[i] = static_cast<int32_t>(v.part[i]);
#else
    r.part[i] = __builtin_convertvector(v.part[i], NativeWhole);
#endif
  return r;
}

KELG729F_VEC Float16 to_floats(Whole16 v) {
  Float16 r;
  for (int i = 0; i < kFloatParts; ++i)
#if defined(KELG729F_PLAIN)
    r.part[i] = static_cast<float>(v.part[i]);
#else
    r.part[i] = __builtin_convertvector(v.part[i], NativeFloat);
#endif
  return r;
}

// Every lane with its last n bits replaced by those of `low`, which is below 2^n.
KELG729F_VEC Float16 with_low_bits(Float16 v, unsigned n, Whole16 low) {
  const auto keep = static_cast<int32_t>(~0U << n);
  for (int i = 0; i < kFloatParts; ++i) {
#if defined(KELG729F_PLAIN)
    v.part[i] = std::bit_cast<float>((std::bit_cast<int32_t>(v.part[i]) & keep) | low.part[i]);
#else
    v.part[i] = reinterpret_cast<NativeFloat>((reinterpret_cast<NativeWhole>(v.part[i]) & keep) |
                                              low.part[i]);
#endif
  }
  return v;
}
KELG729F_VEC unsigned low_bits(float x, unsigned n) {
  return std::bit_cast<unsigned>(x) & ~(~0U << n);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
