// A screen before the open-loop search: which lags may win.
//
// Numbers rounded to 16 bits leave only positions whose correlation comes within the error of the
// section's greatest, most often one. That the winner is among them is what the slack is for, see
// screen_positions().
#pragma once

#include <cstdint>

#include "codec/dsp/constants.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Correlations are kept by position, 143 - lag, so that eight of them read consecutive samples:
//
//   position   0 ............ 63 | 64 ......... 103 | 104 ...... 123 | 124 ... 127
//   lag      143 ............ 80 | 79 .......... 40 | 39 ........ 20 | 19 ..... 16 (not used)
consteval int position_of(int lag) {
  return kPitchMax - lag;
}
inline constexpr int kPositions = (position_of(kPitchMin) / kLanes + 1) * kLanes;
static_assert(kPositions - kPitchMax <= 0, "the unused positions read inside the frame too");

struct Section {
  int first, last;  // positions
};
inline constexpr Section kLong = {position_of(143), position_of(80)};
inline constexpr Section kMiddle = {position_of(79), position_of(40)};
inline constexpr Section kShort = {position_of(39), position_of(20)};

struct LagScreen {
  alignas(64) float c[kPositions];
  float slack;
};

// Fills the screen for the weighted speech wsp[-143..79]. False when its level is too low or too
// high for that.
bool screen_positions(const double* wsp, LagScreen* screen);

// The section's positions that may have its greatest correlation, bit i for first + i.
uint64_t survivors(const LagScreen& screen, Section section);

}  // namespace KELG729F_TARGET
}  // namespace g729
