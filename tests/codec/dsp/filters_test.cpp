#include "codec/dsp/filters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "codec/dsp/lpc.h"
#include "codec/dsp/pitch.h"
#include "tests/codec/random_filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using test::Noise;
using test::stable_filter;

TEST(Filters, SynthesisUndoesResidual) {
  Noise noise;
  for (int m : {kOrder, kBackwardOrder}) {
    for (int n : {31, kSubframe, kFrame}) {
      const auto a = stable_filter(m, noise);
      const auto x = noise.vector(m + n, 8000);
      std::vector<double> r(n), y(n), mem(x.begin(), x.begin() + m);
      residual_filter(m, a.data(), x.data() + m, r.data(), n);
      synthesis_filter(m, a.data(), r.data(), y.data(), n, mem.data(), true);
      for (int i = 0; i < n; ++i) ASSERT_NEAR(y[i], x[m + i], 1e-6);
      for (int i = 0; i < m; ++i) ASSERT_EQ(mem[i], y[n - m + i]);
    }
  }
}

TEST(Filters, SynthesisMatchesTheDefinitionInPlaceAndWithoutUpdate) {
  Noise noise;
  for (int m : {0, 3, kOrder, kBackwardOrder}) {
    const auto a = stable_filter(m, noise);
    const auto x = noise.vector(kSubframe, 1000), past = noise.vector(m, 1000);
    std::vector<double> y(x), mem(past), direct(past);
    for (int k = 0; k < kSubframe; ++k) {
      double s = x[k];
      for (int i = 1; i <= m; ++i) s -= a[i] * direct[direct.size() - i];
      direct.push_back(s);
    }
    synthesis_filter(m, a.data(), y.data(), y.data(), kSubframe, mem.data(), false);
    EXPECT_EQ(mem, past);
    for (int k = 0; k < kSubframe; ++k) ASSERT_NEAR(y[k], direct[m + k], 1e-7);
  }
}

TEST(Filters, APairEqualsTwoSingles) {
  Noise noise;
  for (int m : {0, 3, kOrder, kBackwardOrder}) {
    const auto a = stable_filter(m, noise);
    auto x0 = noise.vector(kSubframe, 1000), x1 = noise.vector(kSubframe, 1000);
    auto mem0 = noise.vector(m, 1000), mem1 = noise.vector(m, 1000);
    auto y0 = x0, y1 = x1;
    synthesis_filter_pair(m, a.data(), y0.data(), mem0.data(), y0.data(), y1.data(), mem1.data(),
                          y1.data());
    synthesis_filter(m, a.data(), x0.data(), x0.data(), kSubframe, mem0.data(), false);
    synthesis_filter(m, a.data(), x1.data(), x1.data(), kSubframe, mem1.data(), false);
    for (int k = 0; k < kSubframe; ++k) {
      ASSERT_NEAR(y0[k], x0[k], 1e-7);
      ASSERT_NEAR(y1[k], x1[k], 1e-7);
    }
  }
}

TEST(Filters, CountBelowOneWritesNothing) {
  double x[kOrder + 1] = {}, y[1] = {5.0}, mem[kOrder] = {1, 2};
  const double a[kCoeffs] = {1.0};
  for (int n : {0, -3}) {
    copy_vector(x, y, n);
    zero_vector(y, n);
    residual_filter(kOrder, a, x + kOrder, y, n);
    synthesis_filter(kOrder, a, x, y, n, mem, true);
  }
  EXPECT_EQ(y[0], 5.0);
  EXPECT_EQ(mem[1], 2.0);
}

