// Long-term post-filter (clause 4.2.1): emphasizes the harmonics of the residual by adding the
// residual one pitch delay back, the delay searched to an eighth of a sample.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kDelayPhases = 8;  // eighths of a sample
inline constexpr int kShortTaps = 4;    // taps k = -1..2 of the filter that ranks the delays
inline constexpr int kLongTaps = 16;    // taps k = -7..8 of the filter that forms the signal

// Past residual that the filter reads: the longest whole delay and the taps behind it.
inline constexpr int kResidualPast = kPitchMax + 1 + kLongTaps / 2;
static_assert(kResidualPast == 152);

// A signal r delayed by lag + phase/8 is the sum over k of tap[k] r[n - lag - k].
extern const double kShortDelay[kShortTaps][kDelayPhases];
extern const double kLongDelay[kDelayPhases][kLongTaps];

// out[0..39] = filtered residual[0..39], whose kResidualPast past samples must be valid. The delay
// is searched around t0 (at least 19; above kPitchMax it counts as that); gamma_h weighs the
// delayed signal. Returns the delay, rounded up to a whole sample, or 0 when the residual is too
// weak or not periodic and out is the residual unchanged. out must not overlap the residual.
int long_term_postfilter(const double* residual, int t0, double gamma_h, double* out);

}  // namespace KELG729F_TARGET
}  // namespace g729
