#include "codec/encoder/lsp_candidates.h"

#include <span>

#include "codec/dsp/simd/across.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"
#include "codec/encoder/lsp_screen.h"
#include "codec/encoder/pool.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kMostRows = 8;
constexpr float kFarAway = 1e30F;

// The nearest rows of the first stage, the nearest first. A row c has the score |c|^2 / 2 - t c,
// half of |c - t|^2 but for |t|^2; single precision ranks them well enough.
void nearest_rows(const double* target, int count, int row[kMostRows]) {
  Float16 score[kLspFirstStageBlocks.kCount], t[kOrder];
  for (int j = 0; j < kOrder; ++j) t[j] = splat(static_cast<float>(target[j]));
  for (int b = 0; b < kLspFirstStageBlocks.kCount; ++b) {
    score[b] = load(kLspFirstStageBlocks.half_square[b]);
    for (int j = 0; j < kOrder; ++j)
      score[b] = score[b] - t[j] * load(kLspFirstStageBlocks.block[b][j]);
  }
  // One after the other; a row once found is out.
  for (int n = 0; n < count; ++n) {
    row[n] = lowest_row(rows_within(score, 0.0F));
    Float16& block = score[row[n] / kFloatLanes];
    alignas(64) float lane[kFloatLanes];
    store(lane, block);
    lane[row[n] % kFloatLanes] = kFarAway;
    block = load(lane);
  }
}

// Row of the second stage whose columns from..from+4 come nearest to rest, weighted.
int nearest_half(const double* rest, const double* weight, int from) {
  constexpr int kBlocks = kLspSecondStageBlocks.kCount;
  Float16 score[kBlocks];
  for (int b = 0; b < kBlocks; ++b) {
    Float16 s = splat(0.0F);
    for (int j = from; j < from + kHalf; ++j) {
      const Float16 d =
          load(kLspSecondStageBlocks.block[b][j]) - splat(static_cast<float>(rest[j]));
      s = s + splat(static_cast<float>(weight[j])) * d * d;
    }
    score[b] = s;
  }
  return lowest_row(rows_within(score, 0.0F));
}

double distortion(const LspRows& c, const double* target, const double* weight) {
  double buf[kOrder];
  lsp_codevector(c.first, c.lower, c.upper, buf);
  if (lsp_least_gap(buf) < kSpread1) {
    lsp_spread(buf, 1, kOrder, kSpread1);
    lsp_spread(buf, 1, kOrder, kSpread2);
  }
  return lsf_error(kSpeechPredictor[c.mode], buf, target, weight);
}

}  // namespace

int lsp_candidates(const LspHistory& history, std::span<const double, kOrder> lsf,
                   const Effort& effort, LspCandidate candidate[kMostSpectra]) {
  double weight[kOrder];
  lsf_weights(lsf.data(), weight);
  Pool<LspRows, kMostSpectra> best(effort.spectra);
  for (int m = 0; m < kPredictorModes; ++m) {
    double target[kOrder], rest[kOrder];
    lsp_residual(kSpeechPredictor[m], history, lsf.data(), target);
    int row[kMostRows];
    nearest_rows(target, effort.spectrum_rows, row);
    for (int i = 0; i < effort.spectrum_rows; ++i) {
      for (int j = 0; j < kOrder; ++j) rest[j] = target[j] - kLspFirstStage[row[i]][j];
      const LspRows c = {m, row[i], nearest_half(rest, weight, 0),
                         nearest_half(rest, weight, kHalf)};
      best.offer(distortion(c, target, weight), c);
    }
  }
  for (int i = 0; i < best.size(); ++i)
    candidate[i] = {quantized_lsp(best[i].value, history), best[i].error};
  return best.size();
}

}  // namespace KELG729F_TARGET
}  // namespace g729
