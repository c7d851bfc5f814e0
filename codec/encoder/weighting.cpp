#include "codec/encoder/weighting.h"

#include <algorithm>

#include "codec/dsp/lsp_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Log-area ratios beyond which a flat spectrum becomes a tilted one, -1.74 and 0.65, and back,
// -1.52 and 0.43. The first subframe's are the means of two frames; so that no logarithm is needed,
// the product of the two frames' area ratios is held against 10 to twice the threshold.
constexpr double kTilted0 = 3.311311214825911e-4, kTilted1 = 19.952623149688797;
constexpr double kFlat0 = 9.120108393559097e-4, kFlat1 = 7.244359600749901;

constexpr double kGamma1Flat = 0.94, kGamma2Flat = 0.6;
constexpr double kGamma1Tilted = 0.98;
constexpr double kGamma2Min = 0.4, kGamma2Max = 0.7;

bool judge_flat(bool was_flat, const double* product) {
  if (was_flat) return !(product[0] < kTilted0 && product[1] > kTilted1);
  return product[0] > kFlat0 || product[1] < kFlat1;
}

// The closer two LSFs, the sharper a resonance, the less noise is let into it.
double tilted_gamma2(const double* lsf) {
  return std::clamp(1.0 - 6.0 * lsp_least_gap(lsf), kGamma2Min, kGamma2Max);
}

}  // namespace

WeightingFactors perceptual_weighting_factors(std::span<const double, kSubframes * kOrder> lsf,
                                              std::span<const double, kOrder> rc,
                                              WeightingState* state) {
  double product[kSubframes][2];
  for (int i = 0; i < 2; ++i) {
    const double k = rc.data()[i];
    const double ratio = (1.0 + k) / (1.0 - k);
    product[0][i] = ratio * state->lar_old[i];
    product[1][i] = ratio * ratio;
    state->lar_old[i] = ratio;
  }
  WeightingFactors factors;
  for (int k = 0; k < kSubframes; ++k) {
    const bool flat = state->weighting_flat = judge_flat(state->weighting_flat, product[k]);
    factors.gamma1[k] = flat ? kGamma1Flat : kGamma1Tilted;
    factors.gamma2[k] = flat ? kGamma2Flat : tilted_gamma2(lsf.data() + k * kOrder);
  }
  return factors;
}

WeightingFactors fixed_weighting_factors(bool bwd_dominant) {
  const double gamma1 = bwd_dominant ? 0.98 : 0.9;
  return {{gamma1, gamma1}, {0.4, 0.4}};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
