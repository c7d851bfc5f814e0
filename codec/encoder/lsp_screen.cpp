#include "codec/encoder/lsp_screen.h"

#include <cmath>

#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kModes = kPredictorModes;

// Bound of twice the rounding error of a score. No term goes through more than 15 roundings, of
// 2^-24 each of what the magnitudes of all terms add up to.
float rounding_margin(double terms) {
  return static_cast<float>(0x1p-19 * terms);
}

}  // namespace

// Both modes in one pass over the codebook. A row c has the score |c|^2 / 2 - t c, half of
// |c - t|^2 but for |t|^2.
void screen_first_stage(const double target[kModes][kOrder], NearRows near[kModes]) {
  Float16 score[kModes][kLspFirstStageBlocks.kCount];
  for (int b = 0; b < kLspFirstStageBlocks.kCount; ++b) {
    Float16 s[kModes];
    for (Float16& v : s) v = load(kLspFirstStageBlocks.half_square[b]);
    for (int j = 0; j < kOrder; ++j) {
      const Float16 entry = load(kLspFirstStageBlocks.block[b][j]);
      for (int m = 0; m < kModes; ++m)
        s[m] = s[m] - splat(static_cast<float>(target[m][j])) * entry;
    }
    for (int m = 0; m < kModes; ++m) score[m][b] = s[m];
  }
  for (int m = 0; m < kModes; ++m) {
    double magnitude = 0.0;
    for (int j = 0; j < kOrder; ++j) magnitude += std::fabs(target[m][j]);
    near[m] = rows_within(score[m], rounding_margin(kHalfSquareMost + kFirstStageMost * magnitude));
  }
}

// A row c has the score sum of (w_j c_j / 2 - w_j rest_j) c_j, half its weighted error but for what
// no row changes.
void screen_half(const double rest[kModes][kOrder], const double* weight, int from,
                 NearRows near[kModes]) {
  constexpr int kBlocks = kLspSecondStageBlocks.kCount;
  Float16 score[kModes][kBlocks];
  double magnitude[kModes] = {};
  for (auto& s : score)
    for (Float16& v : s) v = splat(0.0F);
  for (int j = from; j < from + kHalf; ++j) {
    double slope[kModes];
    for (int m = 0; m < kModes; ++m) {
      slope[m] = weight[j] * rest[m][j];
      magnitude[m] += kSecondStageMost * (kSecondStageMost * 0.5 * weight[j] + std::fabs(slope[m]));
    }
    for (int b = 0; b < kBlocks; ++b) {
      const Float16 entry = load(kLspSecondStageBlocks.block[b][j]);
      const Float16 curve = splat(static_cast<float>(0.5 * weight[j])) * entry;
      for (int m = 0; m < kModes; ++m)
        score[m][b] = score[m][b] + (curve - splat(static_cast<float>(slope[m]))) * entry;
    }
  }
  for (int m = 0; m < kModes; ++m) near[m] = rows_within(score[m], rounding_margin(magnitude[m]));
}

}  // namespace KELG729F_TARGET
}  // namespace g729
