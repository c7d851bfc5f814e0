// Search for the smallest of many values, eight at a time.
#pragma once

#include "codec/dsp/simd/vec.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Every lane keeps its smallest value and that value's index. To find a greatest value, hand in the
// negated ones.
struct LaneMinimum {
  Vec8 value = splat(1.0e38);
  Vec8 index = splat(0.0);
};

// Takes eight values of the indices first..first+7. Calls go by rising `first`, so that each lane
// keeps the lowest index among equals.
KELG729F_VEC void consider(LaneMinimum* m, Vec8 value, int first) {
  static constexpr double kLane[kLanes] = {0, 1, 2, 3, 4, 5, 6, 7};
  const Mask8 smaller = value < m->value;
  m->value = select(smaller, value, m->value);
  m->index = select(smaller, splat(static_cast<double>(first)) + load(kLane), m->index);
}

// Lane-wise the smaller; b where they cannot be compared.
KELG729F_VEC Vec8 smaller(Vec8 a, Vec8 b) {
  return select(a < b, a, b);
}

// Smallest of the eight lanes.
KELG729F_VEC double smallest_lane(Vec8 v) {
#if defined(KELG729F_PLAIN)
  double least = v.part[0];
  for (int i = 1; i < kLanes; ++i) least = v.part[i] < least ? v.part[i] : least;
  return least;
#else
#if defined(__AVX__)
#if defined(__AVX512F__)
  const auto low4 = __builtin_shufflevector(v.part[0], v.part[0], 0, 1, 2, 3);
  const auto high4 = __builtin_shufflevector(v.part[0], v.part[0], 4, 5, 6, 7);
#else
  const auto low4 = v.part[0], high4 = v.part[1];
#endif
  const auto four = low4 < high4 ? low4 : high4;
  const auto low2 = __builtin_shufflevector(four, four, 0, 1);
  const auto high2 = __builtin_shufflevector(four, four, 2, 3);
#else
  const auto low2 = v.part[0] < v.part[2] ? v.part[0] : v.part[2];
  const auto high2 = v.part[1] < v.part[3] ? v.part[1] : v.part[3];
#endif
  const auto two = low2 < high2 ? low2 : high2;
  return two[0] < two[1] ? two[0] : two[1];
#endif
}

// Index of the smallest value of all lanes, the lowest among equals.
KELG729F_VEC int lowest_index(const LaneMinimum& m) {
  constexpr double kAboveAnyIndex = 1.0e9;
  const Mask8 least = m.value <= splat(smallest_lane(m.value));
  return static_cast<int>(smallest_lane(select(least, m.index, splat(kAboveAnyIndex))));
}

}  // namespace KELG729F_TARGET
}  // namespace g729
