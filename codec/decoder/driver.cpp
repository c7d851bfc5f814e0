#include "codec/decoder/driver.h"

#include <cstring>

#include "codec/decoder/fixed_code_decode.h"
#include "codec/decoder/lag_decode.h"
#include "codec/dsp/diagnostics.h"
#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kStationaryBackward = 30;  // backward subframes that make a signal stationary
constexpr double kFrozenFading = 0.5;    // per good backward frame
constexpr double kFrozenFadingDominant = 0.1;
constexpr double kFullScaleEnergy = kFrame * 32768.0 * 32768.0;  // of a frame
constexpr double kRunawayEnergy = 100.0 * kFullScaleEnergy;

// The frame being decoded. field walks over the parameters that are still to be read.
struct Frame {
  int type;
  int rate;  // of a speech frame
  bool erased;
  int lp_mode;
  const int32_t* field;
};

// Position of the first codebook word in the set, where erasure marks a concealed speech frame.
int first_code_word(const DecoderCoreState& state, int type) {
  if (type == kSpeech8k) return 6;
  return state.prev_lp_mode == kBackward ? 5 : 7;
}

// An erased frame takes the type of the frame before; after a silence descriptor nothing is sent.
void adopt_past_type(const DecoderCoreState& state, int32_t* parameters) {
  int type = state.past_frame_type;
  if (type == kSid) type = kNoTransmission;
  parameters[kType] = type;
  if (type == kSpeech8k || type == kSpeech11k8) parameters[first_code_word(state, type)] = 1;
}

Frame begin_frame(DecoderCoreState* state, int32_t* parameters) {
  const bool erased = parameters[kErased] == 1;
  if (erased) {
    adopt_past_type(*state, parameters);
  } else {
    state->gains.erasure_count = 0;
    state->gains.erasure_attenuation = 1.0;
  }
  Frame frame = {parameters[kType], parameters[kType] - kSpeech6k4, erased, kForward,
                 parameters + kFields};
  if (frame.type == kSpeech11k8) {
    const int mode = *frame.field++;
    frame.lp_mode = erased ? state->prev_lp_mode : mode;
  }
  return frame;
}

void shift_synthesis(double* synthesis) {
  static_assert(kFrame >= kSynthesisPast);
  copy_vector(synthesis + kFrame, synthesis, kSynthesisPast);
}

