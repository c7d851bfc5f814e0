// Joint quantization of the two gains by the conjugate-structure codebook (clause 3.9.2), and its
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

// Writes gain_coeff[2] = <z, z> + 0.01, [3] = -2 <x, z> and [4] = 2 <y1, z>; x is the target of the
// subframe, y1 the filtered adaptive-codebook vector, z the filtered innovation.
void gain_correlations(Subframe x, Subframe y1, Subframe z, double* gain_coeff);

struct GainInput {
  Subframe code;             // innovation, sharpened
  const double* gain_coeff;  // kGainTerms
  bool tame_flag;            // leaves out pairs of pitch gain 0.9999 and above
};
struct QuantizedGains {
  int index;  // 7 bits, at 6.4 kbit/s 6 bits
  Gains gains;
};

// past_energy receives the correction factor. When no candidate qualifies, the first entries of
// both codebooks are taken, whatever the pre-selection chose.
QuantizedGains gain_quantize(const GainInput& in, GainHistory* past_energy);

// The 6.4 kbit/s form; past_energy receives at least kGainFloor6k4.
QuantizedGains gain_quantize_6k4(const GainInput& in, GainHistory* past_energy);

}  // namespace KELG729F_TARGET
}  // namespace g729
