// n values of T at a time, whatever the machine's registers hold.
//
// Every kernel is written on these or on single numbers. Eight doubles are as many registers as
// make eight lanes: one with AVX-512, two with AVX, four with SSE2 or NEON. No lane meets another
// one here; across.h has what makes them meet, and there they only move or are added up in a fixed
// order. So every build yields the same doubles.
#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

#include "codec/dsp/simd/intrinsics.h"

namespace g729 {
inline namespace KELG729F_TARGET {

template <typename T, int n>
struct Lanes {
  static constexpr int kPartLanes =
      (n * sizeof(T) < kRegisterBytes ? n : kRegisterBytes / static_cast<int>(sizeof(T)));
  static constexpr int kParts = n / kPartLanes;
  using Part = Register<T, kPartLanes>;
  typedef T UnalignedPart
      __attribute__((vector_size(sizeof(T) * kPartLanes), aligned(alignof(T)), may_alias));

  Part part[kParts];
};

inline constexpr int kLanes = 8;                         // doubles of a Vec8
inline constexpr int kFloatLanes = 2 * kLanes;           // floats or whole numbers in as many bytes
inline constexpr int kNativeLanes = kRegisterBytes / 8;  // doubles of a register

using Vec8 = Lanes<double, kLanes>;
using Float16 = Lanes<float, kFloatLanes>;
using Whole16 = Lanes<int32_t, kFloatLanes>;
using Pair = Lanes<double, 2>;
using Quad = Lanes<double, 4>;

// What load() and splat() make of a T: 64 bytes of it.
template <typename T>
using Full = Lanes<T, 8 * kLanes / static_cast<int>(sizeof(T))>;

// A comparison's result: all bits of a lane set or clear.
template <typename T, int n>
using Mask = Lanes<std::conditional_t<sizeof(T) == 8, int64_t, int32_t>, n>;

// load_as<V> and splat_as<V> also take a plain double for V: code that serves both is a template.
template <typename V, typename T>
KELG729F_VEC V load_as(const T* p) {
  if constexpr (std::is_same_v<V, T>) {
    return *p;
  } else {
    V v;
    for (int i = 0; i < V::kParts; ++i)
      v.part[i] = *reinterpret_cast<const typename V::UnalignedPart*>(p + i * V::kPartLanes);
    return v;
  }
}
template <typename T>
KELG729F_VEC Full<T> load(const T* p) {
  return load_as<Full<T>>(p);
}

template <typename T, int n>
KELG729F_VEC void store(T* p, Lanes<T, n> v) {
  using V = Lanes<T, n>;
  for (int i = 0; i < V::kParts; ++i)
    *reinterpret_cast<typename V::UnalignedPart*>(p + i * V::kPartLanes) = v.part[i];
}

template <typename V, typename T>
KELG729F_VEC V splat_as(T x) {
  if constexpr (std::is_same_v<V, T>) {
    return x;
  } else {
    V v;
    // x - 0 is x for every x and compiles to a bare broadcast; 0 + x is not, for x = -0.
    for (auto& part : v.part) part = x - typename V::Part{};
    return v;
  }
}
template <typename T>
KELG729F_VEC Full<T> splat(T x) {
  return splat_as<Full<T>>(x);
}

KELG729F_VEC Pair pair(double a, double b) {
  return {{Pair::Part{a, b}}};
}

// Lane i.
template <typename T, int n>
KELG729F_VEC T lane(Lanes<T, n> v, int i) {
  return v.part[i / v.kPartLanes][i % v.kPartLanes];
}

#define KELG729F_OPERATOR(op)                                              \
  template <typename T, int n>                                             \
  KELG729F_VEC Lanes<T, n> operator op(Lanes<T, n> a, Lanes<T, n> b) {     \
    for (int i = 0; i < a.kParts; ++i) a.part[i] = a.part[i] op b.part[i]; \
    return a;                                                              \
  }
KELG729F_OPERATOR(+)
KELG729F_OPERATOR(-)
KELG729F_OPERATOR(*)
KELG729F_OPERATOR(/)
KELG729F_OPERATOR(&)
KELG729F_OPERATOR(|)
#undef KELG729F_OPERATOR

#define KELG729F_COMPARISON(op)                                            \
  template <typename T, int n>                                             \
  KELG729F_VEC Mask<T, n> operator op(Lanes<T, n> a, Lanes<T, n> b) {      \
    Mask<T, n> m;                                                          \
    for (int i = 0; i < a.kParts; ++i) m.part[i] = a.part[i] op b.part[i]; \
    return m;                                                              \
  }
KELG729F_COMPARISON(<)
KELG729F_COMPARISON(>)
KELG729F_COMPARISON(<=)
#undef KELG729F_COMPARISON

#define KELG729F_SHIFT(op)                                        \
  template <typename T, int n>                                    \
  KELG729F_VEC Lanes<T, n> operator op(Lanes<T, n> v, int bits) { \
    for (auto& part : v.part) part = part op bits;                \
    return v;                                                     \
  }
KELG729F_SHIFT(<<)
KELG729F_SHIFT(>>)
#undef KELG729F_SHIFT

// Lane-wise m ? a : b.
template <typename M, typename T, int n>
KELG729F_VEC Lanes<T, n> select(Lanes<M, n> m, Lanes<T, n> a, Lanes<T, n> b) {
  for (int i = 0; i < a.kParts; ++i) a.part[i] = m.part[i] ? a.part[i] : b.part[i];
  return a;
}
KELG729F_VEC double select(bool m, double a, double b) {
  return m ? a : b;
}

// Lane-wise a < b ? a : b and a > b ? a : b. Which one it is when they cannot be compared depends
// on the machine with floats; with doubles it is b.
template <typename T, int n>
KELG729F_VEC Lanes<T, n> smaller(Lanes<T, n> a, Lanes<T, n> b) {
  for (int i = 0; i < a.kParts; ++i) a.part[i] = register_smaller(a.part[i], b.part[i]);
  return a;
}
template <typename T, int n>
KELG729F_VEC Lanes<T, n> larger(Lanes<T, n> a, Lanes<T, n> b) {
  for (int i = 0; i < a.kParts; ++i) a.part[i] = register_larger(a.part[i], b.part[i]);
  return a;
}

// Lane-wise square root.
KELG729F_VEC Vec8 square_root(Vec8 v) {
  for (auto& part : v.part) part = register_root(part);
  return v;
}

// Single precision rules out what cannot be the result, and double precision decides among what is
// left; so no result depends on what follows.

// 1 / v, off by 2^-11.4 of it at most, and by more or less from machine to machine.
KELG729F_VEC Float16 reciprocal(Float16 v) {
  for (auto& part : v.part) part = register_reciprocal(part);
  return v;
}

// Lane-wise the product of the low 16 bits plus that of the high ones: sums of products of rounded
// numbers, exact and twice as fast as with floats.
KELG729F_VEC Whole16 multiply_halves(Whole16 a, Whole16 b) {
  for (int i = 0; i < a.kParts; ++i) a.part[i] = register_multiply_halves(a.part[i], b.part[i]);
  return a;
}

// Lane-wise low + 65536 high, both within 16 bits.
KELG729F_VEC Whole16 join_halves(Whole16 low, Whole16 high) {
  return (low & splat(0xFFFF)) | (high << 16);
}

// Rounded towards zero when To is whole; within its range.
template <typename To, typename From, int n>
KELG729F_VEC Lanes<To, n> convert(Lanes<From, n> v) {
  static_assert(sizeof(To) == sizeof(From));
  Lanes<To, n> r;
  for (int i = 0; i < v.kParts; ++i)
    r.part[i] = __builtin_convertvector(v.part[i], typename Lanes<To, n>::Part);
  return r;
}

// The bits of every lane taken for a To.
template <typename To, typename From, int n>
KELG729F_VEC Lanes<To, n> bits_as(Lanes<From, n> v) {
  static_assert(sizeof(To) == sizeof(From));
  return std::bit_cast<Lanes<To, n>>(v);
}

// Every lane with its last bits replaced by those of `low`, which is below 2^count.
KELG729F_VEC Float16 with_low_bits(Float16 v, unsigned count, Whole16 low) {
  const auto keep = static_cast<int32_t>(~0U << count);
  return bits_as<float>((bits_as<int32_t>(v) & splat(keep)) | low);
}
KELG729F_VEC unsigned low_bits(float x, unsigned count) {
  return std::bit_cast<unsigned>(x) & ~(~0U << count);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
