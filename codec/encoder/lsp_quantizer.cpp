#include "codec/encoder/lsp_quantizer.h"

#include "codec/dsp/lane_minimum.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/math.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr int kModes = 2;

// What one predictor mode offers.
struct ModeResult {
  int first, lower, upper;
  double distortion;
};

// First-stage rows nearest to the targets of both modes, in one pass over the codebook.
void search_first_stage(const double target[kModes][kOrder], ModeResult* result) {
  LaneMinimum nearest[kModes];
  for (int b = 0; b < kLspFirstStageBlocks.kCount; ++b) {
    Vec8 error[kModes] = {splat(0.0), splat(0.0)};
    for (int j = 0; j < kOrder; ++j) {
      const Vec8 entry = load(kLspFirstStageBlocks.block[b][j]);
      for (int m = 0; m < kModes; ++m) {
        const Vec8 d = entry - splat(target[m][j]);
        error[m] = error[m] + d * d;
      }
    }
    for (int m = 0; m < kModes; ++m) consider(&nearest[m], error[m], b * kLanes);
  }
  for (int m = 0; m < kModes; ++m) result[m].first = lowest_index(nearest[m]);
}

// Second-stage row whose columns from..from+4 are nearest to rest[from..from+4].
int search_half(const double* rest, const double* weight, int from) {
  LaneMinimum nearest;
  for (int b = 0; b < kLspSecondStageBlocks.kCount; ++b) {
    Vec8 error = splat(0.0);
    for (int j = from; j < from + kHalf; ++j) {
      const Vec8 d = load(kLspSecondStageBlocks.block[b][j]) - splat(rest[j]);
      error = error + splat(weight[j]) * (d * d);
    }
    consider(&nearest, error, b * kLanes);
  }
  return lowest_index(nearest);
}

// Second-stage rows for the chosen first-stage row, and the error they leave in the LSF domain.
void search_second_stage(const LspPredictor& predictor, const double* target, const double* weight,
                         ModeResult* result) {
  const double* const first = kLspFirstStage[result->first];
  double rest[kOrder], buf[kOrder];
  for (int j = 0; j < kOrder; ++j) rest[j] = target[j] - first[j];
  result->lower = search_half(rest, weight, 0);
  result->upper = search_half(rest, weight, kHalf);

  for (int j = 0; j < kHalf; ++j) {
    buf[j] = first[j] + kLspSecondStage[result->lower][j];
    buf[j + kHalf] = first[j + kHalf] + kLspSecondStage[result->upper][j + kHalf];
  }
  lsp_spread(buf, 1, kHalf, kSpread1);
  lsp_spread(buf, kHalf, kOrder, kSpread1);
  lsp_spread(buf, 1, kOrder, kSpread2);

  result->distortion = 0.0;
  for (int j = 0; j < kOrder; ++j) {
    const double d = buf[j] - target[j];
    result->distortion += d * d * weight[j] * (predictor.sum[j] * predictor.sum[j]);
  }
}

}  // namespace

void lsp_quantize(const LspHistory& history, const double* lsp_new, double* lsp_q, double* residual,
                  int index[2]) {
  double lsf[kOrder], weight[kOrder], target[kModes][kOrder];
  lsp_to_lsf(lsp_new, lsf, kOrder);
  lsf_weights(lsf, weight);
  for (int m = 0; m < kModes; ++m) lsp_residual(kSpeechPredictor[m], history, lsf, target[m]);

  ModeResult result[kModes];
  search_first_stage(target, result);
  for (int m = 0; m < kModes; ++m)
    search_second_stage(kSpeechPredictor[m], target[m], weight, &result[m]);

  const int mode = result[1].distortion < result[0].distortion ? 1 : 0;
  const ModeResult& chosen = result[mode];
  index[0] = mode * kFirstStage + chosen.first;
  index[1] = chosen.lower * kSecondStage + chosen.upper;

  double lsf_q[kOrder];
  lsp_reconstruct(index, history, residual, lsf_q);
  cosine(lsf_q, lsp_q, kOrder);
}

}  // namespace g729::inline KELG729F_TARGET
