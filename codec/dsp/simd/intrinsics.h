// One register of the machine: what the compiler's vector extensions do not say, or say slowly.
// This is the only header that knows machines; each operation has a plain form for all others.
#pragma once

#include <cstdint>
#include <utility>

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#define KELG729F_VEC inline __attribute__((always_inline))

namespace g729 {
inline namespace KELG729F_TARGET {

#if defined(__AVX512F__)
inline constexpr int kRegisterBytes = 64;
#elif defined(__AVX__)
inline constexpr int kRegisterBytes = 32;
#else
inline constexpr int kRegisterBytes = 16;
#endif

// n values of T as the compiler's vector.
template <typename T, int n>
struct RegisterOf {
  typedef T Type __attribute__((vector_size(sizeof(T) * n)));
};
template <typename T, int n>
using Register = typename RegisterOf<T, n>::Type;

using Double2 = Register<double, 2>;
using Float4 = Register<float, 4>;
using Int4 = Register<int32_t, 4>;
#if defined(__AVX__)
using Double4 = Register<double, 4>;
using Float8 = Register<float, 8>;
using Int8 = Register<int32_t, 8>;
#endif
#if defined(__AVX512F__)
using Double8 = Register<double, 8>;
using Float16Register = Register<float, 16>;
using Int16Register = Register<int32_t, 16>;
#endif

// Lanes of a and b, those of b numbered after those of a.
template <typename V, int... lane>
KELG729F_VEC auto pick(V a, V b, std::integer_sequence<int, lane...>) {
  return __builtin_shufflevector(a, b, lane...);
}

// first, first + 1, ..., first + n - 1.
template <int first, int... i>
constexpr auto counting(std::integer_sequence<int, i...>) {
  return std::integer_sequence<int, first + i...>();
}
template <int first, int n>
using Counting = decltype(counting<first>(std::make_integer_sequence<int, n>()));

// The plain forms, for what has no overload below.

template <typename V>
KELG729F_VEC V register_root(V v) {
  for (unsigned i = 0; i < sizeof v / sizeof v[0]; ++i) v[i] = __builtin_sqrt(v[i]);
  return v;
}

// a < b ? a : b and a > b ? a : b. The compiler would at times compare and then blend, which takes
// three times as long in a chain.
template <typename V>
KELG729F_VEC V register_smaller(V a, V b) {
  return a < b ? a : b;
}
template <typename V>
KELG729F_VEC V register_larger(V a, V b) {
  return a > b ? a : b;
}

// 1 / v, off by 2^-11.4 of it at most.
template <typename V>
KELG729F_VEC V register_reciprocal(V v) {
  return 1.0F / v;
}

// The product of the low halves plus that of the high ones.
template <typename V>
KELG729F_VEC V register_multiply_halves(V a, V b) {
  constexpr int kHalf = 16;
  return ((a << kHalf) >> kHalf) * ((b << kHalf) >> kHalf) + (a >> kHalf) * (b >> kHalf);
}

// Lanes first, first + 1, ... of a followed by b.
template <int first, typename V>
KELG729F_VEC V register_window(V a, V b) {
  return pick(a, b, Counting<first, sizeof a / sizeof a[0]>());
}

// a followed by b.
template <typename V>
KELG729F_VEC auto register_join(V a, V b) {
  return pick(a, b, Counting<0, 2 * sizeof a / sizeof a[0]>());
}

// Bit i is set when lane i of a mask is.
template <typename V>
KELG729F_VEC unsigned register_bits(V mask) {
  unsigned bits = 0;
  for (unsigned i = 0; i < sizeof mask / sizeof mask[0]; ++i)
    bits |= static_cast<unsigned>(mask[i] & 1) << i;
  return bits;
}

#if defined(__SSE2__)

KELG729F_VEC Double2 register_root(Double2 v) {
  return _mm_sqrt_pd(v);
}
KELG729F_VEC Double2 register_smaller(Double2 a, Double2 b) {
  return _mm_min_pd(a, b);
}
KELG729F_VEC Float4 register_smaller(Float4 a, Float4 b) {
  return _mm_min_ps(a, b);
}
KELG729F_VEC Float4 register_larger(Float4 a, Float4 b) {
  return _mm_max_ps(a, b);
}
KELG729F_VEC Float4 register_reciprocal(Float4 v) {
  return _mm_rcp_ps(v);
}
KELG729F_VEC Int4 register_multiply_halves(Int4 a, Int4 b) {
  return reinterpret_cast<Int4>(
      _mm_madd_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
}
KELG729F_VEC unsigned register_bits(Register<int64_t, 2> mask) {
  return static_cast<unsigned>(_mm_movemask_pd(reinterpret_cast<__m128d>(mask)));
}
KELG729F_VEC unsigned register_bits(Int4 mask) {
  return static_cast<unsigned>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
}

#if defined(__AVX__)
KELG729F_VEC Double4 register_join(Double2 a, Double2 b) {
  return _mm256_insertf128_pd(_mm256_castpd128_pd256(a), b, 1);
}
KELG729F_VEC Double4 register_root(Double4 v) {
  return _mm256_sqrt_pd(v);
}
KELG729F_VEC Double4 register_smaller(Double4 a, Double4 b) {
  return _mm256_min_pd(a, b);
}
KELG729F_VEC Float8 register_smaller(Float8 a, Float8 b) {
  return _mm256_min_ps(a, b);
}
KELG729F_VEC Float8 register_larger(Float8 a, Float8 b) {
  return _mm256_max_ps(a, b);
}
KELG729F_VEC Float8 register_reciprocal(Float8 v) {
  return _mm256_rcp_ps(v);
}
KELG729F_VEC unsigned register_bits(Register<int64_t, 4> mask) {
  return static_cast<unsigned>(_mm256_movemask_pd(reinterpret_cast<__m256d>(mask)));
}
KELG729F_VEC unsigned register_bits(Int8 mask) {
  return static_cast<unsigned>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask)));
}
#if defined(__AVX2__)
KELG729F_VEC Int8 register_multiply_halves(Int8 a, Int8 b) {
  return reinterpret_cast<Int8>(
      _mm256_madd_epi16(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
}
#endif
#endif

#if defined(__AVX512F__)
// The masked forms leave no lane undefined.
KELG729F_VEC Double8 register_root(Double8 v) {
  return _mm512_maskz_sqrt_pd(0xff, v);
}
KELG729F_VEC Double8 register_smaller(Double8 a, Double8 b) {
  return _mm512_maskz_min_pd(0xff, a, b);
}
KELG729F_VEC Float16Register register_smaller(Float16Register a, Float16Register b) {
  return _mm512_maskz_min_ps(0xffff, a, b);
}
KELG729F_VEC Float16Register register_larger(Float16Register a, Float16Register b) {
  return _mm512_maskz_max_ps(0xffff, a, b);
}
KELG729F_VEC Float16Register register_reciprocal(Float16Register v) {
  return _mm512_maskz_rcp14_ps(0xffff, v);
}
KELG729F_VEC Int16Register register_multiply_halves(Int16Register a, Int16Register b) {
  return reinterpret_cast<Int16Register>(
      _mm512_madd_epi16(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
}
template <int first>
KELG729F_VEC Double8 register_window(Double8 a, Double8 b) {
  const auto low = reinterpret_cast<__m512i>(a), high = reinterpret_cast<__m512i>(b);
  return reinterpret_cast<Double8>(_mm512_maskz_alignr_epi64(0xff, high, low, first));
}
template <int first>
KELG729F_VEC Int16Register register_window(Int16Register a, Int16Register b) {
  const auto low = reinterpret_cast<__m512i>(a), high = reinterpret_cast<__m512i>(b);
  return reinterpret_cast<Int16Register>(_mm512_maskz_alignr_epi32(0xffff, high, low, first));
}
KELG729F_VEC Float16Register register_join(Float8 a, Float8 b) {
  return _mm512_insertf32x8(_mm512_castps256_ps512(a), b, 1);
}
#endif
#endif

#if defined(__aarch64__)

KELG729F_VEC Double2 register_root(Double2 v) {
  return vsqrtq_f64(v);
}
// The minimum and maximum that leave out what is not a number; for finite values the plain forms.
KELG729F_VEC Float4 register_smaller(Float4 a, Float4 b) {
  return vminnmq_f32(a, b);
}
KELG729F_VEC Float4 register_larger(Float4 a, Float4 b) {
  return vmaxnmq_f32(a, b);
}
// The estimate has 8 bits, a step of Newton's doubles them.
KELG729F_VEC Float4 register_reciprocal(Float4 v) {
  const float32x4_t estimate = vrecpeq_f32(v);
  return vmulq_f32(estimate, vrecpsq_f32(v, estimate));
}
KELG729F_VEC Int4 register_multiply_halves(Int4 a, Int4 b) {
  const int16x8_t x = vreinterpretq_s16_s32(a), y = vreinterpretq_s16_s32(b);
  return vpaddq_s32(vmull_s16(vget_low_s16(x), vget_low_s16(y)), vmull_high_s16(x, y));
}

#endif

// Bit i of the comparison of lanes i, those of the first registers first.

template <typename V, int n>
KELG729F_VEC unsigned mask_bits(const V (&mask)[n]) {
  unsigned bits = 0;
  for (unsigned i = 0; i < n; ++i)
    bits |= register_bits(mask[i]) << (i * sizeof mask[0] / sizeof mask[0][0]);
  return bits;
}

#if defined(__aarch64__)
// A weight for each lane, and the sum of what is left of them.
KELG729F_VEC unsigned mask_bits(const Register<int64_t, 2> (&mask)[4]) {
  const auto half = [&](int i) {
    return vreinterpretq_s16_s32(
        vuzp1q_s32(vreinterpretq_s32_s64(mask[i]), vreinterpretq_s32_s64(mask[i + 1])));
  };
  const uint16x8_t weight = {1, 2, 4, 8, 16, 32, 64, 128};
  return vaddvq_u16(vandq_u16(vreinterpretq_u16_s16(vuzp1q_s16(half(0), half(2))), weight));
}
KELG729F_VEC unsigned mask_bits(const Int4 (&mask)[4]) {
  const auto half = [&](int i) {
    return vreinterpretq_u8_s16(
        vuzp1q_s16(vreinterpretq_s16_s32(mask[i]), vreinterpretq_s16_s32(mask[i + 1])));
  };
  const uint8x16_t weight = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
  uint8x16_t sum = vandq_u8(vuzp1q_u8(half(0), half(2)), weight);
  for (int halvings = 0; halvings < 3; ++halvings) sum = vpaddq_u8(sum, sum);
  return vgetq_lane_u16(vreinterpretq_u16_u8(sum), 0);
}
#endif

template <typename V, int n>
KELG729F_VEC unsigned less_bits(const V (&a)[n], const V (&b)[n]) {
  decltype(a[0] < b[0]) mask[n];
  for (int i = 0; i < n; ++i) mask[i] = a[i] < b[i];
  return mask_bits(mask);
}
template <typename V, int n>
KELG729F_VEC unsigned at_most_bits(const V (&a)[n], const V (&b)[n]) {
  decltype(a[0] <= b[0]) mask[n];
  for (int i = 0; i < n; ++i) mask[i] = a[i] <= b[i];
  return mask_bits(mask);
}

#if defined(__AVX512F__)
KELG729F_VEC unsigned less_bits(const Double8 (&a)[1], const Double8 (&b)[1]) {
  return _mm512_cmp_pd_mask(a[0], b[0], _CMP_LT_OQ);
}
KELG729F_VEC unsigned at_most_bits(const Double8 (&a)[1], const Double8 (&b)[1]) {
  return _mm512_cmp_pd_mask(a[0], b[0], _CMP_LE_OQ);
}
KELG729F_VEC unsigned at_most_bits(const Float16Register (&a)[1], const Float16Register (&b)[1]) {
  return _mm512_cmp_ps_mask(a[0], b[0], _CMP_LE_OQ);
}
#endif

}  // namespace KELG729F_TARGET
}  // namespace g729
