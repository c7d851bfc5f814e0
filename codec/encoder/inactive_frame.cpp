#include "codec/encoder/inactive_frame.h"

#include <span>

#include "codec/dsp/backward_mode.h"
#include "codec/dsp/filters.h"
#include "codec/dsp/phase_dispersion.h"
#include "codec/dsp/pitch.h"
#include "codec/dtx/comfort_noise.h"
#include "codec/dtx/dtx_encode.h"
#include "codec/encoder/subframe.h"
#include "codec/encoder/taming.h"
#include "codec/encoder/target.h"

namespace g729 {
inline namespace KELG729F_TARGET {

ParameterSet code_inactive_frame(EncoderCoreState* state, FrameWork* w) {
  NoiseLevel* const level = state->complexity > 0 ? &state->noise_level : nullptr;
  const DtxFrame coded =
      dtx_encode_frame(&state->dtx, state->past_vad, level, state->old_exc + kExcitationPast,
                       state->lsp_old_q, &state->freq_prev);
  state->remarks |= coded.noise.remarks;
  copy_vector(coded.noise.a, w->forward_q, kSubframes * kCoeffs);
  for (int k = 0; k < kSubframes; ++k) {
    const NoiseSubframe& applied = coded.noise.applied[k];
    w->weighting[k].filter = w->quantized[k];
    taming_update(&state->exc_err, applied.gains.gain_pitch, applied.lag);
    phase_dispersion_update(&state->dispersion, applied.gains);
  }
  expand_bandwidth(w);
  for (int k = 0; k < kSubframes; ++k) synthesize_noise_subframe(state, *w, k);
  if (level) {
    noise_level_update(level,
                       std::span<const double, kFrame>(state->old_speech + kSpeechPast, kFrame),
                       std::span<const double, kFrame>(state->synthesis + kSynthesisPast, kFrame));
  }
  backward_smoothing_restart(&state->mode.smoothing, w->forward_q + kCoeffs);
  state->sharp = kSharpMin;
  return {.type = coded.type, .sid = coded.sid};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
