// Prediction of the fixed-codebook gain (clause 3.9.1).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr double kMinEnergy = -14.0;  // dB, the history at the start and its floor

// Gains of a subframe's adaptive and fixed codebook vectors.
struct Gains {
  double gain_pitch = 0;
  double gain_code = 0;
};

// Quantized innovation energies of the last four subframes in dB, newest first.
struct GainHistory {
  double energy[4] = {kMinEnergy, kMinEnergy, kMinEnergy, kMinEnergy};
};

// Predicted gain of the innovation code[0..n-1].
double gain_predict(const GainHistory& history, const double* code, int n);

// Pushes 20 log10(g), g > 0.
void gain_history_push(GainHistory* history, double g);

// Pushes max(-14, mean - 4): what an erased subframe leaves behind (clause 4.4.3).
void gain_history_conceal(GainHistory* history);

// Floor of the factor that the 6.4 kbit/s history receives.
inline constexpr double kGainFloor6k4 = 0.2;

}  // namespace KELG729F_TARGET
}  // namespace g729
