#include "codec/encoder/lp_analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "codec/dsp/lpc.h"
#include "codec/encoder/preprocess.h"
#include "tests/codec/encoder/search_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using std::numbers::pi;

// Steady-state gain of the pre-processing filter for a cosine, frequency an even number of Hz.
double preprocess_gain(double frequency) {
  BiquadMemory memory = {};
  double energy = 0;
  for (int frame = 0; frame < 100; ++frame) {
    double x[kFrame];
    for (int n = 0; n < kFrame; ++n)
      x[n] = std::cos(2 * pi * frequency / 8000 * (frame * kFrame + n));
    preprocess_highpass(&memory, x, kFrame);
    for (double v : x) energy += frame < 50 ? 0 : v * v;
  }
  const double input = frequency == 0 ? 1.0 : 0.5;
  return std::sqrt(energy / (50 * kFrame * input));
}

// Twice the magnitude of clause 3.1's transfer function, which halves its input.
double clause_gain(double frequency) {
  const auto z = std::polar(1.0, -2 * pi * frequency / 8000);
  return std::abs(2.0 * (0.46363718 - 0.92724705 * z + 0.46363718 * z * z) /
                  (1.0 - 1.9059465 * z + 0.9114024 * z * z));
}

TEST(Preprocess, StopsHumAndPassesSpeech) {
  for (double f : {0.0, 50.0, 140.0, 1000.0, 3900.0})
    EXPECT_NEAR(preprocess_gain(f), clause_gain(f), 1e-5) << f;
  EXPECT_LT(preprocess_gain(0), 0.011);
  EXPECT_LT(preprocess_gain(50), 0.3);
}

TEST(Preprocess, EqualsItsRecursionInPiecesOfAnyLength) {
  test::SearchSignals signals(3);
  BiquadMemory memory = {};
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  for (int n = 1; n <= kFrame; ++n) {
    double x[kFrame];
    for (int i = 0; i < n; ++i) x[i] = signals.uniform(-30000, 30000);
    double expected[kFrame];
    for (int i = 0; i < n; ++i) {
      expected[i] =
          0.92727435 * x[i] - 1.8544941 * x1 + 0.92727435 * x2 + 1.9059465 * y1 - 0.9114024 * y2;
      x2 = x1, x1 = x[i], y2 = y1, y1 = expected[i];
    }
    preprocess_highpass(&memory, x, n);
    for (int i = 0; i < n; ++i) ASSERT_NEAR(x[i], expected[i], 1e-7) << n << " " << i;
  }
}

TEST(LpAnalysis, WindowsFollowTheirFormulas) {
  for (int n = 0; n < kWindow; ++n) {
    const double w =
        n < 200 ? 0.54 - 0.46 * std::cos(2 * pi * n / 399) : std::cos(2 * pi * (n - 200) / 159);
    // Samples 199, 201 and 239 keep digits of their own.
    const bool apart = n == 199 || n == 201 || n == 239;
    EXPECT_NEAR(kLpWindow[n], w, apart ? 3e-7 : 5.01e-9) << n;
  }
  for (int i = 1; i <= kAutocorrelations; ++i) {
    const double angle = 2 * pi * 60 * i / 8000;
    EXPECT_NEAR(kLagWindow[i - 1], std::exp(-0.5 * angle * angle) / 1.0001, 6e-8) << i;
  }
}

TEST(LpAnalysis, AutocorrelationEqualsTheDirectSum) {
  test::SearchSignals signals(11);
  for (int trial = 0; trial < 20; ++trial) {
    const int highest = trial % 2 ? kOrder : kAutocorrelations;
    double x[kWindow], r[kAutocorrelations + 1];
    for (double& v : x) v = signals.uniform(-20000, 20000);
    autocorrelation(x, highest, r);
    for (int k = 0; k <= highest; ++k) {
      long double direct = 0;
      for (int n = k; n < kWindow; ++n) {
        const long double newer = x[n] * kLpWindow[n];
        direct += newer * (x[n - k] * kLpWindow[n - k]);
      }
      ASSERT_NEAR(r[k], static_cast<double>(direct), 1e-13 * r[0]) << k;
    }
  }
}

TEST(LpAnalysis, SilenceGivesAFlatSpectrum) {
  const double silence[kWindow] = {};
  double r[kAutocorrelations + 1], a[kCoeffs], rc[kOrder], lsp[kOrder];
  autocorrelation(silence, kOrder, r);
  apply_lag_window(kOrder, r);
  EXPECT_EQ(r[0], 1.0);
  LevinsonMemory memory;
  EXPECT_EQ(levinson_durbin_10(r, a, rc, &memory), 1.0);
  lpc_to_lsp(a, lsp, kInitialLsp);
  for (int i = 0; i < kOrder; ++i) {
    EXPECT_EQ(a[i + 1], 0.0);
    EXPECT_NEAR(std::acos(lsp[i]), (i + 1) * pi / 11, 1e-3);
  }
}

TEST(LpAnalysis, InterpolationMeetsTheQuantisedOneAndItsLsfs) {
  const double next[kOrder] = {0.97, 0.9, 0.7, 0.5, 0.2, -0.1, -0.3, -0.6, -0.8, -0.95};
  double lsf[2 * kOrder], a[2 * kCoeffs], aq[2 * kCoeffs];
  interpolate_lpc(kInitialLsp, next, lsf, a);
  interpolate_quantized_lpc(kInitialLsp, next, aq);
  EXPECT_TRUE(std::equal(a, a + 2 * kCoeffs, aq));
  for (int i = 0; i < kOrder; ++i) {
    EXPECT_NEAR(std::cos(lsf[i]), (kInitialLsp[i] + next[i]) / 2, 1e-14);
    EXPECT_NEAR(std::cos(lsf[i + kOrder]), next[i], 1e-14);
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
