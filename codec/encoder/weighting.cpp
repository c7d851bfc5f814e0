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

void perceptual_weighting_factors(double* gamma1, double* gamma2, const double* lsf,
                                  const double* rc, WeightingState* state) {
  double product[kSubframes][2];
  for (int i = 0; i < 2; ++i) {
    const double ratio = (1.0 + rc[i]) / (1.0 - rc[i]);
    product[0][i] = ratio * state->area_ratio[i];
    product[1][i] = ratio * ratio;
    state->area_ratio[i] = ratio;
  }
  for (int k = 0; k < kSubframes; ++k) {
    state->flat = judge_flat(state->flat, product[k]);
    gamma1[k] = state->flat ? kGamma1Flat : kGamma1Tilted;
    gamma2[k] = state->flat ? kGamma2Flat : tilted_gamma2(lsf + k * kOrder);
  }
}

void fixed_weighting_factors(double* gamma1, double* gamma2, int bwd_dominant) {
  for (int k = 0; k < kSubframes; ++k) {
    gamma1[k] = bwd_dominant != 0 ? 0.98 : 0.9;
    gamma2[k] = 0.4;
  }
}

}  // namespace KELG729F_TARGET
}  // namespace g729
