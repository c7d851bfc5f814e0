// Comfort-noise generation (Annex B clause B.4.4), run alike by decoder and encoder.
#pragma once

#include <cstdint>

#include "codec/dsp/constants.h"
#include "codec/dsp/lsp_codebook.h"

namespace g729::inline KELG729F_TARGET {

struct ComfortNoiseState {
  double sid_gain = 0;  // gain of the last silence descriptor
  double cur_gain = 0;  // smoothed gain in use
  double lsp_sid[kOrder] = {0.9595,  0.8413,  0.6549,  0.4154,  0.1423,
                            -0.1423, -0.4154, -0.6549, -0.8413, -0.9595};  // its LSPs
};

// The four words of a silence descriptor.
struct SidParameters {
  int mode;    // noise predictor, 0 or 1
  int first;   // 5-bit pointer to a first-stage row
  int second;  // 4-bit pointer to a pair of second-stage rows
  int energy;  // 5-bit energy index
};

// What the excitation of a subframe used, for the memories that follow it (the encoder's taming,
// the decoder's phase dispersion).
struct NoiseSubframe {
  double gain_pitch;
  double gain_code;
  int lag;
};

extern const double kSidGain[32];           // energy index -> gain
extern const int kSidFirstStage[32];        // pointer -> first-stage row
extern const int kSidSecondStageLower[16];  // pointer -> second-stage row, columns 0..4
extern const int kSidSecondStageUpper[16];  // pointer -> second-stage row, columns 5..9

// Quantises the sum of `count` (0..2) frame energies; count 0 takes energies[0] unaveraged, the
// decoder's stored excitation energy. Returns the level in dB, *index its energy index.
double sid_gain_quantize(const double* energies, int count, int* index);

// 80 samples of noise at `gain` into exc, whose kExcitationPast past samples must be valid.
void comfort_noise_excitation(double gain, double* exc, int16_t* seed,
                              NoiseSubframe applied[kSubframes]);

// One frame without speech. sid is null for an untransmitted frame. previous_type is the type of
// the frame before; frame_energy the excitation energy of the last good speech frame. Writes the
// excitation exc[0..79] and both subframes' filters a[0..21], moves lsp_old to the SID's LSPs.
void comfort_noise_decode(ComfortNoiseState* state, int previous_type, const SidParameters* sid,
                          double frame_energy, double* exc, double* lsp_old, double* a,
                          int16_t* seed, LspHistory* history, NoiseSubframe applied[kSubframes]);

}  // namespace g729::inline KELG729F_TARGET
