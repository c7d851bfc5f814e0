// Decoding of the adaptive- and fixed-codebook gains (clause 4.1.5) and their concealment
// (clauses 4.4.2, 4.4.3, Annex E).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/gain_predictor.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct GainDecoderState : Gains {    // of the last subframe
  GainHistory past_energy;           // predictor memory
  double erasure_attenuation = 1.0;  // fading of the 11.8 kbit/s gains, 1.0 on good frames
  int erasure_count = 0;             // erased subframes since the last good frame
};

// A good subframe's gains at 8 and 11.8 kbit/s: 7-bit index, the code vector before the gain.
void gain_decode(int index, const double* code, GainDecoderState* state);

// The same at 6.4 kbit/s: 6-bit index.
void gain_decode_6k4(int index, const double* code, GainDecoderState* state);

// An erased subframe at 6.4 and 8 kbit/s: both gains fade from the subframe before.
void gain_conceal(GainDecoderState* state);

// An erased subframe at 11.8 kbit/s. The first two subframes of an erasure (erasure_count 0 and 1)
// keep the energy, the others fade; slower when the signal has long been in backward mode
// (bwd_stationary). Does not advance erasure_count.
void gain_conceal_11k8(bool bwd_stationary, GainDecoderState* state);

}  // namespace KELG729F_TARGET
}  // namespace g729
