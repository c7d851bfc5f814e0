// What the stages of one frame hand to each other; lives on the stack of the driver.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/filters.h"
#include "codec/encoder/lp_analysis.h"
#include "codec/encoder/lsp_quantizer.h"
#include "codec/encoder/weighting.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// An LP filter and what weighting makes of it, A(z/gamma1) and A(z/gamma2).
struct WeightedFilter {
  LpFilter filter;
  double ap1[kBackwardCoeffs], ap2[kBackwardCoeffs];
};

struct FrameWork {
  double
      r[kAutocorrelations + 1];  // lag-windowed autocorrelation, with silence compression to lag 12
  double r_unwindowed[kCoeffs];  // the same before the lag window
  double rc[kOrder];             // reflection coefficients
  double lsp_new[kOrder];        // LSPs of this frame
  double lsf[kSubframes * kOrder];         // LSFs of both subframes, the second's those of lsp_new
  double forward[kSubframes * kCoeffs];    // unquantized filters
  double forward_q[kSubframes * kCoeffs];  // quantized filters; comfort noise in silence
  double backward[kBackwardCoeffs];        // backward filter in use
  QuantizedLsp lsp_new_q;                  // of an active frame
  bool vad;                                // active
  LpMode lp_mode;
  WeightingFactors factors;
  LpFilter quantized[kSubframes];  // synthesis filters, of the same order
  WeightedFilter weighting[kSubframes];
};

}  // namespace KELG729F_TARGET
}  // namespace g729
