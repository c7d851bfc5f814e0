#include "codec/encoder/subframe.h"

#include <span>

#include "codec/dsp/diagnostics.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/encoder/acelp_11k8.h"
#include "codec/encoder/acelp_6k4.h"
#include "codec/encoder/acelp_8k.h"
#include "codec/encoder/fixed_codebook.h"
#include "codec/encoder/gain_quantizer.h"
#include "codec/encoder/taming.h"
#include "codec/encoder/target.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kTamedGain = 0.95;  // highest pitch gain of a tamed subframe

// A subframe on its way through the stages.
struct SubframeWork {
  int start;  // 0 or 40
  const double* speech;
  double* exc;
  double* synthesis;
  LpFilter quantized;
  alignas(kAlign) double xn[kSubframe];   // target of the adaptive codebook
  alignas(kAlign) double xn2[kSubframe];  // target of the fixed codebook
  alignas(kAlign) double h[kSubframe];    // impulse response of the weighted synthesis filter
  alignas(kAlign) double y1[kSubframe];   // filtered adaptive-codebook vector
  Innovation innovation;
  double gain_coeff[kGainTerms];
  Gains gains;
  PitchLag lag;
  bool tame;
};

void start_subframe(EncoderCoreState* state, const FrameWork& w, int k, SubframeWork* s) {
  s->start = k * kSubframe;
  s->speech = state->old_speech + kSpeechPast + s->start;
  s->exc = state->old_exc + kExcitationPast + s->start;
  s->synthesis = state->synthesis + kSynthesisPast + s->start;
  s->quantized = w.quantized[k];
}

void code_lag(SubframeWork* s, LagRange* range, Rate rate, SubframeParameters* chosen) {
  s->lag = closed_loop_pitch({s->exc, s->xn, s->h, *range, s->start, rate});
  chosen->lag = encode_lag(s->lag, range, s->start, rate);
  const int inverted = rate == kRate11k8 ? (chosen->lag >> 1) & 1 : 0;
  chosen->parity = pitch_parity(chosen->lag) ^ inverted;
}

void apply_adaptive_codebook(EncoderCoreState* state, SubframeWork* s) {
  pitch_excitation_interpolate(s->exc, s->lag.t0, s->lag.frac, kSubframe);
  convolve(s->exc, s->h, s->y1);
  double gain = pitch_gain(s->y1, s->xn, s->gain_coeff);
  s->tame = taming_test(state->exc_err, s->lag.t0, s->lag.frac);
  if (s->tame && gain > kTamedGain) gain = kTamedGain;
  for (int i = 0; i < kSubframe; ++i) s->xn2[i] = s->xn[i] - gain * s->y1[i];
}

void code_innovation(EncoderCoreState* state, SubframeWork* s, Rate rate, LpMode lp_mode,
                     SubframeParameters* chosen) {
  const InnovationInput in = {s->xn2, s->h, s->lag.t0, state->sharp};
  if (rate == kRate11k8) return acelp_search_118(lp_mode, in, &s->innovation, chosen->code);
  if (rate != kRate8k && rate != kRate6k4) fatal("Unrecognized bit rate\n");
  const PulseWords words = rate == kRate8k
                               ? acelp_search_17bit(in, s->start, &state->fcb_extra, &s->innovation)
                               : acelp_search_11bit(in, &s->innovation);
  chosen->code[0] = words.position_index;
  chosen->code[1] = words.sign_index;
}

int code_gains(EncoderCoreState* state, SubframeWork* s, Rate rate) {
  gain_correlations(s->xn, s->y1, s->innovation.y, s->gain_coeff);
  const auto quantize = rate == kRate6k4 ? gain_quantize_6k4 : gain_quantize;
  const GainInput in = {s->innovation.code, s->gain_coeff, s->tame};
  const auto [index, gains] = quantize(in, &state->past_energy);
  s->gains = gains;
  state->sharp = sharpening_gain(gains.gain_pitch);
  return index;
}

void run_synthesis(const LpFilter& filter, const double* excitation, double* out) {
  synthesis_filter({filter.a, filter.order}, excitation, out, kSubframe, out - filter.order, false);
}

