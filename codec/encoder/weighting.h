// Factors of the perceptual weighting filter W(z) = A(z/gamma1) / A(z/gamma2) (clause 3.3).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Memory of the adaptation. Frames with fixed factors leave it alone.
struct WeightingState {
  bool flat = true;                   // spectrum last judged flat rather than tilted
  double area_ratio[2] = {1.0, 1.0};  // of the last frame that was adapted to
};

// Factors of both subframes. lsf[0..9] and lsf[10..19] are their unquantised LSFs in radians, rc
// the first two reflection coefficients of the frame, |rc| < 1. gamma2 is within [0.4, 0.7].
void perceptual_weighting_factors(double* gamma1, double* gamma2, const double* lsf,
                                  const double* rc, WeightingState* state);

// Factors of backward-mode frames (Annex E), the same for both subframes.
void fixed_weighting_factors(double* gamma1, double* gamma2, int bwd_dominant);

}  // namespace KELG729F_TARGET
}  // namespace g729