TEST(Filters, ConvolutionAndImpulseResponseAgreeWithTheDefinition) {
  Noise noise;
  const auto x = noise.vector(kSubframe, 1), h = noise.vector(kSubframe, 1);
  std::vector<double> y(kSubframe);
  convolve(x.data(), h.data(), y.data());
  for (int n = 0; n < kSubframe; ++n) {
    double s = 0;
    for (int i = 0; i <= n; ++i) s += x[i] * h[n - i];
    ASSERT_NEAR(y[n], s, 1e-12);
  }
  // A(z) = A'(z) gives a unit impulse.
  const auto a = stable_filter(kOrder, noise);
  double unit[kSubframe];
  impulse_response(kOrder, a.data(), a.data(), unit, kSubframe);
  EXPECT_EQ(unit[0], 1.0);
  for (int n = 1; n < kSubframe; ++n) EXPECT_NEAR(unit[n], 0.0, 1e-9);
}

TEST(Filters, BiquadEqualsItsRecursionInPiecesOfAnyLength) {
  Noise noise;
  const BiquadCoefficients c = {0.9, -1.8, 0.95, 1.9, -0.91};
  const auto x = noise.vector(400, 1000);
  auto y = x;
  BiquadMemory memory = {};
  for (int start = 0, n = 0; start < 400; start += n) {
    n = std::min(n + 1, 400 - start);
    biquad_filter(c, &memory, y.data() + start, n);
  }
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  for (int k = 0; k < 400; ++k) {
    const double direct = c.b0 * x[k] + c.b1 * x1 + c.b2 * x2 + c.a1 * y1 + c.a2 * y2;
    ASSERT_NEAR(y[k], direct, 1e-8);
    x2 = x1, x1 = x[k], y2 = y1, y1 = direct;
  }
}

TEST(Filters, DotSumsTheRest) {
  Noise noise;
  for (int n = 0; n < 30; ++n) {
    const auto x = noise.vector(n, 1), y = noise.vector(n, 1);
    double s = 0;
    for (int i = 0; i < n; ++i) s += x[i] * y[i];
    EXPECT_NEAR(dot(x.data(), y.data(), n), s, 1e-13);
  }
}

TEST(Pitch, InterpolationEqualsTheDirectSumAtEveryLag) {
  Noise noise;
  for (int t0 = 19; t0 <= kPitchMax; ++t0) {
    for (int frac = -1; frac <= 1; ++frac) {
      if (3 * t0 + frac < 58) continue;  // below the lowest lag, 19 1/3
      auto exc = noise.vector(kExcitationPast + kSubframe, 100);
      auto direct = exc;
      pitch_excitation_interpolate(exc.data() + kExcitationPast, t0, frac, kSubframe);
      const int lag = frac > 0 ? t0 + 1 : t0, phase = frac > 0 ? 3 - frac : -frac;
      for (int k = kExcitationPast; k < kExcitationPast + kSubframe; ++k) {
        double s = 0;
        for (int i = 0; i < kInterpolationTaps; ++i)
          s += direct[k - lag - i] * kPitchInterpolation[phase + 3 * i] +
               direct[k - lag + 1 + i] * kPitchInterpolation[3 - phase + 3 * i];
        direct[k] = s;
        ASSERT_NEAR(exc[k], s, 1e-9) << t0 << " " << frac;
      }
    }
  }
}

TEST(Pitch, InterpolationTableIsItsFormula) {
  for (int n = 0; n < 30; ++n) {
    const double x = M_PI * 0.9 * n / 3, sinc = n ? std::sin(x) / x : 1.0;
    EXPECT_NEAR(kPitchInterpolation[n], 0.898517 * sinc * (0.54 + 0.46 * std::cos(M_PI * n / 29.5)),
                1e-6);
  }
  EXPECT_EQ(kPitchInterpolation[30], 0.0);
}

TEST(Pitch, OneFlippedTopBitIsNoticed) {
  for (int index = 0; index < 256; ++index) {
    const int parity = pitch_parity(index);
    EXPECT_EQ(pitch_parity_check(index, parity), 0);
    EXPECT_EQ(pitch_parity_check(index, 1 - parity), 1);
    for (int bit = 2; bit < 8; ++bit) EXPECT_EQ(pitch_parity_check(index ^ (1 << bit), parity), 1);
  }
  EXPECT_EQ(pitch_parity_check(0, 1), 0);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
