// Search for the smallest of many values, eight at a time.
#pragma once

#include "codec/dsp/simd/across.h"

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
  const auto less = value < m->value;
  m->value = select(less, value, m->value);
  m->index = select(less, splat(static_cast<double>(first)) + load(kLane), m->index);
}

// Index of the smallest value of all lanes, the lowest among equals.
KELG729F_VEC int lowest_index(const LaneMinimum& m) {
  constexpr double kAboveAnyIndex = 1.0e9;
  const auto least = m.value <= splat(smallest_lane(m.value));
  return static_cast<int>(smallest_lane(select(least, m.index, splat(kAboveAnyIndex))));
}

}  // namespace KELG729F_TARGET
}  // namespace g729
