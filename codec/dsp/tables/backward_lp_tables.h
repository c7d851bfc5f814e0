// Windows of the backward LP analysis (Annex E), rounded to 8 decimals.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Samples under the hybrid window: 30 (order) + 80 (frame) + 35 (newest).
inline constexpr int kHybridWindow = kBackwardOrder + kFrame + 35;
static_assert(kHybridWindow == kSynthesisPast + kFrame);

extern const double kHybridWindowTable[kHybridWindow];   // oldest sample first
extern const double kBackwardLagWindow[kBackwardOrder];  // lags 1..30

}  // namespace KELG729F_TARGET
}  // namespace g729
