// Music detector behind the voice activity detector (Annexes B and E). Stationary music looks like
// background noise to the voice activity detector; this one knows it by its steady pitch or its
// sharp spectrum away from the background's, and keeps it from being sent as noise.
#pragma once

#include <span>

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

struct MusicInput {
  Rate rate;
  std::span<const double, kOrder> rc;  // reflection coefficients of the frame
  // Recent open-loop lags and quantized pitch gains.
  std::span<const int, kMusicHistory> lag_buf;
  std::span<const double, kMusicHistory> pgain_buf;
  LpMode prev_lp_mode;  // of the previous frame
  bool past_vad;
  double energy_db;  // as from vad_decide
  bool vad;
};

// Runs once a frame after vad_decide. Returns the decision that counts: at 11.8 kbit/s noise may
// become voice, at the other rates it stays.
bool music_detect(MusicDetectorState* state, const MusicInput& in);

}  // namespace KELG729F_TARGET
}  // namespace g729
