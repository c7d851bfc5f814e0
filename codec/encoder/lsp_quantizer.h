// The encoder's half of the predictive two-stage LSF quantizer (clause 3.2.4).
#pragma once

#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/diagnostics.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/tables/lsp_predictors.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Codebook rows, and the mode of the predictor that they go with.
struct LspRows {
  int mode, first, lower, upper;
};

struct QuantizedLsp {
  int ana[2];               // mode << 7 | first-stage row; lower << 5 | upper second-stage row
  double lsp_q[kOrder];     // as the decoder reconstructs them
  double residual[kOrder];  // what the memory receives when the frame is sent
  Remarks remarks;          // those of lsp_stabilize
};

// Weighted error in the LSF domain that a spread sum of codebook rows leaves.
double lsf_error(const LspPredictor& predictor, const double* codevector, const double* target,
                 const double* weight);

// What the decoder makes of the rows with this predictor memory.
QuantizedLsp quantized_lsp(const LspRows& rows, const LspHistory& history);

// Quantizes the LSFs of a frame (radians, increasing) against the predictor memory, which stays as
// it is. Among equal errors the lower row and mode 0 win.
QuantizedLsp lsp_quantize(const LspHistory& history, std::span<const double, kOrder> lsf);

}  // namespace KELG729F_TARGET
}  // namespace g729
