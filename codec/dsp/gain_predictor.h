// Prediction of the fixed-codebook gain (clause 3.9.1) and the gain codebooks (clause 3.9.2).
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

// A codebook entry: its parts of the pitch gain and of the code-gain correction factor. A
// quantized pair is the sum of one entry of stage A and one of stage B.
struct GainPair {
  double pitch;
  double code;
};
inline constexpr int kGainStageA = 8;
inline constexpr int kGainStageB = 16;    // 8 and 11.8 kbit/s
inline constexpr int kGainStageB6k4 = 8;  // 6.4 kbit/s (Annex D)
extern const GainPair kGainA[kGainStageA];
extern const GainPair kGainB[kGainStageB];
extern const GainPair kGainA6k4[kGainStageA];
extern const GainPair kGainB6k4[kGainStageB6k4];

// Transmitted code of each codebook index (the encoder's maps); the decoder's are their inverses.
extern const int kGainCodeA[kGainStageA];
extern const int kGainCodeB[kGainStageB];
extern const int kGainCodeA6k4[kGainStageA];
extern const int kGainCodeB6k4[kGainStageB6k4];
extern const int kGainIndexA[kGainStageA];
extern const int kGainIndexB[kGainStageB];
extern const int kGainIndexA6k4[kGainStageA];
extern const int kGainIndexB6k4[kGainStageB6k4];

// Floor of the factor that the 6.4 kbit/s history receives.
inline constexpr double kGainFloor6k4 = 0.2;

}  // namespace KELG729F_TARGET
}  // namespace g729
