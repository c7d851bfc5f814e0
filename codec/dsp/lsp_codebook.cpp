#include "codec/dsp/lsp_codebook.h"

#include "codec/dsp/diagnostics.h"
#include "codec/dsp/filters.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr double kPi = 3.14159265358979311600;

// 10 t^2 + 1 where neighbours lie closer than 1 rad, 1 elsewhere.
double closeness_weight(double t) {
  return t > 0.0 ? 1.0 : 10.0 * t * t + 1.0;
}

}  // namespace

void lsf_weights(const double* lsf, double* weight) {
  constexpr double kMiddleBoost = 1.2;
  weight[0] = closeness_weight(lsf[1] - 0.04 * kPi - 1.0);
  for (int j = 1; j < kOrder - 1; ++j) weight[j] = closeness_weight(lsf[j + 1] - lsf[j - 1] - 1.0);
  weight[kOrder - 1] = closeness_weight(0.92 * kPi - 1.0 - lsf[kOrder - 2]);
  weight[4] *= kMiddleBoost;
  weight[5] *= kMiddleBoost;
}

void lsp_history_reset(LspHistory* history) {
  for (auto& row : history->row)
    for (int j = 0; j < kOrder; ++j) row[j] = (j + 1) * kPi / (kOrder + 1);
}

void lsp_history_push(const double* residual, LspHistory* history) {
  for (int k = kMaOrder - 1; k > 0; --k) copy_vector(history->row[k - 1], history->row[k], kOrder);
  copy_vector(residual, history->row[0], kOrder);
}

void lsp_spread(double* buf, int first, int last, double gap) {
  for (int j = first; j < last; ++j) {
    const double d = 0.5 * (buf[j - 1] - buf[j] + gap);
    if (d > 0.0) {
      buf[j - 1] -= d;
      buf[j] += d;
    }
  }
}

void lsp_predict(const LspPredictor& predictor, const LspHistory& history, const double* buf,
                 double* lsf) {
  for (int j = 0; j < kOrder; ++j) {
    lsf[j] = buf[j] * predictor.sum[j];
    for (int k = 0; k < kMaOrder; ++k) lsf[j] += predictor.coefficient[k][j] * history.row[k][j];
  }
}

void lsp_residual(const LspPredictor& predictor, const LspHistory& history, const double* lsf,
                  double* buf) {
  for (int j = 0; j < kOrder; ++j) {
    double rest = lsf[j];
    for (int k = 0; k < kMaOrder; ++k) rest -= predictor.coefficient[k][j] * history.row[k][j];
    buf[j] = rest * predictor.inverse[j];
  }
}

void lsp_stabilize(double* lsf) {
  for (int j = 0; j < kOrder - 1; ++j) {
    if (lsf[j + 1] >= lsf[j]) continue;
    const double higher = lsf[j];
    lsf[j] = lsf[j + 1];
    lsf[j + 1] = higher;
  }
  if (lsf[0] < kLsfLow) {
    lsf[0] = kLsfLow;
    print_warning("warning LSP Low \n");
  }
  for (int j = 0; j < kOrder - 1; ++j)
    if (lsf[j + 1] - lsf[j] < kLsfGap) lsf[j + 1] = lsf[j] + kLsfGap;
  if (lsf[kOrder - 1] > kLsfHigh) {
    lsf[kOrder - 1] = kLsfHigh;
    print_warning("warning LSP High \n");
  }
}

void lsp_reconstruct(const int index[2], const LspHistory& history, double* buf, double* lsf) {
  const int mode = (index[0] >> 7) & 1, first = index[0] & (kFirstStage - 1);
  const int lower = (index[1] >> 5) & (kSecondStage - 1), upper = index[1] & (kSecondStage - 1);
  for (int j = 0; j < kOrder; ++j)
    buf[j] = kLspFirstStage[first][j] + kLspSecondStage[j < kHalf ? lower : upper][j];
  lsp_spread(buf, 1, kOrder, kSpread1);
  lsp_spread(buf, 1, kOrder, kSpread2);
  lsp_predict(kSpeechPredictor[mode], history, buf, lsf);
  lsp_stabilize(lsf);
}

}  // namespace g729::inline KELG729F_TARGET
