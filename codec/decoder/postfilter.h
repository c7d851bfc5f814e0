// Adaptive post-filter (clause 4.2, Annex E for order 30): long-term, tilt and formant filters on
// the LP residual, then gain control.
#pragma once

#include "codec/decoder/long_term_postfilter.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct PostFilterState {
  double residual[kResidualPast + kSubframe] = {};  // past residual, then the current subframe's
  double formant_mem[kBackwardOrder] = {};          // last outputs of the formant filter
  double tilt_mem = 0;                              // last input of the tilt filter
  double past_gain = 1.0;                           // last gain of the gain control
};

struct PostFilterSettings {
  double gamma_d;       // bandwidth expansion of the formant filter's denominator
  double gamma_n;       // the same of its numerator
  double gamma_h;       // weight of the long-term filter
  int response_length;  // impulse response samples that measure the tilt, at most 40
};

// A subframe of synthesis; speech[-order..-1] must be valid.
struct PostFilterInput {
  const double* speech;  // 40 samples
  LpFilter filter;       // order 10 or 30
  int t0;                // integer pitch lag
  FrameType type;        // frames without speech get no long-term filtering
};

// Filters the subframe into out[0..39], which must not overlap it. Returns the delay of the
// long-term filter or 0 where there was none.
int postfilter_subframe(PostFilterState* state, const PostFilterInput& in,
                        const PostFilterSettings& settings, double* out);

// The same in steps, for a caller that runs recursions of its own beside those of the filter. A
// subframe on its way through the filters:
struct PostFilterWork {
  double numerator[kSubframe] = {};     // A(z/gamma_n) and zeros
  double denominator[kBackwardCoeffs];  // A(z/gamma_d)
  double response[kSubframe];           // of numerator / denominator: measures the tilt
  double harmonic[1 + kSubframe];       // the long-term filter's output, a sample before it
  double signal[kSubframe];             // the tilt filter's output, then the formant filter's
  int delay;                            // of the long-term filter
};

// First numerator and denominator. The caller then finds the response.
void postfilter_weigh(LpFilter filter, const PostFilterSettings& settings, PostFilterWork* work);

// Residual, long-term and tilt filter of the speech. Leaves nothing in the state that a second call
// would not replace.
void postfilter_flatten(PostFilterState* state, const PostFilterInput& in,
                        const PostFilterSettings& settings, PostFilterWork* work);

// After 1/A(z/gamma_d) over work->signal, in place, with formant_mem before it: gain control, and
// the state moves on. Returns the delay.
int postfilter_finish(PostFilterState* state, const double* speech, const PostFilterWork& work,
                      double* out);

}  // namespace KELG729F_TARGET
}  // namespace g729
