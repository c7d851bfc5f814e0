// Joint quantisation of the two gains by the conjugate-structure codebook (clause 3.9.2), and its
// 6.4 kbit/s form (Annex D).
//
// The weighted error of a pair of gains is
//   E(gp, gc) = c0 gp^2 + c1 gp + c2 gc^2 + c3 gc + c4 gp gc,
// whose terms stand in gain_coeff[0..4]: c0 = <y1, y1> and c1 = -2 <x, y1> come from the
// adaptive-codebook search, the others from gain_correlations.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/gain_predictor.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kGainTerms = 5;

// Writes gain_coeff[2] = <z, z> + 0.01, [3] = -2 <x, z> and [4] = 2 <y1, z>; x[40] is the target of
// the subframe, y1[40] the filtered adaptive-codebook vector, z[40] the filtered innovation.
void gain_correlations(const double* x, const double* y1, const double* z, double* gain_coeff);

// Quantises the gains of a subframe whose innovation is code[0..length-1], sharpened. Returns the
// 7-bit index and writes the quantised gains; past_energy receives the correction factor. With
// tame_flag 1 pairs of pitch gain 0.9999 and above are left out. When no candidate qualifies, the
// first entries of both codebooks are taken, whatever the pre-selection chose.
int gain_quantize(const double* code, const double* gain_coeff, int length, double* gain_pitch,
                  double* gain_code, int tame_flag, GainHistory* past_energy);

// The 6.4 kbit/s form: 6-bit index; past_energy receives at least kGainFloor6k4.
int gain_quantize_6k4(const double* code, const double* gain_coeff, int length, double* gain_pitch,
                      double* gain_code, int tame_flag, GainHistory* past_energy);

}  // namespace KELG729F_TARGET
}  // namespace g729
