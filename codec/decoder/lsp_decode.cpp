#include "codec/decoder/lsp_decode.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/math.h"
#include "codec/dsp/tables/lsp_predictors.h"

namespace g729 {
inline namespace KELG729F_TARGET {

void lsp_decoder_init(LspDecoderState* state) {
  lsp_history_reset(&state->lsp_predictor);
  copy_vector(state->lsp_predictor.row[0], state->prev_lsf, kOrder);
  state->prev_ma_mode = 0;
}

Remarks lsp_decode(const int index[2], bool erased, LspDecoderState* state, double lsp[kOrder]) {
  double residual[kOrder];
  Remarks remarks = 0;
  if (erased) {
    lsp_residual(kSpeechPredictor[state->prev_ma_mode], state->lsp_predictor, state->prev_lsf,
                 residual);
  } else {
    remarks = lsp_reconstruct(index, state->lsp_predictor, residual, state->prev_lsf);
    state->prev_ma_mode = (index[0] >> 7) & 1;
  }
  lsp_history_push(residual, &state->lsp_predictor);
  cosine(state->prev_lsf, lsp, kOrder);
  return remarks;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
