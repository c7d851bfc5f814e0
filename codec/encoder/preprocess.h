// High-pass pre-processing of the encoder's input (clause 3.1).
#pragma once

#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Second-order pole/zero filter with its cut-off at 140 Hz, in place over n samples. The standard's
// scaling by 1/2 is left out: signals stay on the 16-bit scale. The state starts as zeros and
// carries over from frame to frame.
void preprocess_highpass(BiquadMemory* state, double* x, int n);

}  // namespace KELG729F_TARGET
}  // namespace g729