// Runs the backward analysis, which every 11.8 kbit/s frame moves on, on the past 145 samples.
void backward_filter(DecoderCoreState* state, const Frame& frame, const double* past, double* a) {
  backward_lp_analysis(&state->backward, past, a);
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

void forward_filters(DecoderCoreState* state, Frame* frame, double* a) {
  const int index[2] = {frame->field[0], frame->field[1]};
  frame->field += 2;
  double lsp[kOrder];
  lsp_decode(index, frame->erased, &state->lsp, lsp);
  if (state->prev_lp_mode == kBackward) {
    lsp_to_lpc(lsp, a);
    copy_vector(a, a + kCoeffs, kCoeffs);
  } else {
    interpolate_quantized_lpc(state->lsp_old, lsp, a);
  }
  copy_vector(lsp, state->lsp_old, kOrder);
  backward_smoothing_restart(&state->smoothing, a + kCoeffs);
}

void speech_filters(DecoderCoreState* state, Frame* frame, const double* past,
                    DecodedFrame* decoded) {
  double backward[kBackwardCoeffs];
  if (frame->type == kSpeech11k8) backward_filter(state, *frame, past, backward);
  if (frame->lp_mode == kForward) {
    decoded->order = kOrder;
    forward_filters(state, frame, decoded->a);
  } else {
    decoded->order = kBackwardOrder;
    copy_vector(backward, decoded->a, kBackwardCoeffs);
    copy_vector(backward, decoded->a + kBackwardCoeffs, kBackwardCoeffs);
  }
}

// Repeats the last lag; below 11.8 kbit/s whole, and a sample longer each time.
PitchLag conceal_lag(DecoderCoreState* state, int rate) {
  if (rate == kRate11k8) return {state->old_t0, state->old_t0_frac};
  const PitchLag lag = {state->old_t0, 0};
  state->old_t0 = lag.t0 < kPitchMax ? lag.t0 + 1 : kPitchMax;
  return lag;
}

// first_t0 is the first subframe's lag when the second one is read.
PitchLag read_lag(DecoderCoreState* state, Frame* frame, int subframe, int first_t0) {
  const int index = *frame->field++;
  const bool has_parity = subframe == 0 && frame->rate != kRate6k4;
  const bool wrong_parity = has_parity && *frame->field++ != 0;
  if (wrong_parity && !frame->erased) print_warning(" ! Wrong Pitch 1st subfr. !   ");
  if (frame->erased || wrong_parity) return conceal_lag(state, frame->rate);
  const PitchLag lag = subframe == 0 ? pitch_lag_decode_first(index)
                                     : pitch_lag_decode_second(index, first_t0, frame->rate);
  state->old_t0 = lag.t0;
  state->old_t0_frac = lag.frac;
  return lag;
}

// The code vector, sharpened. An erased frame's words are random.
void read_code(DecoderCoreState* state, Frame* frame, int t0, double* code) {
  int words[kMaxCodeWords];
  const int count = code_words(frame->rate);
  for (int i = 0; i < count; ++i)
    words[i] = frame->erased ? random16(&state->erasure_seed) : frame->field[i];
  frame->field += count;
  if (frame->rate == kRate8k)
    fixed_code_decode_8k(words, code);
  else if (frame->rate == kRate6k4)
    fixed_code_decode_6k4(words, code);
  else if (frame->lp_mode == kBackward)
    fixed_code_decode_bwd_11k8(words, code);
  else
    fixed_code_decode_fwd_11k8(words, code);
  pitch_sharpen(code, t0, state->sharp);
}

// Counts backward subframes; true when the signal has been in backward mode for long.
bool count_backward(DecoderCoreState* state, const Frame& frame) {
  if (frame.rate != kRate11k8) return false;
  if (frame.lp_mode == kForward)
    state->bwd35_count = 0;
  else if (state->bwd35_count < kStationaryBackward)
    ++state->bwd35_count;
  return state->bwd35_count == kStationaryBackward;
}

void read_gains(DecoderCoreState* state, Frame* frame, const double* code, bool bwd_stationary) {
  const int index = *frame->field++;
  if (frame->erased) {
    if (frame->rate == kRate11k8)
      gain_conceal_11k8(bwd_stationary, &state->gains);
    else
      gain_conceal(&state->gains);
    ++state->gains.erasure_count;
  } else if (frame->rate == kRate6k4) {
    gain_decode_6k4(index, code, &state->gains);
  } else {
    gain_decode(index, code, &state->gains);
  }
  state->sharp = sharpening_gain(state->gains.gain_pitch);
}

// At 6.4 kbit/s what is heard is a dispersed form of the excitation.
void decode_speech(DecoderCoreState* state, Frame* frame, const double* past, DecodedFrame* decoded,
                   HeardExcitation* heard) {
  state->noise_seed = kNoiseSeed;
  speech_filters(state, frame, past, decoded);
  double* exc = state->old_exc + kExcitationPast;
  for (int subframe = 0; subframe < kSubframes; ++subframe) {
    double code[kSubframe];
    double* sub_exc = exc + subframe * kSubframe;
    const PitchLag lag = read_lag(state, frame, subframe, decoded->pitch_delay[0]);
    decoded->pitch_delay[subframe] = lag.t0;
    pitch_excitation_interpolate(sub_exc, lag.t0, lag.frac, kSubframe);
    read_code(state, frame, lag.t0, code);
    read_gains(state, frame, code, count_backward(state, *frame));
    heard->subframe[subframe] = total_excitation(
        &state->dispersion, frame->rate == kRate6k4, state->gains.gain_pitch,
        state->gains.gain_code, code, sub_exc, heard->dispersed + subframe * kSubframe);
  }
  if (!frame->erased) state->frame_energy = dot(exc, exc, kFrame);
}

void decode_noise(DecoderCoreState* state, const Frame& frame, DecodedFrame* decoded,
                  HeardExcitation* heard) {
  const SidParameters sid = {frame.field[0], frame.field[1], frame.field[2], frame.field[3]};
  double* exc = state->old_exc + kExcitationPast;
  NoiseSubframe applied[kSubframes];
  decoded->order = kOrder;
  comfort_noise_decode(&state->noise, state->past_frame_type, frame.type == kSid ? &sid : nullptr,
                       state->frame_energy, exc, state->lsp_old, decoded->a, &state->noise_seed,
                       &state->lsp.lsp_predictor, applied);
  for (int subframe = 0; subframe < kSubframes; ++subframe) {
    decoded->pitch_delay[subframe] = 0;
    phase_dispersion_update(&state->dispersion, applied[subframe].gain_pitch,
                            applied[subframe].gain_code);
    heard->subframe[subframe] = exc + subframe * kSubframe;
  }
  state->sharp = kSharpMin;
  state->bwd35_count = 0;
  backward_smoothing_restart(&state->smoothing, decoded->filter(kSubframes - 1));
}

// Bits that no encoder sends can make the excitation grow without end, and good speech would need
// seconds to bring it down again. 20 dB above full scale such a signal is dropped.
// Returns whether it was.
bool stop_runaway(DecoderCoreState* state, double* synthesis) {
  const double* speech = synthesis + kSynthesisPast;
  if (dot(speech, speech, kFrame) < kRunawayEnergy) return false;
  zero_vector(state->old_exc, kExcitationPast + kFrame);
  zero_vector(synthesis, kSynthesisBuffer);
  state->backward = {};
  return true;
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

}  // namespace

void decoder_core_init(DecoderCoreState* state) {
  *state = {};
  lsp_decoder_init(&state->lsp);
}

void decode_excitation(DecoderCoreState* state, int32_t* parameters, int voicing, double* synthesis,
                       DecodedFrame* decoded, HeardExcitation* heard) {
  if (!state->prev_bfi) state->prev_mode_word = voicing;
  Frame frame = begin_frame(state, parameters);
  decoded->type = frame.type;
  decoded->erased = frame.erased;
  if (frame.type >= kSpeech6k4)
    decode_speech(state, &frame, synthesis, decoded, heard);
  else
    decode_noise(state, frame, decoded, heard);
  decoded->lp_mode = frame.lp_mode;
  shift_synthesis(synthesis);
}

void synthesize_subframe(const DecodedFrame& decoded, const HeardExcitation& heard, int subframe,
                         double* synthesis) {
  double* speech = synthesis + kSynthesisPast + subframe * kSubframe;
  synthesis_filter(decoded.order, decoded.filter(subframe), heard.subframe[subframe], speech,
                   kSubframe, speech - decoded.order, false);
}

bool finish_frame(DecoderCoreState* state, const DecodedFrame& decoded, double* synthesis) {
  if (decoded.type >= kSpeech6k4)
    backward_dominance_update(&state->dominance, decoded.lp_mode, synthesis + kSynthesisPast);
  const bool dropped = stop_runaway(state, synthesis);
  update_transition(state, decoded);
  std::memmove(state->old_exc, state->old_exc + kFrame, kExcitationPast * sizeof(double));
  state->past_frame_type = decoded.type;
  state->prev_bfi = decoded.erased;
  state->prev_lp_mode = decoded.lp_mode;
  return dropped;
}

void decode_frame_core(DecoderCoreState* state, int32_t* parameters, int voicing, double* synthesis,
                       DecodedFrame* decoded) {
  HeardExcitation heard;
  decode_excitation(state, parameters, voicing, synthesis, decoded, &heard);
  for (int subframe = 0; subframe < kSubframes; ++subframe)
    synthesize_subframe(*decoded, heard, subframe, synthesis);
  finish_frame(state, *decoded, synthesis);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
