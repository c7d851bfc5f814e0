// What encoder and decoder share of the 11.8 kbit/s mode's backward frames (Annex E): the smoothing
// of the order-30 filter from frame to frame and the backward-dominance decision. Both sides call
// these functions with the same values, so they hold the same filter and the same flag.
//
// A new backward filter takes over gradually: the first backward frame after a forward one still
// runs the last forward filter, and each further frame shifts a tenth of the weight.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr double kBackwardInterpStart = 1.1;  // before the first backward frame of a run
inline constexpr double kBackwardInterpStep = 0.1;

struct BackwardSmoothing {
  double backward_interp = kBackwardInterpStart;  // share of prev_filter plus one step
  double prev_filter[kBackwardCoeffs] = {1.0};    // last quantized filter of the previous frame
};

// smoothed = (1 - c) a + c prev_filter with c = max(0, backward_interp - 0.1), 31 coefficients.
// Changes no state. smoothed may be a.
void backward_filter_smooth(const BackwardSmoothing& state, const double* a, double* smoothed);

// A backward frame runs the filter `smoothed`: it becomes prev_filter, and the share goes down.
void backward_smoothing_accept(BackwardSmoothing* state, const double* smoothed);

// A forward or noise frame ended with the order-10 filter a[0..10]: it becomes prev_filter,
// coefficients 11..30 zero, and the share goes back to the start.
void backward_smoothing_restart(BackwardSmoothing* state, const double* a);

struct BackwardDominance {
  bool bwd_dominant = false;  // backward frames clearly outnumber forward ones
  int count_bwd = 0;
  int count_fwd = 0;
};

// Counts one speech frame of the given mode (kForward at the lower rates) by its synthesis, 80
// samples; frames below 40 dB do not count. bwd_dominant is set when there are more than four
// backward frames to a forward one; at a total of 100 both counts are halved.
void backward_dominance_update(BackwardDominance* state, LpMode lp_mode, const double* synthesis);

// Energy of x[0..n-1] in dB, at least 0.005 and at most 93.1814, with the precision of a
// fixed-point logarithm: the energy is cut to its five leading bits.
double synthesis_energy_db(const double* x, int n);

}  // namespace KELG729F_TARGET
}  // namespace g729
