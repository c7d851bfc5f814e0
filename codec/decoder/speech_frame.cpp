#include "codec/decoder/speech_frame.h"

#include "codec/decoder/fixed_code_decode.h"
#include "codec/decoder/gain_decode.h"
#include "codec/decoder/lag_decode.h"
#include "codec/decoder/lsp_decode.h"
#include "codec/dsp/backward_lp.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/diagnostics.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/random.h"
#include "codec/dtx/comfort_noise.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kStationaryBackward = 30;  // backward subframes that make a signal stationary

// Runs the backward analysis, which every 11.8 kbit/s frame moves on, on the past 145 samples.
void backward_filter(DecoderCoreState* state, const DecodedFrame& frame, double* a) {
  backward_lp_analysis(&state->backward, state->synthesis, a);
  if (frame.lp_mode == kBackward) {
    const double gamma = state->transition_gamma;
    if (gamma != 0.0)
      for (int i = 0; i < kBackwardCoeffs; ++i)
        a[i] = (1.0 - gamma) * a[i] + gamma * state->frozen_a[i];
    if (!frame.erased) {
      backward_filter_smooth(state->smoothing, a, a);
      backward_smoothing_accept(&state->smoothing, a);
    }
  }
  // The type of an erased frame is its predecessor's, so this follows a good 11.8 kbit/s frame.
  if (frame.erased && !state->prev_bfi) copy_vector(a, state->frozen_a, kBackwardCoeffs);
}

void forward_filters(DecoderCoreState* state, bool erased, double* a) {
  double lsp[kOrder];
  state->remarks |= lsp_decode(state->parameters.lsp, erased, &state->lsp, lsp);
  if (state->prev_lp_mode == kBackward) {
    lsp_to_lpc(lsp, a);
    copy_vector(a, a + kCoeffs, kCoeffs);
  } else {
    interpolate_quantized_lpc(state->lsp_old, lsp, a);
  }
  copy_vector(lsp, state->lsp_old, kOrder);
  backward_smoothing_restart(&state->smoothing, a + kCoeffs);
}

void speech_filters(DecoderCoreState* state, DecodedFrame* frame) {
  double backward[kBackwardCoeffs];
  if (frame->type == kSpeech11k8) backward_filter(state, *frame, backward);
  if (frame->lp_mode == kForward) {
    frame->order = kOrder;
    forward_filters(state, frame->erased, frame->az_out);
  } else {
    frame->order = kBackwardOrder;
    copy_vector(backward, frame->az_out, kBackwardCoeffs);
    copy_vector(backward, frame->az_out + kBackwardCoeffs, kBackwardCoeffs);
  }
}

// Repeats the last lag; below 11.8 kbit/s whole, and a sample longer each time.
PitchLag conceal_lag(DecoderCoreState* state, FrameType type) {
  if (type == kSpeech11k8) return {state->old_t0, state->old_t0_frac};
  const PitchLag lag = {state->old_t0, 0};
  state->old_t0 = lag.t0 < kPitchMax ? lag.t0 + 1 : kPitchMax;
  return lag;
}

// Of the first subframe's lag; at 11.8 kbit/s the bit is sent inverted when bit 1 of the index is
// set, at 6.4 kbit/s there is none.
bool is_parity_wrong(FrameType type, const SubframeParameters& sent) {
  if (type == kSpeech6k4) return false;
  const int inverted = type == kSpeech11k8 ? (sent.lag >> 1) & 1 : 0;
  return pitch_parity_check(sent.lag, sent.parity ^ inverted);
}

PitchLag read_lag(DecoderCoreState* state, const DecodedFrame& frame, int subframe) {
  const SubframeParameters& sent = state->parameters.subframe[subframe];
  if (frame.erased) return conceal_lag(state, frame.type);
  if (subframe == 0 && is_parity_wrong(frame.type, sent)) {
    state->remarks |= kWrongPitch;
    return conceal_lag(state, frame.type);
  }
  const int* const first_t0 = subframe == 0 ? nullptr : &frame.pitch_delay[0];
  const PitchLag lag = pitch_lag_decode(sent.lag, first_t0, frame.type);
  state->old_t0 = lag.t0;
  state->old_t0_frac = lag.frac;
  return lag;
}

// The code vector, sharpened. An erased frame's words are random.
void read_code(DecoderCoreState* state, const DecodedFrame& frame, int subframe, double* code) {
  int words[kMaxCodeWords];
  for (int i = 0; i < code_words(frame.type); ++i)
    words[i] = frame.erased ? random16(&state->erasure_seed)
                            : state->parameters.subframe[subframe].code[i];
  if (frame.type == kSpeech8k)
    fixed_code_decode_8k(words, code);
  else if (frame.type == kSpeech6k4)
    fixed_code_decode_6k4(words, code);
  else if (frame.lp_mode == kBackward)
    fixed_code_decode_bwd_11k8(words, code);
  else
    fixed_code_decode_fwd_11k8(words, code);
  pitch_sharpen(code, frame.pitch_delay[subframe], state->sharp);
}

// Counts backward subframes; true when the signal has been in backward mode for long.
bool count_backward(DecoderCoreState* state, const DecodedFrame& frame) {
  if (frame.type != kSpeech11k8) return false;
  if (frame.lp_mode == kForward)
    state->bwd35_count = 0;
  else if (state->bwd35_count < kStationaryBackward)
    ++state->bwd35_count;
  return state->bwd35_count == kStationaryBackward;
}

void read_gains(DecoderCoreState* state, const DecodedFrame& frame, int index, const double* code) {
  const bool bwd_stationary = count_backward(state, frame);
  if (frame.erased) {
    if (frame.type == kSpeech11k8)
      gain_conceal_11k8(bwd_stationary, &state->gains);
    else
      gain_conceal(&state->gains);
    ++state->gains.erasure_count;
  } else if (frame.type == kSpeech6k4) {
    gain_decode_6k4(index, code, &state->gains);
  } else {
    gain_decode(index, code, &state->gains);
  }
  state->sharp = sharpening_gain(state->gains.gain_pitch);
}

// At 6.4 kbit/s what is heard is a dispersed form of the excitation.
void decode_subframe(DecoderCoreState* state, int k, DecodedFrame* frame) {
  double code[kSubframe];
  double* const exc = state->old_exc + kExcitationPast + k * kSubframe;
  const PitchLag lag = read_lag(state, *frame, k);
  frame->pitch_delay[k] = lag.t0;
  pitch_excitation_interpolate(exc, lag.t0, lag.frac, kSubframe);
  read_code(state, *frame, k, code);
  read_gains(state, *frame, state->parameters.subframe[k].gain, code);
  frame->heard[k] = total_excitation(&state->dispersion, frame->type == kSpeech6k4, state->gains,
                                     code, exc, frame->dispersed + k * kSubframe);
}

}  // namespace

void decode_speech(DecoderCoreState* state, DecodedFrame* frame) {
  state->noise.noise_seed = kNoiseSeed;
  speech_filters(state, frame);
  for (int k = 0; k < kSubframes; ++k) decode_subframe(state, k, frame);
  const double* const exc = state->old_exc + kExcitationPast;
  if (!frame->erased) state->frame_energy = dot(exc, exc, kFrame);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
