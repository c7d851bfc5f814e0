// Inputs of the kernels as they stand in the middle of coding speech. Compiled once per build of
// the codec core.
#pragma once

#include <cstdint>

#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/pitch.h"
#include "codec/encoder/fixed_codebook.h"
#include "codec/encoder/gain_quantizer.h"
#include "codec/frame_coder.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// One frame's inputs, first subframe where a kernel works on subframes.
struct KernelInput {
  double window[kWindow];         // analysis window
  double r[13];                   // lag-windowed autocorrelation
  double a[kCoeffs], rc[kOrder];  // LP filter and reflection coefficients
  double lsp_old[kOrder], lsp[kOrder];
  LspHistory lsp_history;
  double a_q[2 * kCoeffs];               // quantized filters
  double wsp[kPitchMax + kFrame];        // weighted speech: past, frame
  int t_op;                              // open-loop lag
  double exc[kExcitationPast + kFrame];  // past excitation, residual
  double xn[kSubframe], h[kSubframe];    // target and impulse response
  PitchLag lag;
  double y1[kSubframe], xn2[kSubframe];  // filtered adaptive vector, target of the innovation
  Innovation innovation;
  double gain_terms[kGainTerms];
  GainHistory gain_history;
  double past[kSynthesisPast + kFrame];  // decoded synthesis up to the frame's end
  double a_decoded[kCoeffs];
  int t0_decoded;
  SerialFrame serial;
};

// Codes `samples` and keeps the inputs of `count` loud frames evenly spread over them; returns how
// many there are.
int collect_kernel_inputs(const int16_t* samples, int frames, int count, KernelInput* inputs);

}  // namespace KELG729F_TARGET
}  // namespace g729
