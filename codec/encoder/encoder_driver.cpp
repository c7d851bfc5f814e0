#include "codec/encoder/encoder_driver.h"

#include <algorithm>

#include "codec/dsp/backward_lp.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/random.h"
#include "codec/dsp/simd/flush_denormals.h"
#include "codec/dtx/comfort_noise.h"
#include "codec/dtx/dtx_encode.h"
#include "codec/dtx/vad.h"
#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/frame_work.h"
#include "codec/encoder/joint_search.h"
#include "codec/encoder/lp_analysis.h"
#include "codec/encoder/lsp_quantizer.h"
#include "codec/encoder/mode_decision.h"
#include "codec/encoder/music_detector.h"
#include "codec/encoder/open_loop_pitch.h"
#include "codec/encoder/preprocess.h"
#include "codec/encoder/subframe.h"
#include "codec/encoder/taming.h"
#include "codec/encoder/target.h"
#include "codec/encoder/weighting.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

const double* speech_of(const EncoderCoreState* state) {
  return state->old_speech + kSpeechPast;
}

void analyse_spectrum(EncoderCoreState* state, FrameWork* w, int highest_lag) {
  double a[kCoeffs];
  autocorrelation(state->old_speech, highest_lag, w->r);
  copy_vector(w->r, w->r_unwindowed, kCoeffs);
  apply_lag_window(highest_lag, w->r);
  levinson_durbin_10(w->r, a, w->rc, &state->levinson);
  lpc_to_lsp(a, w->lsp_new, state->lsp_old);
}

// The LSFs of lsp_new.
std::span<const double, kOrder> lsf_new(const FrameWork& w) {
  return std::span<const double, kOrder>(w.lsf + kOrder, kOrder);
}

bool detect_voice(EncoderCoreState* state, const FrameWork& w, Rate rate) {
  const VadDecision decision = vad_decide(&state->vad, {.rc = w.rc[1],
                                                        .lsf = lsf_new(w),
                                                        .r = w.r,
                                                        .speech = state->old_speech,
                                                        .frame_count = state->frame_counter,
                                                        .prev_marker = state->past_vad,
                                                        .pprev_marker = state->past_past_vad,
                                                        .wait_for_sound = state->complexity > 0});
  if (decision.waited) --state->frame_counter;
  const bool vad = music_detect(&state->music, {.rate = rate,
                                                .rc = w.rc,
                                                .lag_buf = state->lag_buf,
                                                .pgain_buf = state->pgain_buf,
                                                .prev_lp_mode = state->prev_lp_mode,
                                                .past_vad = state->past_vad,
                                                .energy_db = decision.energy_db,
                                                .vad = decision.voice});
  dtx_update(&state->dtx, w.r_unwindowed, vad);
  return vad;
}

void interpolate_unquantized(const EncoderCoreState& state, FrameWork* w) {
  const double* const old = state.prev_lp_mode == kForward ? state.lsp_old : w->lsp_new;
  interpolate_lpc(old, w->lsp_new, w->lsf, w->forward);
}

void quantize_spectrum(EncoderCoreState* state, FrameWork* w) {
  w->lsp_new_q = lsp_quantize(state->freq_prev, lsf_new(*w));
  state->remarks |= w->lsp_new_q.remarks;
  const double* const lsp_q = w->lsp_new_q.lsp_q;
  const double* const old = state->prev_lp_mode == kForward ? state->lsp_old_q : lsp_q;
  interpolate_quantized_lpc(old, lsp_q, w->forward_q);
}

void use_spectrum(const Spectra& spectra, int chosen, FrameWork* w) {
  w->lsp_new_q = spectra.candidate[chosen].quantized;
  copy_vector(spectra.filter[chosen], w->forward_q, kSubframes * kCoeffs);
}

void decide_mode(EncoderCoreState* state, FrameWork* w, Rate rate) {
  if (w->vad && rate == kRate11k8) {
    double backward[kBackwardCoeffs];
    backward_lp_analysis(&state->backward_lp, state->synthesis, backward);
    const ModeInput input = {speech_of(state), w->forward_q, backward, w->lsp_new, state->lsp_old};
    w->lp_mode = mode_decide(&state->mode, input, w->backward);
  } else {
    simple_mode_update(&state->mode);
    w->lp_mode = kForward;
  }
}

