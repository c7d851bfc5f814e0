// Factors of the perceptual weighting filter W(z) = A(z/gamma1) / A(z/gamma2) (clause 3.3).
#pragma once

#include <span>

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Memory of the adaptation. Frames with fixed factors leave it alone.
struct WeightingState {
  bool weighting_flat = true;      // spectrum last judged flat rather than tilted
  double lar_old[2] = {1.0, 1.0};  // area ratios of the last frame that was adapted to
};

struct WeightingFactors {
  double gamma1[kSubframes], gamma2[kSubframes];
};

// Factors of both subframes. lsf[0..9] and lsf[10..19] are their unquantized LSFs in radians, rc
// the reflection coefficients of the frame, |rc| < 1. gamma2 is within [0.4, 0.7].
WeightingFactors perceptual_weighting_factors(std::span<const double, kSubframes * kOrder> lsf,
                                              std::span<const double, kOrder> rc,
                                              WeightingState* state);

// Those of complexity 1 and above, of every subframe.
inline constexpr WeightingFactors kSearchWeightingFactors = {{0.92, 0.92}, {0.57, 0.57}};

// Factors of backward-mode frames (Annex E), the same for both subframes.
WeightingFactors fixed_weighting_factors(bool bwd_dominant);

}  // namespace KELG729F_TARGET
}  // namespace g729
