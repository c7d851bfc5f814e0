#include "codec/encoder/lsp_quantizer.h"

#include <bit>
#include <cstdint>

#include "codec/dsp/math.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"
#include "codec/encoder/lsp_screen.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kModes = kPredictorModes;

// Row of the least error among those that the screen leaves, the lowest among equals.
template <typename Error>
int nearest_row(const NearRows& near, Error error) {
  const auto [low, high] = near.word;
  if (((low & (low - 1)) | (high & (high - 1))) == 0 && (low == 0 || high == 0))  // a single one
    return lowest_row(near);
  int nearest = 0;
  double least = 1e38;
  for (int w = 0; w < 2; ++w)
    for (uint64_t left = near.word[w]; left; left &= left - 1) {
      const int row = 64 * w + std::countr_zero(left);
      const double e = error(row);
      if (e < least) {
        least = e;
        nearest = row;
      }
    }
  return nearest;
}

int search_first_stage(const NearRows& near, const double* target) {
  return nearest_row(near, [&](int row) {
    double error = 0.0;
    for (int j = 0; j < kOrder; ++j) {
      const double d = kLspFirstStage[row][j] - target[j];
      error += d * d;
    }
    return error;
  });
}

// Second-stage row for the columns from..from+4 of what the first stage leaves.
int search_half(const NearRows& near, const double* rest, const double* weight, int from) {
  return nearest_row(near, [&](int row) {
    double error = 0.0;
    for (int j = from; j < from + kHalf; ++j) {
      const double d = kLspSecondStage[row][j] - rest[j];
      error += weight[j] * (d * d);
    }
    return error;
  });
}

// The error that a mode's rows leave in the LSF domain.
double distortion(const LspRows& rows, const double* target, const double* weight) {
  double buf[kOrder];
  lsp_codevector(rows.first, rows.lower, rows.upper, buf);
  if (lsp_least_gap(buf) < kSpread1) {
    lsp_spread(buf, 1, kHalf, kSpread1);
    lsp_spread(buf, kHalf, kOrder, kSpread1);
    lsp_spread(buf, 1, kOrder, kSpread2);
  }
  return lsf_error(kSpeechPredictor[rows.mode], buf, target, weight);
}

// Both modes' rows for their targets.
void search(const double target[kModes][kOrder], const double* weight, LspRows rows[kModes]) {
  double rest[kModes][kOrder];
  NearRows first[kModes], lower[kModes], upper[kModes];
  screen_first_stage(target, first);
  for (int m = 0; m < kModes; ++m) {
    rows[m].mode = m;
    rows[m].first = search_first_stage(first[m], target[m]);
    for (int j = 0; j < kOrder; ++j) rest[m][j] = target[m][j] - kLspFirstStage[rows[m].first][j];
  }
  screen_half(rest, weight, 0, lower);
  screen_half(rest, weight, kHalf, upper);
  for (int m = 0; m < kModes; ++m) {
    rows[m].lower = search_half(lower[m], rest[m], weight, 0);
    rows[m].upper = search_half(upper[m], rest[m], weight, kHalf);
  }
}

}  // namespace

double lsf_error(const LspPredictor& predictor, const double* codevector, const double* target,
                 const double* weight) {
  double sum = 0.0;
  for (int j = 0; j < kOrder; ++j) {
    const double d = (codevector[j] - target[j]) * predictor.sum[j];
    sum += d * d * weight[j];
  }
  return sum;
}

QuantizedLsp quantized_lsp(const LspRows& rows, const LspHistory& history) {
  QuantizedLsp q;
  q.ana[0] = rows.mode * kFirstStage + rows.first;
  q.ana[1] = rows.lower * kSecondStage + rows.upper;
  double lsf_q[kOrder];
  q.remarks = lsp_reconstruct(q.ana, history, q.residual, lsf_q);
  cosine(lsf_q, q.lsp_q, kOrder);
  return q;
}

QuantizedLsp lsp_quantize(const LspHistory& history, std::span<const double, kOrder> lsf) {
  double weight[kOrder], target[kModes][kOrder];
  lsf_weights(lsf.data(), weight);
  for (int m = 0; m < kModes; ++m)
    lsp_residual(kSpeechPredictor[m], history, lsf.data(), target[m]);
  LspRows rows[kModes];
  search(target, weight, rows);
  const double error0 = distortion(rows[0], target[0], weight);
  const double error1 = distortion(rows[1], target[1], weight);
  return quantized_lsp(rows[error1 < error0], history);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
