// Closed-loop search of the adaptive codebook, its lag code and its gain (clause 3.7).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Integer lags searched, at most ten: the first subframe's centre on the open-loop lag, the
// second's are set by encode_lag.
struct LagRange {
  int t0_min;
  int t0_max;
};

struct LagInput {
  const double* exc;  // at the subframe's start: exc[-154..-1] the past excitation, exc[0..39] the
                      // LP residual, which stands for what is not known yet
  Subframe xn;        // target
  Subframe h;         // impulse response of the weighted synthesis filter
  LagRange range;
  int i_subfr;  // 0 or 40
  Rate rate;
};

// Lag of the subframe whose past excitation, filtered by the impulse response, has the greatest
// normalized correlation with the target. Fractions are
// searched up to lag 84 in the first subframe, throughout in the second, and at 6.4 kbit/s
// (Annex D) around the middle of the second subframe's range only. t0 is within the range widened
// by one; among equal correlations the largest integer lag and the lowest fraction win.
PitchLag closed_loop_pitch(const LagInput& in);

// Index of the lag: 8 bits in the first subframe; in the second 5 bits, at 6.4 kbit/s 4 bits,
// relative to the range. The first subframe's call sets the range of the second.
int encode_lag(PitchLag lag, LagRange* range, int i_subfr, Rate rate);

// Pitch gain <xn, y1> / <y1, y1> bounded to [0, 1.2]; y1[0..39] is the filtered adaptive-codebook
// vector. g_coeff receives what the gain quantizer needs: 0.01 + <y1, y1> and 0.01 - 2 <xn, y1>.
double pitch_gain(Subframe y1, Subframe xn, double g_coeff[2]);

}  // namespace KELG729F_TARGET
}  // namespace g729
