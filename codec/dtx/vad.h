// Voice activity detector (Annex B clause B.3).
#pragma once

#include <span>

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kVadOrder = 12;  // autocorrelation order of the low-band energy

struct VadState {
  double mean_lsf[kOrder] = {};  // background mean of the LSFs / 2 pi
  double min_buffer[16] = {};    // least energy of each of the last 16 blocks of 8 frames
  double prev_min = 0;           // least of min_buffer
  double next_min = 0;           // running least of the current block
  double min = 1e38;             // running least energy
  double mean_e = 0;             // mean energy of the initialization frames
  double mean_se = 0;            // background full-band energy, dB
  double mean_sle = 0;           // background low-band energy, dB
  double mean_szc = 0;           // background zero-crossing rate
  double prev_energy = 0;        // full-band energy of the previous frame, dB
  int count_sil = 0;             // noise decisions in a row
  int count_update = 0;          // background updates since the last reset
  int count_ext = 0;             // hangover extensions in a row
  bool flag = true;              // hangover permitted
  bool v_flag = false;           // stage 1 or 2 forced voice in this frame
  int less_count = 0;            // initialization frames below the energy floor
};

struct VadInput {
  double rc;                                 // second reflection coefficient of the frame
  std::span<const double, kOrder> lsf;       // radians
  std::span<const double, kVadOrder + 1> r;  // lag-windowed autocorrelation
  std::span<const double, kWindow> speech;   // the analysis buffer
  int frame_count;                           // 1 for the first frame
  bool prev_marker, pprev_marker;            // the last two decisions
  bool wait_for_sound = false;               // silence at the start does not count
};
struct VadDecision {
  bool voice;
  double energy_db;  // full band
  bool waited;       // the frame did not count
};
VadDecision vad_decide(VadState* state, const VadInput& in);

}  // namespace KELG729F_TARGET
}  // namespace g729
