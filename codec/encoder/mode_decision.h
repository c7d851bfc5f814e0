// Forward/backward LP mode decision of the 11.8 kbit/s mode (Annex E).
//
// A backward frame spends no bits on its filter and has more pulses instead; it pays where the
// spectrum stands still, as in music. The decision compares how well the filters predict the frame
// and leans on a stationarity statistic, which keeps speech in forward mode and lets stationary
// signals stay in backward mode.
//
// Every frame makes one call here, and every frame that is not coded in backward mode ends with
// backward_smoothing_restart(&state->smoothing, <its second subframe's filter>). After the
// synthesis of a speech frame comes backward_dominance_update(&state->dominance, ...), as in the
// decoder.
#pragma once

#include "codec/dsp/backward_mode.h"
#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kStationarityStart = 10000;
inline constexpr int kStationarityMax = 32767;

struct ModeState {
  BackwardSmoothing smoothing;
  BackwardDominance dominance;            // the decoder's, updated after the synthesis
  bool bwd_dominant = false;              // dominance in force in this frame, not at lower rates
  int stationarity = kStationarityStart;  // 0..kStationarityMax
  int backward_run = 0;                   // backward frames in a row up to this one
};

// What the full decision looks at.
struct ModeInput {
  const double* speech;    // 80 samples of the frame, 30 valid ones before them
  const double* aq;        // quantized forward filters of both subframes, 2 x 11
  const double* backward;  // backward filter of the frame, bandwidth-expanded, 31
  const double* lsp_new;   // LSPs of this frame's analysis and of the previous frame's, 10 each
  const double* lsp_old;
};

// Decides a speech frame at 11.8 kbit/s and returns its LpMode. In backward mode a_backward[0..30]
// is the smoothed filter to code with; otherwise a_backward is not written.
LpMode mode_decide(ModeState* state, const ModeInput& in, double* a_backward);

// Frames without speech and the lower rates: forward mode, no dominance, and the stationarity
// falls back towards its start.
void simple_mode_update(ModeState* state);

}  // namespace KELG729F_TARGET
}  // namespace g729
