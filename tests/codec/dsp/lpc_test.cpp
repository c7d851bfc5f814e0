#include "codec/dsp/lpc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "codec/dsp/backward_lp.h"
#include "codec/dsp/gain_predictor.h"
#include "codec/dsp/lsp_codebook.h"
#include "codec/dsp/random.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Ten LSFs at least `gap` apart, as cosines.
std::vector<double> random_lsp(std::mt19937& random, double gap) {
  std::vector<double> lsf(kOrder);
  std::uniform_real_distribution<double> angle(0.05, 3.09 - gap * kOrder);
  for (double& w : lsf) w = angle(random);
  std::sort(lsf.begin(), lsf.end());
  for (int j = 0; j < kOrder; ++j) lsf[j] = std::cos(lsf[j] + gap * j);
  return lsf;
}

TEST(Lpc, LspRoundTrip) {
  std::mt19937 random(3);
  const double none[kOrder] = {};
  for (int i = 0; i < 2000; ++i) {
    // Roots closer than a grid interval cannot all be told apart; 0.06 rad is above it.
    const auto lsp = random_lsp(random, 0.06);
    double a[kCoeffs], back[kOrder];
    lsp_to_lpc(lsp.data(), a);
    lpc_to_lsp(a, back, none);
    for (int j = 0; j < kOrder; ++j) ASSERT_NEAR(back[j], lsp[j], 2e-4);
  }
}

TEST(Lpc, LspsDecreaseWithinTheGridOrAreTheOldOnes) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> unit(-0.99, 0.99);
  for (int i = 0; i < 20000; ++i) {
    double a[kCoeffs] = {1.0}, old[kCoeffs], lsp[kOrder];
    for (int m = 1; m <= kOrder; ++m) {
      const double k = unit(random);
      std::copy(a, a + kCoeffs, old);
      for (int j = 1; j < m; ++j) a[j] = old[j] + k * old[m - j];
      a[m] = k;
    }
    lpc_to_lsp(a, lsp, kInitialLsp);
    double plain[kOrder];
    lpc_to_lsp_plain(a, plain, kInitialLsp);
    ASSERT_TRUE(std::equal(lsp, lsp + kOrder, plain));
    if (std::equal(lsp, lsp + kOrder, kInitialLsp)) continue;
    EXPECT_LE(lsp[0], 0.9997559);
    EXPECT_GE(lsp[kOrder - 1], -0.9997559);
    for (int j = 1; j < kOrder; ++j) ASSERT_LE(lsp[j], lsp[j - 1]);
  }
}

double recursion_of_10(int, const double* r, double* a, double* rc, LevinsonMemory* memory) {
  return levinson_durbin_10(r, a, rc, memory);
}

struct Recursion {
  int m;
  double (*solve)(int, const double*, double*, double*, LevinsonMemory*);
};
constexpr Recursion kRecursions[] = {
    {kOrder, levinson_durbin}, {kOrder, recursion_of_10}, {kBackwardOrder, levinson_durbin}};

TEST(Lpc, LevinsonSolvesTheNormalEquations) {
  std::mt19937 random(5);
  std::normal_distribution<double> normal;
  for (const auto& [m, solve] : kRecursions) {
    std::vector<double> x(400), r(m + 1, 0.0);
    double past = 0;
    for (double& v : x) v = past = 0.8 * past + normal(random);
    for (int i = 0; i <= m; ++i)
      for (size_t n = i; n < x.size(); ++n) r[i] += x[n] * x[n - i];
    std::vector<double> a(m + 1), rc(m);
    LevinsonMemory memory;
    const double error = solve(m, r.data(), a.data(), rc.data(), &memory);
    for (int i = 0; i <= m; ++i) {  // sum_j a[j] r[|i - j|] is the error at i = 0, else 0
      double s = 0;
      for (int j = 0; j <= m; ++j) s += a[j] * r[std::abs(i - j)];
      EXPECT_NEAR(s, i ? 0.0 : error, 1e-9 * r[0]);
    }
    EXPECT_EQ(rc[m - 1], a[m]);
  }
}

TEST(Lpc, LevinsonFallsBackToTheLastStableFilter) {
  for (const auto& solve : {levinson_durbin, recursion_of_10}) {
    LevinsonMemory memory;
    double a[kCoeffs], rc[kOrder];
    double r[kCoeffs] = {10, 8, 6, 4, 3, 2, 1, 1, 0, 0, 0};
    solve(kOrder, r, a, rc, &memory);
    double good[kCoeffs];
    std::copy(a, a + kCoeffs, good);
    double unstable[kCoeffs] = {1, 0.9999};
    EXPECT_EQ(solve(kOrder, unstable, a, rc, &memory), 0.001);
    EXPECT_TRUE(std::equal(a, a + kCoeffs, good));
    EXPECT_EQ(rc[0], memory.rc[0]);
  }
}

