// Several quantized spectra of a frame (clause 3.2.4), for the subframes to decide between.
#pragma once

#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/encoder/complexity.h"
#include "codec/encoder/lsp_quantizer.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct LspCandidate {
  QuantizedLsp quantized;
  double distortion;  // weighted squared error of the LSFs, radians^2
};

// The effort.spectra candidates of least weighted error, the best first, of the LSFs of a frame
// (radians, increasing). The nearest effort.spectrum_rows rows of the first stage of both
// predictors each get their best second stage. Returns their count.
int lsp_candidates(const LspHistory& history, std::span<const double, kOrder> lsf,
                   const Effort& effort, LspCandidate candidate[kMostSpectra]);

}  // namespace KELG729F_TARGET
}  // namespace g729
