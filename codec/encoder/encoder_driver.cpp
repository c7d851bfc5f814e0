#include "codec/encoder/encoder_driver.h"

#include <algorithm>

#include "codec/dsp/backward_lp.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/simd/flush_denormals.h"
#include "codec/dtx/dtx_encode.h"
#include "codec/dtx/vad.h"
#include "codec/encoder/active_frame.h"
#include "codec/encoder/frame_work.h"
#include "codec/encoder/inactive_frame.h"
#include "codec/encoder/joint_search.h"
#include "codec/encoder/lp_analysis.h"
#include "codec/encoder/lsp_quantizer.h"
#include "codec/encoder/mode_decision.h"
#include "codec/encoder/music_detector.h"
#include "codec/encoder/preprocess.h"
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

// The spectrum to code at complexity 1 and above.
void analyse_spectrum_for_search(EncoderCoreState* state, FrameWork* w) {
  double r[kCoeffs], a[kCoeffs], rc[kOrder];
  search_autocorrelation(state->old_speech, r);
  levinson_durbin_10(r, a, rc, &state->levinson);
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

// Whether the frame is speech, its spectrum, and what of it is to be coded.
void analyse_frame(EncoderCoreState* state, FrameWork* w, Rate rate, Spectra* spectra) {
  const bool jointly = state->complexity > 0;
  w->vad = true;
  if (state->dtx_enabled || !jointly) {
    // Only the voice activity detector looks beyond the order of the filter.
    analyse_spectrum(state, w, state->dtx_enabled ? kAutocorrelations : kOrder);
    interpolate_unquantized(*state, w);
    if (state->dtx_enabled) w->vad = detect_voice(state, *w, rate);
  }
  if (w->vad && jointly) {
    analyse_spectrum_for_search(state, w);
    interpolate_unquantized(*state, w);
    find_spectra(*state, lsf_new(*w), w, spectra);
  } else if (w->vad) {
    quantize_spectrum(state, w);
  }
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
  if (w->lp_mode == kBackward)
    w->factors = fixed_weighting_factors(state->mode.bwd_dominant);
  else if (state->complexity > 0)
    w->factors = kSearchWeightingFactors;
  else
    w->factors = perceptual_weighting_factors(w->lsf, w->rc, &state->weighting);
  choose_filters(w, state->mode.bwd_dominant);
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
  Spectra spectra;
  state->remarks = 0;
  double* const new_speech = state->old_speech + kNewSpeech;
  copy_vector(input.data(), new_speech, kFrame);
  analyse_frame(state, &w, rate, &spectra);
  decide_mode(state, &w, rate);
  shift(state->synthesis, kSynthesisPast + kFrame, kSynthesisPast);
  copy_vector(w.lsp_new, state->lsp_old, kOrder);
  choose_weighting(state, &w);
  expand_bandwidth(&w);
  weight_speech(speech_of(state), w, state->old_wsp + kPitchMax);
  const bool jointly = state->complexity > 0 && w.lp_mode == kForward;
  const ParameterSet set = w.vad ? code_active_frame(state, &w, rate, jointly ? &spectra : nullptr)
                                 : code_inactive_frame(state, &w);
  state->past_past_vad = state->past_vad;
  state->past_vad = w.vad;
  state->prev_lp_mode = w.lp_mode;
  shift_histories(state);
  return set;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
