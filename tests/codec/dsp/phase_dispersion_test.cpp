#include "codec/dsp/phase_dispersion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

TEST(PhaseDispersion, ResponsesAreAllPass) {
  for (const DispersionResponse& response : kDispersionResponse) {
    for (int bin = 0; bin <= kSubframe / 2; ++bin) {
      std::complex<double> sum = 0;
      for (int n = 0; n < kSubframe; ++n)
        sum += response.h[n] * std::polar(1.0, -2 * std::numbers::pi * bin * n / kSubframe);
      EXPECT_NEAR(std::abs(sum), 1.0, 1e-3) << bin;
    }
  }
}

TEST(PhaseDispersion, ConvolvesInACircle) {
  double adaptive[kSubframe], code[kSubframe] = {}, exc[kSubframe];
  for (int n = 0; n < kSubframe; ++n) adaptive[n] = n;
  code[3] = -1;
  code[38] = 2;
  for (const int strength : {kStrong, kMedium, kNone}) {
    const double gain_pitch = strength == kStrong ? 0.5 : strength == kMedium ? 0.7 : 0.95;
    const auto h = [&](int k) {
      k = (k + kSubframe) % kSubframe;
      return strength == kNone ? double(k == 0) : kDispersionResponse[strength].h[k];
    };
    DispersionState state;
    phase_dispersion(&state, adaptive, code, 1.5, gain_pitch, exc);
    for (int n = 0; n < kSubframe; ++n)
      EXPECT_NEAR(exc[n], gain_pitch * n + 1.5 * (2 * h(n - 38) - h(n - 3)), 1e-12);
  }
}

struct Step {
  double gain_pitch;
  double gain_code;
  int strength;
};

TEST(PhaseDispersion, Strength) {
  const std::vector<Step> sequences[] = {
      // By the pitch gain, rising one step at a time.
      {{1.0, 1, kNone}, {0.8, 1, kMedium}, {0.6, 1, kStrong}, {0.95, 1, kMedium}, {0.95, 1, kNone}},
      // Three recent low gains keep a subframe strong until one of them is forgotten.
      {{0.5, 1, kStrong},
       {0.5, 1, kStrong},
       {0.7, 1, kMedium},
       {0.5, 1, kStrong},
       {0.7, 1, kStrong},
       {0.7, 1, kStrong},
       {0.7, 1, kStrong},
       {0.7, 1, kMedium}},
      // An onset, the code gain more than doubled, lifts the strength for two subframes.
      {{0.5, 1, kStrong},
       {0.5, 3, kMedium},
       {0.5, 3, kMedium},
       {0.5, 3, kStrong},
       {0.5, 6, kStrong},
       {0.5, 13, kMedium}}};
  const double zero[kSubframe] = {};
  for (const auto& sequence : sequences) {
    DispersionState state;
    for (const Step& step : sequence) {
      double exc[kSubframe];
      phase_dispersion(&state, zero, zero, step.gain_code, step.gain_pitch, exc);
      EXPECT_EQ(state.prev_strength, step.strength)
          << "sequence " << &sequence - sequences << " step " << &step - sequence.data();
    }
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
