#include "codec/dsp/phase_dispersion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace g729::inline KELG729F_TARGET {
namespace {

TEST(PhaseDispersion, ResponsesAreAllPass) {
  for (const DispersionResponse& response : kDispersionResponse) {
    for (int bin = 0; bin <= kSubframe / 2; ++bin) {
      std::complex<double> sum = 0;
      for (int n = 0; n < kSubframe; ++n)
        sum += response.h[n] * std::polar(1.0, -2 * std::numbers::pi * bin * n / kSubframe);
      EXPECT_NEAR(std::abs(sum), 1.0, 1e-3) << bin;
    }
    for (int n = 0; n < kSubframe; ++n) EXPECT_EQ(response.h[n], response.h[n + kSubframe]);
  }
}

TEST(PhaseDispersion, ConvolvesInACircle) {
  double adaptive[kSubframe], code[kSubframe] = {}, exc[kSubframe];
  for (int n = 0; n < kSubframe; ++n) adaptive[n] = n;
  code[3] = -1;
  code[38] = 2;
  for (const int strength : {kStrong, kMedium, kNone}) {
    DispersionState state;
    state.prev_strength = strength;
    const double gain_pitch = strength == kStrong ? 0.5 : strength == kMedium ? 0.7 : 0.95;
    phase_dispersion(&state, adaptive, code, 1.5, gain_pitch, exc);
    EXPECT_EQ(state.prev_strength, strength);
    for (int n = 0; n < kSubframe; ++n) {
      const auto h = [&](int k) {
        k = (k + kSubframe) % kSubframe;
        return strength == kNone ? double(k == 0) : kDispersionResponse[strength].h[k];
      };
      EXPECT_NEAR(exc[n], gain_pitch * n + 1.5 * (2 * h(n - 38) - h(n - 3)), 1e-12);
    }
  }
}

struct Step {
  double gain_pitch;
  double gain_code;
  int strength;
};

void expect_strengths(std::initializer_list<Step> steps) {
  const double zero[kSubframe] = {};
  double exc[kSubframe];
  DispersionState state;
  int count = 0;
  for (const Step& s : steps) {
    phase_dispersion(&state, zero, zero, s.gain_code, s.gain_pitch, exc);
    EXPECT_EQ(state.prev_strength, s.strength) << "step " << count;
    ++count;
  }
}

TEST(PhaseDispersion, StrengthFollowsThePitchGain) {
  expect_strengths({{1.0, 1, kNone}, {0.8, 1, kMedium}, {0.6, 1, kStrong}, {0.61, 1, kMedium}});
}

TEST(PhaseDispersion, StrengthRisesByOneStep) {
  expect_strengths({{0.5, 1, kStrong}, {0.95, 1, kMedium}, {0.95, 1, kNone}});
}

// Three low gains among the recent ones keep a subframe strong; six high ones later they are gone.
TEST(PhaseDispersion, LowGainsInARow) {
  expect_strengths({{0.5, 1, kStrong},
                    {0.5, 1, kStrong},
                    {0.7, 1, kMedium},
                    {0.5, 1, kStrong},
                    {0.7, 1, kStrong},
                    {0.7, 1, kStrong},
                    {0.7, 1, kStrong},
                    {0.7, 1, kMedium}});
}

// An onset holds for three subframes and lifts the strength one step.
TEST(PhaseDispersion, OnsetLiftsTheStrength) {
  expect_strengths({{0.5, 1, kStrong},
                    {0.5, 3, kMedium},
                    {0.5, 3, kMedium},
                    {0.5, 3, kStrong},
                    {0.5, 6, kStrong},
                    {0.5, 13, kMedium}});
}

TEST(PhaseDispersion, UpdateEndsOnsetAndDispersion) {
  DispersionState state;
  state.onset = 2;
  state.prev_strength = kStrong;
  phase_dispersion_update(&state, 0.3, 5.0);
  EXPECT_EQ(state.onset, 0);
  EXPECT_EQ(state.prev_strength, kNone);
  EXPECT_EQ(state.gain_pitch[0], 0.3);
  EXPECT_EQ(state.gain_pitch[1], 1.0);
  EXPECT_EQ(state.prev_gain_code, 5.0);
}

}  // namespace
}  // namespace g729::inline KELG729F_TARGET