TEST(LspCodebook, ResidualIsTheInverseOfPrediction) {
  std::mt19937 random(6);
  std::uniform_real_distribution<double> angle(0.0, 3.1);
  for (const auto& predictors : {kSpeechPredictor, kNoisePredictor}) {
    for (int mode : {0, 1}) {
      LspHistory history;
      for (auto& row : history.row)
        for (double& v : row) v = angle(random);
      double buf[kOrder], lsf[kOrder], back[kOrder];
      for (double& v : buf) v = angle(random);
      lsp_predict(predictors[mode], history, buf, lsf);
      lsp_residual(predictors[mode], history, lsf, back);
      for (int j = 0; j < kOrder; ++j) EXPECT_NEAR(back[j], buf[j], 1e-12);
    }
  }
}

TEST(LspCodebook, StabilizeOrdersAndSpacesOneSwap) {
  double lsf[kOrder] = {0.001, 0.3, 0.2, 0.8, 0.81, 1.4, 1.7, 2.0, 2.5, 3.14};
  testing::internal::CaptureStdout();
  lsp_stabilize(lsf);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "warning LSP Low \nwarning LSP High \n");
  EXPECT_EQ(lsf[0], kLsfLow);
  EXPECT_EQ(lsf[kOrder - 1], kLsfHigh);
  for (int j = 1; j < kOrder; ++j) EXPECT_GE(lsf[j] - lsf[j - 1], kLsfGap - 1e-12);
}

TEST(LspCodebook, EveryIndexPairGivesAStableVector) {
  std::mt19937 random(8);
  LspHistory history;
  lsp_history_reset(&history);
  testing::internal::CaptureStdout();
  for (int i = 0; i < 5000; ++i) {
    const int index[2] = {static_cast<int>(random() % 256), static_cast<int>(random() % 1024)};
    double buf[kOrder], lsf[kOrder];
    lsp_reconstruct(index, history, buf, lsf);
    lsp_history_push(buf, &history);
    ASSERT_GE(lsf[0], kLsfLow);
    ASSERT_LE(lsf[kOrder - 1], kLsfHigh);
    EXPECT_EQ(history.row[0][3], buf[3]);
  }
  testing::internal::GetCapturedStdout();
}

TEST(BackwardLp, WindowsAreTheirFormulas) {
  const double a = std::pow(0.75, 1.0 / 40);
  for (int n = 0; n < kHybridWindow; ++n) {
    const double w =
        n < 110 ? 0.98886 * std::pow(a, 109 - n) : std::sin(0.047783 * (kHybridWindow - n));
    EXPECT_NEAR(kHybridWindowTable[n], w, 5.1e-9);
  }
  for (int i = 1; i <= kBackwardOrder; ++i) {
    const double t = 2 * M_PI * 60 * i / 8000;
    EXPECT_NEAR(kBackwardLagWindow[i - 1], std::exp(-0.5 * t * t) / 1.0001, 5.1e-9);
  }
}

TEST(BackwardLp, PredictsAStationarySignal) {
  // Two sinusoids: after a few frames the expanded filter removes most of their energy.
  std::vector<double> x(2000);
  for (size_t n = 0; n < x.size(); ++n)
    x[n] = 3000 * std::sin(0.3 * static_cast<double>(n)) +
           2000 * std::sin(1.1 * static_cast<double>(n));
  BackwardLpState state;
  double a[kBackwardCoeffs];
  int frame = kHybridWindow;
  for (; frame + kFrame < static_cast<int>(x.size()); frame += kFrame)
    backward_lp_analysis(&state, x.data() + frame - kHybridWindow, a);
  double energy = 0, error = 0;
  for (int n = frame - kFrame; n < frame; ++n) {
    double e = 0;
    for (int i = 0; i <= kBackwardOrder; ++i) e += a[i] * x[n - i];
    energy += x[n] * x[n];
    error += e * e;
  }
  EXPECT_LT(error, 0.02 * energy);
}

TEST(GainPredictor, ConcealedHistoryFallsToTheFloor) {
  GainHistory history;
  gain_history_push(&history, 10.0);
  EXPECT_DOUBLE_EQ(history.energy[0], 20.0);
  double last = 20.0;
  for (int i = 0; i < 12; ++i) {
    gain_history_conceal(&history);
    EXPECT_GE(history.energy[0], kMinEnergy);
    EXPECT_LT(history.energy[0], 20.0);
    last = history.energy[0];
  }
  EXPECT_EQ(last, kMinEnergy);
}

TEST(Random16, HasTheFullPeriodAndKnownStart) {
  int16_t seed = kNoiseSeed;
  EXPECT_EQ(random16(&seed), static_cast<int16_t>((11111 * 31821 + 13849) & 0xFFFF));
  int period = 1;
  const int16_t start = seed;
  while (random16(&seed) != start) ++period;
  EXPECT_EQ(period, 65536);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
