#include "codec/encoder/weighting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "codec/encoder/taming.h"
#include "tests/codec/encoder/search_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

double reflection_of(double log_area_ratio) {
  const double p = std::pow(10.0, log_area_ratio);
  return (p - 1) / (p + 1);
}

// Frames in a row: the log-area ratios of each, and which subframes it must find tilted.
TEST(Weighting, FollowsTheTiltWithHysteresis) {
  struct Frame {
    double lar0, lar1;
    bool tilted[2];
  };
  const Frame frames[] = {
      {-2.0, 0.8, {false, true}},   // half way from zero at first
      {-1.7, 0.5, {true, true}},    // between the thresholds
      {-1.4, 0.5, {true, false}},   // half way to flat, then flat
      {-1.7, 0.9, {false, false}},  // between the thresholds, from the other side
      {-1.9, 0.2, {false, false}},  // the second ratio holds it back
      {-1.9, 0.8, {false, true}},  {-1.9, 0.3, {true, false}},  // flat again by the second ratio
  };
  double lsf[2 * kOrder];
  for (int i = 0; i < 2 * kOrder; ++i) lsf[i] = 0.2 + 0.25 * (i % kOrder);
  lsf[4] = lsf[3] + 0.08;  // closest neighbours
  lsf[14] = lsf[13] + 0.08;
  WeightingState state;
  int number = 0;
  for (const Frame& f : frames) {
    const double rc[2] = {reflection_of(f.lar0), reflection_of(f.lar1)};
    double gamma1[2], gamma2[2];
    perceptual_weighting_factors(gamma1, gamma2, lsf, rc, &state);
    for (int k = 0; k < 2; ++k) {
      EXPECT_EQ(gamma1[k], f.tilted[k] ? 0.98 : 0.94) << number << " " << k;
      EXPECT_NEAR(gamma2[k], f.tilted[k] ? 1 - 6 * 0.08 : 0.6, 1e-12) << number << " " << k;
    }
    ++number;
  }
}

TEST(Weighting, Gamma2StaysInItsBoundsAndEachSubframeUsesItsLsfs) {
  double lsf[2 * kOrder];
  for (int i = 0; i < kOrder; ++i) {
    lsf[i] = 0.3 + 0.04 * i;
    lsf[i + kOrder] = 0.2 + 0.28 * i;
  }
  const double rc[2] = {reflection_of(-2), reflection_of(1)};
  WeightingState state = {.flat = false, .area_ratio = {0.01, 10}};
  double gamma1[2], gamma2[2];
  perceptual_weighting_factors(gamma1, gamma2, lsf, rc, &state);
  EXPECT_EQ(gamma2[0], 0.7);
  EXPECT_EQ(gamma2[1], 0.4);
}

// The zones of the excitation that a lag touches, as fractions of a subframe.
int zone(double samples) {
  return static_cast<int>(std::trunc(0.025 * samples));
}

TEST(Taming, LooksAtExactlyTheZonesOfTheLag) {
  for (int t0 = 19; t0 <= 144; ++t0) {
    for (int i = 0; i < 4; ++i) {
      TamingState state = {.exc_err = {0, 0, 0, 0}};
      for (int frac = -1; frac <= 1; ++frac) {
        const int t1 = frac > 0 ? t0 + 1 : t0;
        const bool touched = i >= zone(std::max(0, t1 - 50)) && i <= zone(t1 + 8);
        state.exc_err[i] = 60000.0;
        ASSERT_EQ(taming_test(state, t0, frac), 0);
        state.exc_err[i] = 60000.1;
        ASSERT_EQ(taming_test(state, t0, frac), touched) << t0 << " " << frac << " " << i;
      }
      // A subframe of gain 1 passes on what it touches plus 1, once more where the lag is shorter.
      const bool read = t0 < 40 ? i == 0 : i >= zone(t0 - 40) && i <= zone(t0 - 1);
      taming_update(&state, 1.0, t0);
      ASSERT_EQ(state.exc_err[0], (read ? 60000.1 : 0.0) + (t0 < 40 ? 2 : 1)) << t0 << " " << i;
      if (i < 3) {
        ASSERT_EQ(state.exc_err[i + 1], 60000.1);
      }
    }
  }
}

// With the pitch gain at its limit in every subframe, the error stays within two steps of the
// threshold when the flag is heeded, and passes it when it is not.
TEST(Taming, BoundsTheErrorOverALongVowel) {
  test::SearchSignals signals(61);
  TamingState tamed, wild;
  double worst = 0;
  for (int subframe = 0; subframe < 2000; ++subframe) {
    const int t0 = signals.integer(20, 143);
    taming_update(&tamed, taming_test(tamed, t0, 0) ? 0.95 : 1.2, t0);
    taming_update(&wild, 1.2, t0);
    worst = std::max(worst, tamed.exc_err[0]);
  }
  EXPECT_LE(worst, 1 + 1.2 * (1 + 1.2 * 60000.0));
  EXPECT_GT(worst, 60000.0);
  EXPECT_GT(wild.exc_err[0], 1e30);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
