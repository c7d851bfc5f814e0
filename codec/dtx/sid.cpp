#include "codec/dtx/sid.h"

#include <algorithm>

#include "codec/dsp/math.h"
#include "codec/dsp/simd/lane_minimum.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

constexpr double kEnergyScale[3] = {1.0 / 320, 1.0 / 1280, 1.0 / 2560};  // by frames averaged
constexpr int kSurvivors = 4;  // first-stage choices that are completed

// A (predictor, first-stage row) pair and the error it leaves.
struct SidCandidate {
  int mode;
  int first;
  double error;
};

// Moves the LSFs to where a quantized set can lie, with twice the least gap between neighbours.
void condition_lsf(double* lsf) {
  lsf[0] = std::max(lsf[0], kLsfLow);
  for (int j = 1; j < kOrder; ++j) lsf[j] = std::max(lsf[j], lsf[j - 1] + 2.0 * kLsfGap);
  lsf[kOrder - 1] = std::min(lsf[kOrder - 1], kLsfHigh);
  if (lsf[kOrder - 1] < lsf[kOrder - 2]) lsf[kOrder - 2] = lsf[kOrder - 1] - kLsfGap;
}

// Puts the candidate into the list, best first, when it beats one of its members.
void keep_best(const SidCandidate& candidate, SidCandidate* list) {
  if (!(candidate.error < list[kSurvivors - 1].error)) return;
  int i = kSurvivors - 1;
  for (; i > 0 && candidate.error < list[i - 1].error; --i) list[i] = list[i - 1];
  list[i] = candidate;
}

// Rows laid out for searches over eight at once: block[b][j][i] is column j of row 8 b + i.
template <int Rows>
struct SidBlocks {
  static constexpr int kCount = Rows / kLanes;
  alignas(64) double block[kCount][kOrder][kLanes];
};

// The rows that a descriptor can name, laid out for searches over eight at once.
void gather_first_stage(SidBlocks<kSidFirst>* rows) {
  for (int i = 0; i < kSidFirst; ++i)
    for (int j = 0; j < kOrder; ++j)
      rows->block[i / kLanes][j][i % kLanes] = kLspFirstStage[kSidFirstStage[i]][j];
}

void gather_second_stage(SidBlocks<kSidSecond>* rows) {
  for (int i = 0; i < kSidSecond; ++i) {
    const double* lower = kLspSecondStage[kSidSecondStageLower[i]];
    const double* upper = kLspSecondStage[kSidSecondStageUpper[i]];
    for (int j = 0; j < kHalf; ++j) {
      rows->block[i / kLanes][j][i % kLanes] = lower[j];
      rows->block[i / kLanes][j + kHalf][i % kLanes] = upper[j + kHalf];
    }
  }
}

// The survivors by unweighted error over both predictors, target[mode] the innovations sought.
void search_first_stage(const double target[kPredictorModes][kOrder], SidCandidate* survivors) {
  SidBlocks<kSidFirst> rows;
  gather_first_stage(&rows);
  std::fill_n(survivors, kSurvivors, SidCandidate{0, 0, 1e38});
  for (int mode = 0; mode < kPredictorModes; ++mode) {
    for (int b = 0; b < rows.kCount; ++b) {
      Vec8 error = splat(0.0);
      for (int j = 0; j < kOrder; ++j) {
        const Vec8 d = load(rows.block[b][j]) - splat(target[mode][j]);
        error = error + d * d;
      }
      double lane[kLanes];
      store(lane, error);
      for (int i = 0; i < kLanes; ++i) keep_best({mode, b * kLanes + i, lane[i]}, survivors);
    }
  }
}

