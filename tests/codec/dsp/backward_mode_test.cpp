#include "codec/dsp/backward_mode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace g729 {
namespace {

TEST(SynthesisEnergyDb, KeepsFiveBitsOfTheEnergy) {
  for (double energy = 20; energy < 2e9; energy *= 1.37) {
    const double x = std::sqrt(energy);
    const double unit = std::exp2(std::floor(std::log2(energy)) - 4);
    EXPECT_NEAR(synthesis_energy_db(&x, 1), 10 * std::log10(std::floor(energy / unit) * unit),
                1e-9);
  }
  const double cases[][2] = {{0, 0.005}, {3.9, 0.005}, {1e5, 93.1814}, {4.01, 10 * std::log10(16)}};
  for (const auto& c : cases) EXPECT_NEAR(synthesis_energy_db(&c[0], 1), c[1], 1e-9) << c[0];
}

TEST(SynthesisEnergyDb, ReachesFortyDecibelWhereFramesBeginToCount) {
  std::mt19937 random(9);
  std::uniform_real_distribution<double> amplitude(0.0, 20.0);
  int louder = 0;
  for (int i = 0; i < 2000; ++i) {
    double x[kFrame];
    for (double& v : x) v = amplitude(random);
    BackwardDominance state;
    backward_dominance_update(&state, kForward, x);
    ASSERT_EQ(state.count_fwd, synthesis_energy_db(x, kFrame) >= 40.0);
    louder += state.count_fwd;
  }
  EXPECT_GT(louder, 500);
  EXPECT_LT(louder, 1500);
}

TEST(BackwardSmoothing, TakesElevenFramesToReachTheNewFilter) {
  double forward[kCoeffs] = {1.0, -0.9, 0.2}, backward[kBackwardCoeffs] = {1.0};
  backward[1] = 0.5;
  backward[30] = -0.25;
  BackwardSmoothing state;
  state.prev_filter[20] = 7.0;  // what an earlier backward frame left
  backward_smoothing_restart(&state, forward);
  double smoothed[kBackwardCoeffs], previous_distance = 1e9;
  for (int frame = 0; frame < 12; ++frame) {
    backward_filter_smooth(state, backward, smoothed);
    backward_smoothing_accept(&state, smoothed);
    double distance = 0;
    for (int i = 0; i < kBackwardCoeffs; ++i) {
      if (frame == 0) {
        EXPECT_NEAR(smoothed[i], i < kCoeffs ? forward[i] : 0.0, 1e-12);
      }
      distance += std::fabs(smoothed[i] - backward[i]);
    }
    if (frame < 11) {
      EXPECT_LT(distance, previous_distance);
    }
    previous_distance = distance;
  }
  EXPECT_EQ(previous_distance, 0.0);
}

TEST(BackwardDominance, NeedsMoreThanFourBackwardFramesToOne) {
  double loud[kFrame], quiet[kFrame];
  for (int i = 0; i < kFrame; ++i) {
    loud[i] = 100;
    quiet[i] = 5;
  }
  BackwardDominance state;
  for (int i = 0; i < 10; ++i) backward_dominance_update(&state, kForward, loud);
  for (int i = 0; i < 40; ++i) backward_dominance_update(&state, kBackward, loud);
  EXPECT_EQ(state.bwd_dominant, 0);
  for (int i = 0; i < 5; ++i) backward_dominance_update(&state, kBackward, quiet);
  EXPECT_EQ(state.bwd_dominant, 0);
  backward_dominance_update(&state, kBackward, loud);
  EXPECT_EQ(state.bwd_dominant, 1);
  for (int i = 0; i < 300; ++i) backward_dominance_update(&state, kBackward, loud);
  EXPECT_LT(state.count_bwd + state.count_fwd, 100);
  for (int i = 0; i < 25; ++i) backward_dominance_update(&state, kForward, loud);
  EXPECT_EQ(state.bwd_dominant, 0);
}

}  // namespace
}  // namespace g729
