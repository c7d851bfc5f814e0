#include "codec/encoder/lsp_quantizer.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "codec/dsp/math.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kModes = 2;

// What one predictor mode offers.
struct ModeResult {
  int first, lower, upper;
  double distortion;
};

// Row of the least exact error. score is the error in single precision, but for what all rows have
// in common; it lies within margin / 2 of the truth, so that only rows within margin of the least
// score can win. Mostly that is one.
template <int kBlocks, typename Error>
KELG729F_VEC int nearest_row(const Float16 (&score)[kBlocks], float margin, Error exact_error) {
  Float16 least = score[0];
  for (int b = 1; b < kBlocks; ++b) least = smaller(least, score[b]);
  const Float16 limit = splat(smallest_lane(least) + margin);
  constexpr int kRowsOfWord = 64, kBlocksOfWord = kRowsOfWord / kFloatLanes;
  constexpr int kWords = (kBlocks + kBlocksOfWord - 1) / kBlocksOfWord;
  uint64_t near[kWords] = {};
  for (int b = 0; b < kBlocks; ++b)
    near[b / kBlocksOfWord] |= uint64_t{lanes_at_most(score[b], limit)}
                               << (b % kBlocksOfWord * kFloatLanes);
  int rows = 0;
  for (const uint64_t word : near) rows += std::popcount(word);
  int nearest = 0;
  if (rows == 1) {
    for (int w = 0; w < kWords; ++w)
      nearest = near[w] ? w * kRowsOfWord + std::countr_zero(near[w]) : nearest;
    return nearest;
  }
  double least_error = 1e38;
  for (int w = 0; w < kWords; ++w) {
    for (uint64_t left = near[w]; left; left &= left - 1) {
      const int row = w * kRowsOfWord + std::countr_zero(left);
      const double error = exact_error(row);
      if (error < least_error) {
        least_error = error;
        nearest = row;
      }
    }
  }
  return nearest;
}

// Bound of twice the rounding error of a score. No term goes through more than 15 roundings, of
// 2^-24 each of what the magnitudes of all terms add up to.
float rounding_margin(double terms) {
  return static_cast<float>(0x1p-19 * terms);
}

// First-stage rows nearest to the targets t of both modes, in one pass over the codebook. A row c
// has the score |c|^2 / 2 - t c, half of |c - t|^2 but for |t|^2.
void search_first_stage(const double target[kModes][kOrder], ModeResult* result) {
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
    const double* const t = target[m];
    double magnitude = 0.0;
    for (int j = 0; j < kOrder; ++j) magnitude += std::fabs(t[j]);
    result[m].first = nearest_row(
        score[m], rounding_margin(kHalfSquareMost + kFirstStageMost * magnitude), [&](int row) {
          double error = 0.0;
          for (int j = 0; j < kOrder; ++j)
            error += (kLspFirstStage[row][j] - t[j]) * (kLspFirstStage[row][j] - t[j]);
          return error;
        });
  }
}

// Second-stage rows of the columns from..from+4 nearest to what the first stage leaves, one a mode.
// A row c has the score sum of (w_j c_j / 2 - w_j rest_j) c_j, half its weighted error but for what
// no row changes.
void search_half(const double rest[kModes][kOrder], const double* weight, int from,
                 int nearest[kModes]) {
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
  for (int m = 0; m < kModes; ++m)
    nearest[m] = nearest_row(score[m], rounding_margin(magnitude[m]), [&](int row) {
      double error = 0.0;
      for (int j = from; j < from + kHalf; ++j) {
        const double d = kLspSecondStage[row][j] - rest[m][j];
        error += weight[j] * (d * d);
      }
      return error;
    });
}

// The error that a mode's rows leave in the LSF domain.
double distortion(const LspPredictor& predictor, const double* target, const double* weight,
                  const ModeResult& result) {
  double buf[kOrder];
  lsp_codevector(result.first, result.lower, result.upper, buf);
  if (lsp_least_gap(buf) < kSpread1) {
    lsp_spread(buf, 1, kHalf, kSpread1);
    lsp_spread(buf, kHalf, kOrder, kSpread1);
    lsp_spread(buf, 1, kOrder, kSpread2);
  }
  double sum = 0.0;
  for (int j = 0; j < kOrder; ++j) {
    const double d = (buf[j] - target[j]) * predictor.sum[j];
    sum += d * d * weight[j];
  }
  return sum;
}

// Second-stage rows for the chosen first-stage rows.
void search_second_stage(const double target[kModes][kOrder], const double* weight,
                         ModeResult* result) {
  double rest[kModes][kOrder];
  for (int m = 0; m < kModes; ++m)
    for (int j = 0; j < kOrder; ++j) rest[m][j] = target[m][j] - kLspFirstStage[result[m].first][j];
  int lower[kModes], upper[kModes];
  search_half(rest, weight, 0, lower);
  search_half(rest, weight, kHalf, upper);
  for (int m = 0; m < kModes; ++m) {
    result[m].lower = lower[m];
    result[m].upper = upper[m];
    result[m].distortion = distortion(kSpeechPredictor[m], target[m], weight, result[m]);
  }
}

}  // namespace

QuantizedLsp lsp_quantize(const LspHistory& history, std::span<const double, kOrder> lsf) {
  double weight[kOrder], target[kModes][kOrder];
  lsf_weights(lsf.data(), weight);
  for (int m = 0; m < kModes; ++m)
    lsp_residual(kSpeechPredictor[m], history, lsf.data(), target[m]);

  ModeResult result[kModes];
  search_first_stage(target, result);
  search_second_stage(target, weight, result);

  const int mode = result[1].distortion < result[0].distortion ? 1 : 0;
  const ModeResult& chosen = result[mode];
  QuantizedLsp q;
  q.ana[0] = mode * kFirstStage + chosen.first;
  q.ana[1] = chosen.lower * kSecondStage + chosen.upper;

  double lsf_q[kOrder];
  q.remarks = lsp_reconstruct(q.ana, history, q.residual, lsf_q);
  cosine(lsf_q, q.lsp_q, kOrder);
  return q;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
