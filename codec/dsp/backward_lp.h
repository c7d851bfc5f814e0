// Backward-adaptive LP analysis of the 11.8 kbit/s mode (Annex E): an order-30 filter from the
// past synthesis, computed alike by encoder and decoder.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/lpc.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct BackwardLpState {
  double recursive[kBackwardCoeffs] = {};          // decaying part of the autocorrelation
  double backward_a_mem[kBackwardCoeffs] = {1.0};  // last filter without a saturated coefficient
  LevinsonMemory levinson;
};

// past[0..144] is the synthesis up to the end of the previous frame, oldest first. Writes the
// filter a[0..30], bandwidth-expanded by 0.98. Moves the state, so it runs once per 11.8 kbit/s
// frame, whatever the frame's mode. A result with a coefficient of 8.0 or more is replaced by the
// last accepted one.
void backward_lp_analysis(BackwardLpState* state, const double* past, double* a);

}  // namespace KELG729F_TARGET
}  // namespace g729