void choose_filters(FrameWork* w, bool bwd_dominant) {
  const LpFilter backward = {w->backward, kBackwardOrder};
  for (int k = 0; k < kSubframes; ++k) {
    const LpFilter forward = {w->forward + k * kCoeffs, kOrder};
    const LpFilter forward_q = {w->forward_q + k * kCoeffs, kOrder};
    if (w->lp_mode == kBackward) {
      w->quantized[k] = backward;
      w->weighting[k].filter = bwd_dominant ? backward : forward;
    } else {
      w->quantized[k] = forward_q;
      w->weighting[k].filter = bwd_dominant ? forward_q : forward;
    }
  }
}

void choose_weighting(EncoderCoreState* state, FrameWork* w) {
  w->factors = w->lp_mode == kBackward
                   ? fixed_weighting_factors(state->mode.bwd_dominant)
                   : perceptual_weighting_factors(w->lsf, w->rc, &state->weighting);
  choose_filters(w, state->mode.bwd_dominant);
}

void remember_decision(EncoderCoreState* state, bool vad) {
  state->past_past_vad = state->past_vad;
  state->past_vad = vad;
}

// The music detector watches half and a third of the lag as well as the lag itself.
void smooth_lag(int* lag_buf, int t_op) {
  const double mean = (lag_buf[1] + lag_buf[2] + lag_buf[3] + lag_buf[4]) * 0.25;
  for (int i = 0; i + 1 < kMusicHistory; ++i) lag_buf[i] = lag_buf[i + 1];
  const int centre = static_cast<int>(mean + 0.5);
  for (int part = 2; part <= 3; ++part) {
    const int distance = t_op / part - centre;
    if (distance >= -2 && distance <= 2) {
      lag_buf[4] = t_op / part;
      return;
    }
  }
  lag_buf[4] = t_op;
}

LagRange first_lag_range(int t_op) {
  constexpr int kWidth = 6;
  const int low = t_op - 3 < kPitchMin ? kPitchMin : t_op - 3;
  if (low + kWidth > kPitchMax) return {kPitchMax - kWidth, kPitchMax};
  return {low, low + kWidth};
}

// What a forward frame leaves to the next one, and its words.
void keep_spectrum(EncoderCoreState* state, const FrameWork& w, ParameterSet* set) {
  backward_smoothing_restart(&state->mode.smoothing, w.forward_q + kCoeffs);
  copy_vector(w.lsp_new_q.lsp_q, state->lsp_old_q, kOrder);
  lsp_history_push(w.lsp_new_q.residual, &state->freq_prev);
  std::copy_n(w.lsp_new_q.ana, 2, set->lsp);
}

// spectra is null where the stages decide one by one.
ParameterSet code_active_frame(EncoderCoreState* state, FrameWork* w, Rate rate,
                               const Spectra* spectra) {
  ParameterSet set;
  set.type = static_cast<FrameType>(rate + 2);
  set.lp_mode = w->lp_mode;
  remember_decision(state, true);
  state->dtx.noise.noise_seed = kNoiseSeed;
  const int t_op = open_loop_pitch(state->old_wsp + kPitchMax);
  smooth_lag(state->lag_buf, t_op);
  LagRange range = first_lag_range(t_op);
  if (spectra) {
    use_spectrum(*spectra, search_jointly(state, w, *spectra, rate, range, set.subframe), w);
    state->remarks |= w->lsp_new_q.remarks;
  } else {
    for (int k = 0; k < kSubframes; ++k)
      set.subframe[k] = code_subframe(state, *w, k, rate, &range);
  }
  if (w->lp_mode == kForward) keep_spectrum(state, *w, &set);
  backward_dominance_update(&state->mode.dominance, w->lp_mode, state->synthesis + kSynthesisPast);
  return set;
}

