// Discontinuous transmission (Annex B clause B.4): what an inactive frame sends.
#pragma once

#include <cstdint>
#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/parameter_set.h"
#include "codec/dtx/comfort_noise.h"
#include "codec/dtx/noise_level.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kSumAcf = 3;  // completed pairs of frames kept

struct DtxState {
  double acf_cur[2][kCoeffs] = {};        // autocorrelations of the last two frames
  int fr_cur = 0;                         // frames stored in acf_cur, wraps at 2
  double acf_sum[kSumAcf][kCoeffs] = {};  // sums over completed pairs, newest first
  double energy[2] = {};                  // last frame energies, newest first
  int count_fr0 = 0;                      // inactive frames since the last SID, at most 3
  bool flag_chang = false;                // spectrum or energy changed enough for a new SID
  double prev_energy = 0;                 // quantized energy of the last SID, dB
  double ref_rcoeff[kCoeffs] = {};        // autocorrelation of the reference filter
  LevinsonMemory levinson;                // of the noise filters
  ComfortNoiseState noise;                // the encoder's copy of the comfort noise
};

// Keeps the autocorrelation statistics; called for every frame. r[0..10] without lag window.
void dtx_update(DtxState* state, const double* r, bool vad);

// What an inactive frame sends, and the comfort noise that it stands for.
struct DtxFrame {
  FrameType type;     // kSid or kNoTransmission
  SidParameters sid;  // of a descriptor
  NoiseFrame noise;
};

// Codes an inactive frame; previous_vad: the frame before was active; descriptors tell the
// energy as it is, or, unless level is null, so that noise gets as loud as the background.
// Writes the comfort-noise excitation exc[0..79] behind its past; moves lsp_old_q and history as
// the decoder will. The caller moves its taming memory by noise.applied.
DtxFrame dtx_encode_frame(DtxState* state, bool previous_vad, const NoiseLevel* level, double* exc,
                          std::span<double, kOrder> lsp_old_q, LspHistory* history);

}  // namespace KELG729F_TARGET
}  // namespace g729
