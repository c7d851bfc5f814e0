// The encoder's half of the predictive two-stage LSF quantiser (clause 3.2.4).
#pragma once

#include "codec/dsp/lsp_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Quantises the ten LSFs of a frame (radians, increasing) against the predictor memory, which stays
// as it is. Writes
//   lsp_q     the quantised LSPs, as the decoder reconstructs them,
//   residual  the ten values to push into the memory when the frame is sent,
//   index     word 0: mode << 7 | first-stage row, word 1: lower << 5 | upper second-stage row.
// May print the warnings of lsp_stabilize. Among equal errors the lower row and mode 0 win.
void lsp_quantize(const LspHistory& history, const double* lsf, double* lsp_q, double* residual,
                  int index[2]);

}  // namespace KELG729F_TARGET
}  // namespace g729