ParameterSet code_inactive_frame(EncoderCoreState* state, FrameWork* w) {
  NoiseLevel* const level = state->complexity > 0 ? &state->noise_level : nullptr;
  const DtxFrame coded =
      dtx_encode_frame(&state->dtx, state->past_vad, level, state->old_exc + kExcitationPast,
                       state->lsp_old_q, &state->freq_prev);
  state->remarks |= coded.noise.remarks;
  copy_vector(coded.noise.a, w->forward_q, kSubframes * kCoeffs);
  remember_decision(state, false);
  for (int k = 0; k < kSubframes; ++k) {
    const NoiseSubframe& applied = coded.noise.applied[k];
    w->weighting[k].filter = w->quantized[k];
    taming_update(&state->exc_err, applied.gains.gain_pitch, applied.lag);
    phase_dispersion_update(&state->dispersion, applied.gains);
  }
  expand_bandwidth(w);
  for (int k = 0; k < kSubframes; ++k) synthesize_noise_subframe(state, *w, k);
  if (level) {
    noise_level_update(level, std::span<const double, kFrame>(speech_of(state), kFrame),
                       std::span<const double, kFrame>(state->synthesis + kSynthesisPast, kFrame));
  }
  backward_smoothing_restart(&state->mode.smoothing, w->forward_q + kCoeffs);
  state->sharp = kSharpMin;
  return {.type = coded.type, .sid = coded.sid};
}

// Moves the last `keep` values of a buffer to its front.
void shift(double* buffer, int size, int keep) {
  for (int i = 0; i < keep; ++i) buffer[i] = buffer[size - keep + i];
}

void shift_histories(EncoderCoreState* state) {
  shift(state->old_speech, kWindow, kWindow - kFrame);
  shift(state->old_wsp, kPitchMax + kFrame, kPitchMax);
  shift(state->old_exc, kExcitationPast + kFrame, kExcitationPast);
}

int next_count(int count) {
  constexpr int kLast = 32767, kWrap = 256;
  return count == kLast ? kWrap : count + 1;
}

}  // namespace

void encoder_core_init(EncoderCoreState* state, bool annexb) {
  *state = {};
  state->dtx_enabled = annexb;
  copy_vector(kInitialLsp, state->lsp_old, kOrder);
  copy_vector(kInitialLsp, state->lsp_old_q, kOrder);
  lsp_history_reset(&state->freq_prev);
}

ParameterSet encode_frame(EncoderCoreState* state, Samples samples, Rate rate) {
  const FlushDenormals flush;
  alignas(kAlign) double input[kFrame];
  std::ranges::copy(samples, input);
  state->frame_counter = next_count(state->frame_counter);
  preprocess_highpass(&state->preproc_state, input, kFrame);
  return encoder_process_frame(state, input, rate);
}

ParameterSet encoder_process_frame(EncoderCoreState* state, std::span<const double, kFrame> input,
                                   Rate rate) {
  FrameWork w;
  state->remarks = 0;
  Spectra spectra;
  const bool jointly = state->complexity > 0;
  double* const new_speech = state->old_speech + kNewSpeech;
  copy_vector(input.data(), new_speech, kFrame);
  // Only the voice activity detector looks beyond the order of the filter.
  analyse_spectrum(state, &w, state->dtx_enabled ? kAutocorrelations : kOrder);
  interpolate_unquantized(*state, &w);
  w.vad = state->dtx_enabled ? detect_voice(state, w, rate) : true;
  if (w.vad && jointly) {
    find_spectra(*state, lsf_new(w), kEffort[state->complexity - 1], &spectra);
    use_spectrum(spectra, 0, &w);
  } else if (w.vad) {
    quantize_spectrum(state, &w);
  }
  decide_mode(state, &w, rate);
  shift(state->synthesis, kSynthesisPast + kFrame, kSynthesisPast);
  copy_vector(w.lsp_new, state->lsp_old, kOrder);
  choose_weighting(state, &w);
  expand_bandwidth(&w);
  weight_speech(speech_of(state), w, state->old_wsp + kPitchMax);
  const ParameterSet set =
      w.vad ? code_active_frame(state, &w, rate,
                                jointly && w.lp_mode == kForward ? &spectra : nullptr)
            : code_inactive_frame(state, &w);
  state->prev_lp_mode = w.lp_mode;
  shift_histories(state);
  return set;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
