#include "codec/dtx/sid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace g729 {
namespace {

TEST(SidGain, LevelsFollowTheEnergy) {
  int last = 0;
  for (double level = -40; level < 80; level += 0.01) {
    const double energy = 320 * std::pow(10.0, level / 10);
    int index;
    const double quantised = sid_gain_quantize(&energy, 0, &index);
    EXPECT_GE(index, last);
    EXPECT_LE(index, last + 1);
    last = index;
    EXPECT_NEAR(20 * std::log10(kSidGain[index]), quantised + 6.02, 0.01);
    if (level < -8) {
      EXPECT_EQ(quantised, -12.0);
    } else if (level > 67) {
      EXPECT_EQ(quantised, 66.0);
    } else {
      EXPECT_LT(std::fabs(quantised - level), level > 15   ? 1.01
                                              : level > -6 ? 2.01
                                                           : 4.01)
          << level;
    }
  }
  EXPECT_EQ(last, kSidEnergies - 1);
}

TEST(SidGain, AveragesUpToTwoFrames) {
  const double energies[2] = {1280 * 100.0, 1280 * 300.0};  // 20 dB; both together 23.01 dB
  int index;
  EXPECT_EQ(sid_gain_quantize(energies, 0, &index), 26.0);
  EXPECT_EQ(sid_gain_quantize(energies, 1, &index), 20.0);
  EXPECT_EQ(sid_gain_quantize(energies, 2, &index), 24.0);
  const double silence[2] = {0, 0};
  EXPECT_EQ(sid_gain_quantize(silence, 2, &index), -12.0);
  EXPECT_EQ(index, 0);
}

// Weighted error of the words' innovation in the LSF domain, written out from the definitions.
double error_of(const SidParameters& sid, const double* lsf, const LspHistory& history) {
  double buf[kOrder], weight[kOrder];
  const LspPredictor& predictor = kNoisePredictor[sid.mode];
  sid_codevector(sid.first, sid.second, buf);
  lsf_weights(lsf, weight);
  double error = 0;
  for (int j = 0; j < kOrder; ++j) {
    double quantised = predictor.sum[j] * buf[j];
    for (int k = 0; k < kMaOrder; ++k) quantised += predictor.coefficient[k][j] * history.row[k][j];
    error += weight[j] * (quantised - lsf[j]) * (quantised - lsf[j]);
  }
  return error;
}

// Where the quantiser may move the LSFs before it starts.
void separate(double* lsf) {
  lsf[0] = std::max(lsf[0], 0.005);
  for (int j = 1; j < kOrder; ++j) lsf[j] = std::max(lsf[j], lsf[j - 1] + 0.0784);
}

double exhaustive_error(const double* lsf, const LspHistory& history) {
  double best = 1e38;
  for (int mode = 0; mode < 2; ++mode)
    for (int first = 0; first < kSidFirst; ++first)
      for (int second = 0; second < kSidSecond; ++second)
        best = std::min(best, error_of({mode, first, second, 0}, lsf, history));
  return best;
}

TEST(SidLsf, NearlyAsGoodAsTheExhaustiveSearch) {
  std::mt19937 random(1);
  std::uniform_real_distribution<> unit(0.0, 1.0);
  LspHistory history;
  lsp_history_reset(&history);
  double found = 0, least = 0;
  int equal = 0;
  constexpr int kTrials = 500;
  for (int trial = 0; trial < kTrials; ++trial) {
    double lsf[kOrder], lsp[kOrder];
    const double tilt = 0.7 + 0.6 * unit(random);
    for (int j = 0; j < kOrder; ++j) {
      lsf[j] = M_PI * std::pow((j + 0.3 + 1.4 * unit(random)) / 11, tilt);
      if (j > 0) lsf[j] = std::max(lsf[j], lsf[j - 1] + 0.01);
      lsp[j] = std::cos(lsf[j]);
    }
    separate(lsf);
    SidParameters sid = {};
    sid_quantize_lsp(lsp, history, &sid);
    const double best = exhaustive_error(lsf, history);
    const double error = error_of(sid, lsf, history);
    EXPECT_GE(error, best * (1 - 1e-12));
    found += error;
    least += best;
    equal += error <= best * (1 + 1e-9) ? 1 : 0;
    double buf[kOrder];
    sid_codevector(sid.first, sid.second, buf);
    lsp_history_push(buf, &history);
  }
  EXPECT_LT(found, 1.005 * least);
  EXPECT_GT(equal, kTrials * 9 / 10);
}

TEST(SidLsf, CodevectorIsTheSpreadSumOfItsRows) {
  int spread = 0;
  for (int first = 0; first < kSidFirst; ++first) {
    for (int second = 0; second < kSidSecond; ++second) {
      double sum[kOrder], buf[kOrder];
      for (int j = 0; j < kOrder; ++j) {
        const int row = j < 5 ? kSidSecondStageLower[second] : kSidSecondStageUpper[second];
        sum[j] = kLspFirstStage[kSidFirstStage[first]][j] + kLspSecondStage[row][j];
      }
      for (int j = 1; j < kOrder; ++j) {
        const double missing = sum[j - 1] + 0.0012 - sum[j];
        if (missing <= 0) continue;
        sum[j - 1] -= missing / 2;
        sum[j] += missing / 2;
        ++spread;
      }
      sid_codevector(first, second, buf);
      for (int j = 0; j < kOrder; ++j) EXPECT_NEAR(buf[j], sum[j], 1e-12);
    }
  }
  EXPECT_GT(spread, 0);
}

}  // namespace
}  // namespace g729
