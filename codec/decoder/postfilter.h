// Adaptive post-filter (clause 4.2, Annex E for order 30): long-term, tilt and formant filters on
// the LP residual, then gain control.
#pragma once

#include "codec/decoder/long_term_postfilter.h"
#include "codec/dsp/constants.h"

namespace g729::inline KELG729F_TARGET {

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

}  // namespace g729::inline KELG729F_TARGET
