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
  m->index = select(smaller, splat(first) + load(kLane), m->index);
}

// Index of the smallest value of all lanes, the lowest among equals.
inline int lowest_index(const LaneMinimum& m) {
  double value[kLanes], index[kLanes];
  store(value, m.value);
  store(index, m.index);
  int best = 0;
  for (int i = 1; i < kLanes; ++i) {
    const bool equal = value[i] == value[best];
    if (value[i] < value[best] || (equal && index[i] < index[best])) best = i;
  }
  return static_cast<int>(index[best]);
}

}  // namespace g729::inline KELG729F_TARGET
