// Operations in which lanes meet. They move or compare, which never rounds, or add up in an order
// that is the same in every build.
#pragma once

#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Lane i is lane(i). What lane() reads may just have been stored as vectors: single loads get it
// without a stall, which storing the lanes and loading them as vectors does not.
template <typename V = Vec8, typename F>
KELG729F_VEC V from_lanes(const F& lane) {
  V v;
  [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
    for (int p = 0; p < V::kParts; ++p)
      v.part[p] = typename V::Part{lane(p * V::kPartLanes + i)...};
  }
  (std::make_integer_sequence<int, V::kPartLanes>());
  return v;
}

KELG729F_VEC Quad quad(double a, double b, double c, double d) {
  const double x[] = {a, b, c, d};
  return from_lanes<Quad>([&](int i) { return x[i]; });
}

// The lanes first, first + 1, ... of a followed by b, as many as a has.
template <int first, typename T, int n>
KELG729F_VEC Lanes<T, n> window(Lanes<T, n> a, Lanes<T, n> b) {
  constexpr int kCount = a.kPartLanes, kSkipped = first / kCount, kShift = first % kCount;
  const auto part = [&](int i) { return i < a.kParts ? a.part[i] : b.part[i - a.kParts]; };
  Lanes<T, n> v;
  for (int i = 0; i < a.kParts; ++i) {
    if constexpr (kShift == 0)
      v.part[i] = part(i + kSkipped);
    else
      v.part[i] = register_window<kShift>(part(i + kSkipped), part(i + kSkipped + 1));
  }
  return v;
}

// Lane i is lane i - 1 of `v`; lane 0 is the last one of `before`. What a recursion needs that
// moves an array by one element from step to step.
KELG729F_VEC Vec8 slide(Vec8 before, Vec8 v) {
  return window<kLanes - 1>(before, v);
}
// Lane i is lane i + 1 of `v`; the last lane is lane 0 of `after`.
template <typename T, int n>
KELG729F_VEC Lanes<T, n> next_lanes(Lanes<T, n> v, Lanes<T, n> after = {}) {
  return window<1>(v, after);
}

// The lanes first, first + 1, ..., half as many as v has.
template <int first, typename T, int n>
KELG729F_VEC Lanes<T, n / 2> half(Lanes<T, n> v) {
  using Half = Lanes<T, n / 2>;
  Half h;
  if constexpr (v.kParts == 1)
    h.part[0] = pick(v.part[0], v.part[0], Counting<first, n / 2>());
  else
    for (int i = 0; i < h.kParts; ++i) h.part[i] = v.part[first / v.kPartLanes + i];
  return h;
}
template <typename T, int n>
KELG729F_VEC auto low(Lanes<T, n> v) {
  return half<0>(v);
}
template <typename T, int n>
KELG729F_VEC auto high(Lanes<T, n> v) {
  return half<n / 2>(v);
}
template <typename T, int n>
KELG729F_VEC Lanes<T, 2 * n> concat(Lanes<T, n> a, Lanes<T, n> b) {
  Lanes<T, 2 * n> v;
  if constexpr (v.kParts == 1)
    v.part[0] = register_join(a.part[0], b.part[0]);
  else
    for (int i = 0; i < v.kParts; ++i) v.part[i] = i < a.kParts ? a.part[i] : b.part[i - a.kParts];
  return v;
}

// Of every two lanes the first (k = 0) or the second one (k = 1), twice.
template <int k, int n>
KELG729F_VEC Lanes<double, n> both(Lanes<double, n> v) {
  for (auto& part : v.part) {
    if constexpr (v.kPartLanes == 2)
      part = pick(part, part, std::integer_sequence<int, k, k>());
    else
      part = pick(part, part, std::integer_sequence<int, k, k, k + 2, k + 2>());
  }
  return v;
}

// Sum of the lanes, always the lower half plus the upper half: ((0+4)+(2+6)) + ((1+5)+(3+7)).
template <typename T, int n>
KELG729F_VEC T sum(Lanes<T, n> v) {
  if constexpr (n == 2)
    return lane(v, 0) + lane(v, 1);
  else
    return sum(low(v) + high(v));
}

// The smallest and the largest lane.
template <typename T, int n>
KELG729F_VEC T smallest_lane(Lanes<T, n> v) {
  if constexpr (n == 2)
    return lane(v, 0) < lane(v, 1) ? lane(v, 0) : lane(v, 1);
  else
    return smallest_lane(smaller(low(v), high(v)));
}
template <typename T, int n>
KELG729F_VEC T largest_lane(Lanes<T, n> v) {
  return -smallest_lane(splat(T{}) - v);
}

// Bit i is set when a[i] > b[i].
template <typename T, int n>
KELG729F_VEC unsigned lanes_greater(Lanes<T, n> a, Lanes<T, n> b) {
  return less_bits(b.part, a.part);
}
// Bit i is set when a[i] <= b[i].
template <typename T, int n>
KELG729F_VEC unsigned lanes_at_most(Lanes<T, n> a, Lanes<T, n> b) {
  return at_most_bits(a.part, b.part);
}

// Index of the lowest set bit; lanes is not 0.
KELG729F_VEC int first_lane(unsigned lanes) {
  return __builtin_ctz(lanes);
}
// Lanes 0..7 are `low` rounded to floats, lanes 8..15 are `high`.
KELG729F_VEC Float16 narrow(Vec8 low, Vec8 high) {
  const auto rounded = [&](int i) {
    return __builtin_convertvector(i < Vec8::kParts ? low.part[i] : high.part[i - Vec8::kParts],
                                   Register<float, Vec8::kPartLanes>);
  };
  Float16 v;
  for (int i = 0; i < v.kParts; ++i) v.part[i] = register_join(rounded(2 * i), rounded(2 * i + 1));
  return v;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
