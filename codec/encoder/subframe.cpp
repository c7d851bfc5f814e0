#include "codec/encoder/subframe.h"

#include "codec/dsp/diagnostics.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/simd/vec.h"
#include "codec/encoder/acelp_11k8.h"
#include "codec/encoder/acelp_6k4.h"
#include "codec/encoder/acelp_8k.h"
#include "codec/encoder/gain_quantizer.h"
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
  LpFilter quantised;
  alignas(kAlign) double xn[kSubframe];    // target of the adaptive codebook
  alignas(kAlign) double xn2[kSubframe];   // target of the fixed codebook
  alignas(kAlign) double h[kSubframe];     // impulse response of the weighted synthesis filter
  alignas(kAlign) double y1[kSubframe];    // filtered adaptive-codebook vector
  alignas(kAlign) double y2[kSubframe];    // filtered innovation
  alignas(kAlign) double code[kSubframe];  // innovation
  double gain_terms[kGainTerms];
  double gain_pitch, gain_code;
  PitchLag lag;
  int tame;
};

void start_subframe(EncoderCoreState* state, const FrameWork& w, int k, SubframeWork* s) {
  s->start = k * kSubframe;
  s->speech = state->old_speech + kSpeechPast + s->start;
  s->exc = state->old_exc + kExcitationPast + s->start;
  s->synthesis = state->synthesis + kSynthesisPast + s->start;
  s->quantised = w.quantised[k];
}

void code_lag(SubframeWork* s, LagRange* range, Rate rate, SubframeParameters* chosen) {
  s->lag = closed_loop_pitch(s->exc, s->xn, s->h, *range, s->start, rate);
  chosen->lag = encode_lag(s->lag, range, s->start, rate);
  const int inverted = rate == kRate11k8 ? (chosen->lag >> 1) & 1 : 0;
  chosen->parity = pitch_parity(chosen->lag) ^ inverted;
}

void apply_adaptive_codebook(EncoderCoreState* state, SubframeWork* s) {
  pitch_excitation_interpolate(s->exc, s->lag.t0, s->lag.frac, kSubframe);
  convolve(s->exc, s->h, s->y1);
  double gain = pitch_gain(s->y1, s->xn, s->gain_terms);
  s->tame = taming_test(state->exc_err, s->lag.t0, s->lag.frac);
  if (s->tame == 1 && gain > kTamedGain) gain = kTamedGain;
  for (int i = 0; i < kSubframe; ++i) s->xn2[i] = s->xn[i] - gain * s->y1[i];
}

void code_innovation(EncoderCoreState* state, SubframeWork* s, Rate rate, LpMode lp_mode,
                     int* words) {
  switch (rate) {
    case kRate6k4:
      words[0] =
          acelp_search_11bit(s->xn2, s->h, s->lag.t0, state->sharp, s->code, s->y2, &words[1]);
      return;
    case kRate8k:
      words[0] = acelp_search_17bit(s->xn2, s->h, s->lag.t0, state->sharp, s->start, s->code, s->y2,
                                    &words[1], &state->fcb_extra);
      return;
    case kRate11k8:
      acelp_search_118(lp_mode, s->xn2, s->h, s->lag.t0, state->sharp, s->code, s->y2, words);
      return;
    default:
      fatal("Unrecognized bit rate\n");
  }
}

int code_gains(EncoderCoreState* state, SubframeWork* s, Rate rate) {
  gain_correlations(s->xn, s->y1, s->y2, s->gain_terms);
  const auto quantize = rate == kRate6k4 ? gain_quantize_6k4 : gain_quantize;
  const int index = quantize(s->code, s->gain_terms, kSubframe, &s->gain_pitch, &s->gain_code,
                             s->tame, &state->past_energy);
  state->sharp = sharpening_gain(s->gain_pitch);
  return index;
}

void push_pitch_gain(EncoderCoreState* state, double gain) {
  double* buf = state->pgain_buf;
  for (int i = 0; i < 4; ++i) buf[i] = buf[i + 1];
  buf[4] = gain;
}

