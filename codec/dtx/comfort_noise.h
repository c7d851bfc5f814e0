// Comfort-noise generation (Annex B clause B.4.4), run alike by decoder and encoder.
#pragma once

#include <cstdint>
#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/diagnostics.h"
#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dsp/random.h"
#include "codec/dtx/sid.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct ComfortNoiseState {
  double sid_gain = 0;  // gain of the last silence descriptor
  double cur_gain = 0;  // smoothed gain in use
  int16_t noise_seed = kNoiseSeed;
  double lsp_sid[kOrder] = {0.9595,  0.8413,  0.6549,  0.4154,  0.1423,
                            -0.1423, -0.4154, -0.6549, -0.8413, -0.9595};  // its LSPs
};

// What the excitation of a subframe used, for the memories that follow it (the encoder's taming,
// the decoder's phase dispersion).
struct NoiseSubframe {
  Gains gains;
  int lag;
};

// 80 samples of noise at `gain` into exc, whose kExcitationPast past samples must be valid. Each
// subframe has the energy 40 gain^2, save one whose adaptive part alone is louder: it gets its
// Gaussian part alone, 10 gain^2. A gain of 0 gives zeros and leaves the seed alone.
void comfort_noise_excitation(double gain, double* exc, int16_t* seed,
                              NoiseSubframe applied[kSubframes]);

// A frame without speech.
struct NoiseInput {
  FrameType previous_type;   // of the frame before
  const SidParameters* sid;  // null for an untransmitted frame
  double frame_energy;       // excitation energy of the last good speech frame
};
struct NoiseFrame {
  double a[kSubframes * kCoeffs];  // filters of the subframes, 11 coefficients each
  NoiseSubframe applied[kSubframes];
  Remarks remarks;
};

// Writes the excitation exc[0..79], behind its past as above; moves lsp_old to the LSPs of the last
// descriptor and history by those of this one.
NoiseFrame comfort_noise_decode(ComfortNoiseState* state, const NoiseInput& in, double* exc,
                                std::span<double, kOrder> lsp_old, LspHistory* history);

}  // namespace KELG729F_TARGET
}  // namespace g729
