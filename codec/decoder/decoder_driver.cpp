#include "codec/decoder/decoder_driver.h"

#include <cstring>

#include "codec/decoder/decoded_frame.h"
#include "codec/decoder/gain_decode.h"
#include "codec/decoder/lsp_decode.h"
#include "codec/decoder/postprocess.h"
#include "codec/decoder/render.h"
#include "codec/decoder/speech_frame.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/flush_denormals.h"
#include "codec/dtx/comfort_noise.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kFrozenFading = 0.5;  // per good backward frame
constexpr double kFrozenFadingDominant = 0.1;

// An erased frame takes the type of the frame before; after a silence descriptor nothing is sent.
// The mark in a speech frame's first code word has no effect, as that word will be random.
void adopt_past_type(const DecoderCoreState& state, ParameterSet* set) {
  set->type = state.past_frame_type == kSid ? kNoTransmission : state.past_frame_type;
  if (set->type == kSpeech8k || set->type == kSpeech11k8) set->subframe[0].code[0] = 1;
}

void begin_frame(DecoderCoreState* state, DecodedFrame* frame) {
  ParameterSet* const set = &state->parameters;
  if (frame->erased) {
    adopt_past_type(*state, set);
  } else {
    state->gains.erasure_count = 0;
    state->gains.erasure_attenuation = 1.0;
  }
  frame->type = set->type;
  frame->lp_mode = kForward;
  if (frame->type == kSpeech11k8)
    frame->lp_mode = frame->erased ? state->prev_lp_mode : set->lp_mode;
}

void decode_noise(DecoderCoreState* state, DecodedFrame* frame) {
  double* exc = state->old_exc + kExcitationPast;
  const NoiseInput input = {state->past_frame_type,
                            frame->type == kSid ? &state->parameters.sid : nullptr,
                            state->frame_energy};
  const NoiseFrame noise =
      comfort_noise_decode(&state->noise, input, exc, state->lsp_old, &state->lsp.lsp_predictor);
  state->remarks |= noise.remarks;
  frame->order = kOrder;
  copy_vector(noise.a, frame->az_out, kSubframes * kCoeffs);
  for (int k = 0; k < kSubframes; ++k) {
    frame->pitch_delay[k] = 0;
    phase_dispersion_update(&state->dispersion, noise.applied[k].gains);
    frame->heard[k] = exc + k * kSubframe;
  }
  state->sharp = kSharpMin;
  state->bwd35_count = 0;
  backward_smoothing_restart(&state->smoothing, frame->filter(kSubframes - 1).a);
}

// All but the new samples of the synthesis, for which the past moves on.
void decode_frame_core(DecoderCoreState* state, DecodedFrame* frame) {
  if (!state->prev_bfi) state->prev_mode_word = state->voicing;
  begin_frame(state, frame);
  if (frame->type >= kSpeech6k4)
    decode_speech(state, frame);
  else
    decode_noise(state, frame);
  static_assert(kFrame >= kSynthesisPast);
  copy_vector(state->synthesis + kFrame, state->synthesis, kSynthesisPast);
}

// Share of the frozen filter in the next backward frame.
void update_transition(DecoderCoreState* state, const DecodedFrame& frame) {
  if (frame.erased) {
    state->transition_gamma = 1.0;
  } else if (frame.lp_mode == kForward) {
    state->transition_gamma = 0.0;
  } else {
    const double left = state->transition_gamma -
                        (state->dominance.bwd_dominant ? kFrozenFadingDominant : kFrozenFading);
    state->transition_gamma = left > 0.0 ? left : 0.0;
  }
}

void end_frame(DecoderCoreState* state, const DecodedFrame& frame) {
  update_transition(state, frame);
  std::memmove(state->old_exc, state->old_exc + kFrame, kExcitationPast * sizeof(double));
  state->past_frame_type = frame.type;
  state->prev_bfi = frame.erased;
  state->prev_lp_mode = frame.lp_mode;
}

}  // namespace

void decoder_core_init(DecoderCoreState* state) {
  *state = {};
  lsp_decoder_init(&state->lsp);
}

void decode_frame(DecoderCoreState* state, bool erased, int16_t* samples) {
  const FlushDenormals flush;
  ++state->frame_counter;
  state->remarks = 0;
  DecodedFrame frame;
  frame.erased = erased;
  decode_frame_core(state, &frame);
  render(state, frame);
  end_frame(state, frame);
  wrap_to_samples(state->output, samples);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
