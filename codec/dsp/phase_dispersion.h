// Phase dispersion of the sparse 6.4 kbit/s excitation (Annex D).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/gain_predictor.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// How strongly a subframe's code is dispersed.
enum DispersionStrength : int { kStrong = 0, kMedium = 1, kNone = 2 };

inline constexpr int kDispersionGains = 6;

struct DispersionState {
  double gain_pitch[kDispersionGains] = {1, 1, 1, 1, 1, 1};  // recent adaptive gains, newest first
  double prev_gain_code = 1.0;                               // fixed gain of the last subframe
  int prev_strength = kNone;                                 // its strength
  int onset = 0;  // 2 on an onset, falling by one a subframe
};

// A subframe that is not dispersed: follows its gains.
void phase_dispersion_update(DispersionState* state, const Gains& gains);

// exc[n] = gain_pitch * adaptive[n] + gain_code * dispersed code[n], n = 0..39. exc must overlap
// neither input.
void phase_dispersion(DispersionState* state, const double* adaptive, const double* code,
                      const Gains& gains, double* exc);

// Total excitation of a subframe: exc[0..39] holds the adaptive part and becomes gain_pitch * exc +
// gain_code * code. Returns what is to be synthesized: exc, or with `disperse` its dispersed form
// in dispersed[0..39]. Encoder and decoder both go through here.
const double* total_excitation(DispersionState* state, bool disperse, const Gains& gains,
                               const double* code, double* exc, double* dispersed);

}  // namespace KELG729F_TARGET
}  // namespace g729
