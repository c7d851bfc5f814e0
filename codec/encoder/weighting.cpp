#include "codec/encoder/weighting.h"

#include <algorithm>

#include "codec/dsp/math.h"

namespace g729::inline KELG729F_TARGET {
namespace {

// Log-area ratios beyond which a flat spectrum becomes a tilted one, and back.
constexpr double kTiltedLar0 = -1.74, kTiltedLar1 = 0.65;
constexpr double kFlatLar0 = -1.52, kFlatLar1 = 0.43;

constexpr double kGamma1Flat = 0.94, kGamma2Flat = 0.6;
constexpr double kGamma1Tilted = 0.98;
constexpr double kGamma2Min = 0.4, kGamma2Max = 0.7;

bool judge_flat(bool was_flat, const double* lar) {
  if (was_flat) return !(lar[0] < kTiltedLar0 && lar[1] > kTiltedLar1);
  return lar[0] > kFlatLar0 || lar[1] < kFlatLar1;
}

// The closer two LSFs, the sharper a resonance, the less noise is let into it.
double tilted_gamma2(const double* lsf) {
  double d_min = lsf[1] - lsf[0];
  for (int i = 1; i < kOrder - 1; ++i) d_min = std::min(d_min, lsf[i + 1] - lsf[i]);
  return std::clamp(1.0 - 6.0 * d_min, kGamma2Min, kGamma2Max);
}

}  // namespace

void perceptual_weighting_factors(double* gamma1, double* gamma2, const double* lsf_int,
                                  const double* lsf_new, const double* rc, WeightingState* state) {
  double lar[kSubframes][2];
  for (int i = 0; i < 2; ++i) {
    lar[1][i] = log10_of((1.0 + rc[i]) / (1.0 - rc[i]));
    lar[0][i] = 0.5 * (lar[1][i] + state->lar_old[i]);
    state->lar_old[i] = lar[1][i];
  }
  const double* const lsf[kSubframes] = {lsf_int, lsf_new};
  for (int k = 0; k < kSubframes; ++k) {
    state->flat = judge_flat(state->flat, lar[k]);
    gamma1[k] = state->flat ? kGamma1Flat : kGamma1Tilted;
    gamma2[k] = state->flat ? kGamma2Flat : tilted_gamma2(lsf[k]);
  }
}

void fixed_weighting_factors(double* gamma1, double* gamma2, int bwd_dominant) {
  for (int k = 0; k < kSubframes; ++k) {
    gamma1[k] = bwd_dominant != 0 ? 0.98 : 0.9;
    gamma2[k] = 0.4;
  }
}

}  // namespace g729::inline KELG729F_TARGET
