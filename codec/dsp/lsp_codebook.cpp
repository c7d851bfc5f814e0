#include "codec/dsp/lsp_codebook.h"

#include <algorithm>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/lsp_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kPi = 3.14159265358979311600;

// 10 t^2 + 1 where neighbours lie closer than 1 rad, 1 elsewhere.
template <typename T>
KELG729F_VEC T closeness_weight(T t) {
  const T one = splat_as<T>(1.0);
  return select(t > splat_as<T>(0.0), one, splat_as<T>(10.0) * t * t + one);
}

}  // namespace

void lsf_weights(const double* lsf, double* weight) {
  constexpr double kMiddleBoost = 1.2;
  static_assert(kOrder == kLanes + 2);
  weight[0] = closeness_weight(lsf[1] - 0.04 * kPi - 1.0);
  store(weight + 1, closeness_weight(load(lsf + 2) - load(lsf) - splat(1.0)));
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

namespace {

// Element j of the ten, or the eight from j on.
template <typename T>
KELG729F_VEC T predict_from(const LspPredictor& predictor, const LspHistory& history,
                            const double* buf, int j) {
  T sum = load_as<T>(buf + j) * load_as<T>(predictor.sum + j);
  for (int k = 0; k < kMaOrder; ++k)
    sum = sum + load_as<T>(predictor.coefficient[k] + j) * load_as<T>(history.row[k] + j);
  return sum;
}

template <typename T>
KELG729F_VEC T residual_from(const LspPredictor& predictor, const LspHistory& history,
                             const double* lsf, int j) {
  T rest = load_as<T>(lsf + j);
  for (int k = 0; k < kMaOrder; ++k)
    rest = rest - load_as<T>(predictor.coefficient[k] + j) * load_as<T>(history.row[k] + j);
  return rest * load_as<T>(predictor.inverse + j);
}

}  // namespace

void lsp_predict(const LspPredictor& predictor, const LspHistory& history, const double* buf,
                 double* lsf) {
  store(lsf, predict_from<Vec8>(predictor, history, buf, 0));
  for (int j = kLanes; j < kOrder; ++j) lsf[j] = predict_from<double>(predictor, history, buf, j);
}

void lsp_residual(const LspPredictor& predictor, const LspHistory& history, const double* lsf,
                  double* buf) {
  store(buf, residual_from<Vec8>(predictor, history, lsf, 0));
  for (int j = kLanes; j < kOrder; ++j) buf[j] = residual_from<double>(predictor, history, lsf, j);
}

double lsp_least_gap(const double* lsf) {
  double least = lsf[1] - lsf[0];
  for (int j = 2; j < kOrder; ++j) least = std::min(least, lsf[j] - lsf[j - 1]);
  return least;
}

Remarks lsp_stabilize(double* lsf) {
  Remarks remarks = 0;
  if (lsp_least_gap(lsf) >= kLsfGap && lsf[0] >= kLsfLow && lsf[kOrder - 1] <= kLsfHigh) return 0;
  for (int j = 0; j < kOrder - 1; ++j) {
    if (lsf[j + 1] >= lsf[j]) continue;
    const double higher = lsf[j];
    lsf[j] = lsf[j + 1];
    lsf[j + 1] = higher;
  }
  if (lsf[0] < kLsfLow) {
    lsf[0] = kLsfLow;
    remarks |= kLspLow;
  }
  for (int j = 0; j < kOrder - 1; ++j)
    if (lsf[j + 1] - lsf[j] < kLsfGap) lsf[j + 1] = lsf[j] + kLsfGap;
  if (lsf[kOrder - 1] > kLsfHigh) {
    lsf[kOrder - 1] = kLsfHigh;
    remarks |= kLspHigh;
  }
  return remarks;
}

void lsp_codevector(int first, int lower, int upper, double* buf) {
  for (int j = 0; j < kHalf; ++j) buf[j] = kLspFirstStage[first][j] + kLspSecondStage[lower][j];
  for (int j = kHalf; j < kOrder; ++j)
    buf[j] = kLspFirstStage[first][j] + kLspSecondStage[upper][j];
}

Remarks lsp_reconstruct(const int index[2], const LspHistory& history, double* buf, double* lsf) {
  const int mode = (index[0] >> 7) & 1, first = index[0] & (kFirstStage - 1);
  const int lower = (index[1] >> 5) & (kSecondStage - 1), upper = index[1] & (kSecondStage - 1);
  lsp_codevector(first, lower, upper, buf);
  if (lsp_least_gap(buf) < kSpread1) {
    lsp_spread(buf, 1, kOrder, kSpread1);
    lsp_spread(buf, 1, kOrder, kSpread2);
  }
  lsp_predict(kSpeechPredictor[mode], history, buf, lsf);
  return lsp_stabilize(lsf);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