// The pair of second-stage rows nearest to what the first stage leaves.
int search_second_stage(const SidBlocks<kSidSecond>& rows, const double* rest,
                        const double* weight) {
  LaneMinimum nearest;
  for (int b = 0; b < rows.kCount; ++b) {
    Vec8 error = splat(0.0);
    for (int j = 0; j < kOrder; ++j) {
      const Vec8 d = load(rows.block[b][j]) - splat(rest[j]);
      error = error + splat(weight[j]) * (d * d);
    }
    consider(&nearest, error, b * kLanes);
  }
  return lowest_index(nearest);
}

// Weighted LSF error of the finished codevector.
double codevector_error(int first, int second, const double* target, const double* weight) {
  double buf[kOrder];
  sid_codevector(first, second, buf);
  double error = 0.0;
  for (int j = 0; j < kOrder; ++j) {
    const double d = target[j] - buf[j];
    error += weight[j] * d * d;
  }
  return error;
}

// What each predictor's innovation should be, and the weights of its error.
struct SidTarget {
  double lsf[kPredictorModes][kOrder];
  double weight[kPredictorModes][kOrder];
};

// Completes the survivors of the first stage and takes the best.
void complete_best(const SidTarget& target, const SidCandidate* survivors, SidParameters* sid) {
  SidBlocks<kSidSecond> pairs;
  gather_second_stage(&pairs);
  double best_error = 1e38;
  for (int i = 0; i < kSurvivors; ++i) {
    const SidCandidate& c = survivors[i];
    const double *lsf = target.lsf[c.mode], *weight = target.weight[c.mode];
    const double* row = kLspFirstStage[kSidFirstStage[c.first]];
    double rest[kOrder];
    for (int j = 0; j < kOrder; ++j) rest[j] = lsf[j] - row[j];
    const int second = search_second_stage(pairs, rest, weight);
    const double error = codevector_error(c.first, second, lsf, weight);
    if (error < best_error) {
      best_error = error;
      sid->mode = c.mode;
      sid->first = c.first;
      sid->second = second;
    }
  }
}

}  // namespace

double sid_gain_quantize(const double* energies, int count, int* index) {
  const double sum = count == 2 ? energies[0] + energies[1] : energies[0];
  const double energy = sum * kEnergyScale[count];
  const double level = energy > 1e-30 ? 10.0 * log10_of(energy) : -300.0;
  if (level <= -8.0) {
    *index = 0;
    return -12.0;
  }
  if (level >= 65.0) {
    *index = kSidEnergies - 1;
    return 66.0;
  }
  if (level <= 14.0) {
    *index = std::max(static_cast<int>((level + 10.0) / 4.0), 1);
    return 4.0 * *index - 8.0;
  }
  *index = std::max(static_cast<int>((level - 3.0) / 2.0), 6);
  return 2.0 * *index + 4.0;
}

void sid_codevector(int first, int second, double* buf) {
  const double* row = kLspFirstStage[kSidFirstStage[first]];
  const double* lower = kLspSecondStage[kSidSecondStageLower[second]];
  const double* upper = kLspSecondStage[kSidSecondStageUpper[second]];
  for (int j = 0; j < kHalf; ++j) buf[j] = row[j] + lower[j];
  for (int j = kHalf; j < kOrder; ++j) buf[j] = row[j] + upper[j];
  lsp_spread(buf, 1, kOrder, kSpread1);
}

void sid_quantize_lsp(const double* lsp, const LspHistory& history, SidParameters* sid) {
  double lsf[kOrder];
  double weight[kOrder];
  arc_cosine(lsp, lsf, kOrder);
  condition_lsf(lsf);
  lsf_weights(lsf, weight);

  SidTarget target;
  for (int mode = 0; mode < kPredictorModes; ++mode) {
    const LspPredictor& predictor = kNoisePredictor[mode];
    lsp_residual(predictor, history, lsf, target.lsf[mode]);
    for (int j = 0; j < kOrder; ++j)
      target.weight[mode][j] = weight[j] * predictor.sum[j] * predictor.sum[j];
  }
  SidCandidate survivors[kSurvivors];
  search_first_stage(target.lsf, survivors);
  complete_best(target, survivors, sid);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
