// Adaptive post-filter (clause 4.2, Annex E for order 30): long-term, tilt and formant filters on
// the LP residual, then gain control.
#pragma once

#include "codec/decoder/long_term_postfilter.h"
#include "codec/dsp/constants.h"

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

// Filters speech[0..39] into out[0..39] with the subframe's LP vector a[0..order], order 10 or 30;
// speech[-order..-1] must be valid. t0 is the integer pitch lag. Frames without speech
// (frame_type below kSpeech6k4) get no long-term filtering. Returns the delay of the long-term
// filter or 0 where there was none. out must not overlap speech.
int postfilter_subframe(PostFilterState* state, int t0, const double* speech, const double* a,
                        double* out, const PostFilterSettings& settings, int order, int frame_type);

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
void postfilter_weigh(const double* a, const PostFilterSettings& settings, int order,
                      PostFilterWork* work);

// Residual, long-term and tilt filter of the speech. Leaves nothing in the state that a second call
// would not replace.
void postfilter_flatten(PostFilterState* state, int t0, const double* speech,
                        const PostFilterSettings& settings, int order, int frame_type,
                        PostFilterWork* work);

// After 1/A(z/gamma_d) over work->signal, in place, with formant_mem before it: gain control, and
// the state moves on. Returns the delay.
int postfilter_finish(PostFilterState* state, const double* speech, const PostFilterWork& work,
                      double* out);

}  // namespace KELG729F_TARGET
}  // namespace g729
