// Decoding of a frame's LSPs (clause 4.1.1) and their concealment (clause 4.4.1).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/diagnostics.h"
#include "codec/dsp/lsp_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct LspDecoderState {
  LspHistory lsp_predictor;  // residuals of the last four frames; silence descriptors push too
  double prev_lsf[kOrder];   // LSFs of the last speech frame, radians
  int prev_ma_mode = 0;      // its predictor, 0 or 1
};

// Evenly spaced LSFs everywhere.
void lsp_decoder_init(LspDecoderState* state);

// LSPs of a speech frame from its two LSP words. An erased frame repeats the previous frame's LSFs
// (index is not read then) and pushes the residual that would have given them.
Remarks lsp_decode(const int index[2], bool erased, LspDecoderState* state, double lsp[kOrder]);

}  // namespace KELG729F_TARGET
}  // namespace g729
