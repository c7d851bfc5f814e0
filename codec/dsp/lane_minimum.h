// Search for the smallest of many values, eight at a time.
#pragma once

#include "codec/dsp/vec.h"

namespace g729::inline KELG729F_TARGET {

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

// Smallest of the eight lanes.
KELG729F_VEC double smallest_lane(Vec8 v) {
  double t[kLanes];
  store(t, v);
  for (int half = kLanes / 2; half > 0; half /= 2)
    for (int i = 0; i < half; ++i) t[i] = t[i + half] < t[i] ? t[i + half] : t[i];
  return t[0];
}

// Index of the smallest value of all lanes, the lowest among equals.
KELG729F_VEC int lowest_index(const LaneMinimum& m) {
  constexpr double kAboveAnyIndex = 1.0e9;
  const Mask8 least = m.value <= splat(smallest_lane(m.value));
  return static_cast<int>(smallest_lane(select(least, m.index, splat(kAboveAnyIndex))));
}

}  // namespace g729::inline KELG729F_TARGET
