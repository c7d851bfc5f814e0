// Music detector behind the voice activity detector (Annexes B and E). Stationary music looks like
// background noise to the voice activity detector; this one knows it by its steady pitch or its
// sharp spectrum away from the background's, and keeps it from being sent as noise.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kMusicHistory = 5;  // open-loop lags and pitch gains looked at
inline constexpr int kMusicOrder = 4;    // reflection coefficients in the spectral features

struct MusicDetectorState {
  double mean_rc[kMusicOrder] = {};  // of the background
  double mean_energy = 0;            // of the background, dB
  double mean_pitch_gain = 0.5;      // running, all frames
  int backgrounds = 0;               // background frames seen, up to the length of the averages
  int evidence = 0;                  // rises with frames that look like music
};

// Runs once a frame after vad_decide. rc[0..3]: reflection coefficients of the frame; lag_buf,
// pgain_buf: the recent open-loop lags and quantised pitch gains, kMusicHistory each; prev_lp_mode,
// past_vad: of the previous frame; energy_db as from vad_decide. At 11.8 kbit/s *vad may turn
// from 0 to 1; at the other rates it is only read.
void music_detect(MusicDetectorState* state, Rate rate, const double* rc, const int* lag_buf,
                  const double* pgain_buf, LpMode prev_lp_mode, int past_vad, double energy_db,
                  int* vad);

}  // namespace KELG729F_TARGET
}  // namespace g729