// Local synthesis of what is heard, s.exc or its dispersed form.
void synthesize(EncoderCoreState* state, const SubframeWork& s, const double* heard) {
  if (heard != s.exc && !state->has_dispersed) {
    state->has_dispersed = true;
    copy_vector(s.synthesis - kBackwardOrder, state->undispersed, kBackwardOrder);
  }
  run_synthesis(s.quantized, heard, s.synthesis);
}

// Synthesis of the coded excitation, by which the error is measured: the local one or, once a
// dispersed form has been heard, one without dispersion in `work`, which has room for a subframe
// and kBackwardOrder samples before it. Once a subframe.
const double* undispersed_synthesis(EncoderCoreState* state, const SubframeWork& s, double* work) {
  if (!state->has_dispersed) return s.synthesis;
  copy_vector(state->undispersed, work, kBackwardOrder);
  run_synthesis(s.quantized, s.exc, work + kBackwardOrder);
  copy_vector(work + kSubframe, state->undispersed, kBackwardOrder);
  return work + kBackwardOrder;
}

// The excitation and all that remembers it.
void finish_subframe(EncoderCoreState* state, const SubframeWork& s, Rate rate) {
  double dispersed[kSubframe];
  const double* heard = total_excitation(&state->dispersion, rate == kRate6k4, s.gains,
                                         s.innovation.code, s.exc, dispersed);
  taming_update(&state->exc_err, s.gains.gain_pitch, s.lag.t0);
  synthesize(state, s, heard);
  double work[kBackwardOrder + kSubframe];
  const double* const synthesis = undispersed_synthesis(state, s, work);
  constexpr int kFirst = kSubframe - kBackwardOrder;
  for (int i = kFirst; i < kSubframe; ++i) {
    state->error_mem.error[i - kFirst] = s.speech[i] - synthesis[i];
    state->error_mem.weighted_error[i - kFirst] =
        s.xn[i] - s.gains.gain_pitch * s.y1[i] - s.gains.gain_code * s.innovation.y[i];
  }
}

}  // namespace

void push_pitch_gain(EncoderCoreState* state, double gain) {
  double* buf = state->pgain_buf;
  for (int i = 0; i < 4; ++i) buf[i] = buf[i + 1];
  buf[4] = gain;
}

SubframeParameters code_subframe(EncoderCoreState* state, const FrameWork& w, int k, Rate rate,
                                 LagRange* range) {
  SubframeWork s;
  SubframeParameters chosen = {};
  start_subframe(state, w, k, &s);
  // The residual goes into the excitation, where short lags of the search read it.
  residual_filter({s.quantized.a, s.quantized.order}, s.speech, s.exc, kSubframe);
  find_target(s.exc, state->error_mem, w, k, s.xn, s.h);
  code_lag(&s, range, rate, &chosen);
  apply_adaptive_codebook(state, &s);
  code_innovation(state, &s, rate, w.lp_mode, &chosen);
  chosen.gain = code_gains(state, &s, rate);
  push_pitch_gain(state, s.gains.gain_pitch);
  finish_subframe(state, s, rate);
  return chosen;
}

void synthesize_noise_subframe(EncoderCoreState* state, const FrameWork& w, int k) {
  constexpr double kNoiseGain = 0.5;  // pitch gain that the music detector sees
  SubframeWork s;
  start_subframe(state, w, k, &s);
  synthesize(state, s, s.exc);
  double work[kBackwardOrder + kSubframe], error[kBackwardOrder + kSubframe], weighted[kSubframe];
  const double* const synthesis = undispersed_synthesis(state, s, work);
  copy_vector(state->error_mem.error, error, kBackwardOrder);
  for (int i = 0; i < kSubframe; ++i) error[kBackwardOrder + i] = s.speech[i] - synthesis[i];
  copy_vector(error + kSubframe, state->error_mem.error, kBackwardOrder);
  residual_filter({w.weighting[k].ap1, kOrder}, error + kBackwardOrder, weighted, kSubframe);
  synthesis_filter({w.weighting[k].ap2, kOrder}, weighted, weighted, kSubframe,
                   state->error_mem.weighted_error + kBackwardOrder - kOrder, false);
  copy_vector(weighted + kSubframe - kBackwardOrder, state->error_mem.weighted_error,
              kBackwardOrder);
  push_pitch_gain(state, kNoiseGain);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
