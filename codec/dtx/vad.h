// Voice activity detector (Annex B clause B.3).
#pragma once

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
  double mean_e = 0;             // mean energy of the initialisation frames
  double mean_se = 0;            // background full-band energy, dB
  double mean_sle = 0;           // background low-band energy, dB
  double mean_szc = 0;           // background zero-crossing rate
  double prev_energy = 0;        // full-band energy of the previous frame, dB
  int count_sil = 0;             // noise decisions in a row
  int count_update = 0;          // background updates since the last reset
  int count_ext = 0;             // hangover extensions in a row
  int flag = 1;                  // hangover permitted
  int v_flag = 0;                // stage 1 or 2 forced voice in this frame
  int less_count = 0;            // initialisation frames below the energy floor
};

// Decides one frame: returns 1 for voice, 0 for noise; *energy_db is the full-band energy.
// rc: second reflection coefficient of the frame's analysis. lsf[10]: radians in, divided by 2 pi
// out. r[0..12]: lag-windowed autocorrelation. speech: the 240-sample analysis buffer.
// frame_count is 1 for the first frame. prev_marker, pprev_marker: the last two decisions.
int vad_decide(VadState* state, double rc, double* lsf, const double* r, const double* speech,
               int frame_count, int prev_marker, int pprev_marker, double* energy_db);

}  // namespace KELG729F_TARGET
}  // namespace g729
