#include "codec/encoder/active_frame.h"

#include <algorithm>

#include "codec/dsp/backward_mode.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/mode_decision.h"
#include "codec/encoder/music_detector.h"
#include "codec/encoder/open_loop_pitch.h"
#include "codec/encoder/subframe.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

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

}  // namespace

ParameterSet code_active_frame(EncoderCoreState* state, FrameWork* w, Rate rate,
                               const Spectra* spectra) {
  ParameterSet set;
  set.type = static_cast<FrameType>(rate + 2);
  set.lp_mode = w->lp_mode;
  state->dtx.noise.noise_seed = kNoiseSeed;
  const int t_op = open_loop_pitch(state->old_wsp + kPitchMax);
  smooth_lag(state->lag_buf, t_op);
  LagRange range = first_lag_range(t_op);
  if (spectra) {
    search_jointly(state, w, *spectra, rate, range, set.subframe);
    state->remarks |= w->lsp_new_q.remarks;
  } else {
    for (int k = 0; k < kSubframes; ++k)
      set.subframe[k] = code_subframe(state, *w, k, rate, &range);
  }
  if (w->lp_mode == kForward) keep_spectrum(state, *w, &set);
  backward_dominance_update(&state->mode.dominance, w->lp_mode, state->synthesis + kSynthesisPast);
  return set;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