void run_synthesis(const LpFilter& filter, const double* excitation, double* out) {
  synthesis_filter(filter.order, filter.a, excitation, out, kSubframe, out - filter.order, false);
}

// Local synthesis of what is heard, s.exc or its dispersed form.
void synthesize(EncoderCoreState* state, const SubframeWork& s, const double* heard) {
  if (heard != s.exc && !state->has_dispersed) {
    state->has_dispersed = true;
    copy_vector(s.synthesis - kBackwardOrder, state->undispersed, kBackwardOrder);
  }
  run_synthesis(s.quantised, heard, s.synthesis);
}

// error[0..39] = speech - undispersed synthesis, whose end the next subframe's target starts from.
void find_error(EncoderCoreState* state, const SubframeWork& s, double* error) {
  const double* synthesis = s.synthesis;
  double work[kBackwardOrder + kSubframe];
  if (state->has_dispersed) {
    copy_vector(state->undispersed, work, kBackwardOrder);
    run_synthesis(s.quantised, s.exc, work + kBackwardOrder);
    copy_vector(work + kSubframe, state->undispersed, kBackwardOrder);
    synthesis = work + kBackwardOrder;
  }
  for (int i = 0; i < kSubframe; ++i) error[i] = s.speech[i] - synthesis[i];
  copy_vector(error + kSubframe - kBackwardOrder, state->error_mem, kBackwardOrder);
}

// The excitation and all that remembers it.
void finish_subframe(EncoderCoreState* state, const SubframeWork& s, Rate rate) {
  double dispersed[kSubframe];
  const double* heard = total_excitation(&state->dispersion, rate == kRate6k4, s.gain_pitch,
                                         s.gain_code, s.code, s.exc, dispersed);
  taming_update(&state->exc_err, s.gain_pitch, s.lag.t0);
  synthesize(state, s, heard);
  double error[kSubframe];
  find_error(state, s, error);
  constexpr int kFirst = kSubframe - kBackwardOrder;
  for (int i = kFirst; i < kSubframe; ++i)
    state->weighted_error_mem[i - kFirst] =
        s.xn[i] - s.gain_pitch * s.y1[i] - s.gain_code * s.y2[i];
}

}  // namespace

SubframeParameters code_subframe(EncoderCoreState* state, const FrameWork& w, int k, Rate rate,
                                 LagRange* range) {
  SubframeWork s;
  SubframeParameters chosen = {};
  start_subframe(state, w, k, &s);
  // The residual goes into the excitation, where short lags of the search read it.
  residual_filter(s.quantised.order, s.quantised.a, s.speech, s.exc, kSubframe);
  find_target(s.exc, state->error_mem, state->weighted_error_mem, w, k, s.xn, s.h);
  code_lag(&s, range, rate, &chosen);
  apply_adaptive_codebook(state, &s);
  code_innovation(state, &s, rate, w.lp_mode, chosen.code);
  chosen.gain = code_gains(state, &s, rate);
  push_pitch_gain(state, s.gain_pitch);
  finish_subframe(state, s, rate);
  return chosen;
}

void synthesize_noise_subframe(EncoderCoreState* state, const FrameWork& w, int k) {
  constexpr double kNoiseGain = 0.5;  // pitch gain that the music detector sees
  SubframeWork s;
  start_subframe(state, w, k, &s);
  synthesize(state, s, s.exc);
  double error[kBackwardOrder + kSubframe], weighted[kSubframe];
  copy_vector(state->error_mem, error, kBackwardOrder);
  find_error(state, s, error + kBackwardOrder);
  residual_filter(kOrder, w.weighting[k].ap1, error + kBackwardOrder, weighted, kSubframe);
  synthesis_filter(kOrder, w.weighting[k].ap2, weighted, weighted, kSubframe,
                   state->weighted_error_mem + kBackwardOrder - kOrder, false);
  copy_vector(weighted + kSubframe - kBackwardOrder, state->weighted_error_mem, kBackwardOrder);
  push_pitch_gain(state, kNoiseGain);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
