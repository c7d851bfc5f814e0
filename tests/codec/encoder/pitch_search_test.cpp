#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "codec/dsp/pitch.h"
#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/open_loop_pitch.h"
#include "tests/codec/encoder/search_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// x / sqrt(e), the root in single precision.
double normalise(double x, double e) {
  return x / std::sqrt(static_cast<float>(e));
}

int direct_open_loop(const double* wsp) {
  constexpr int kSections[3][2] = {{80, 143}, {40, 79}, {20, 39}};
  int chosen = 0;
  double candidate = 0;
  for (int s = 0; s < 3; ++s) {
    double best = -1e38;
    int lag = 0;
    for (int t = kSections[s][0]; t <= kSections[s][1]; ++t) {
      double c = 0;
      for (int j = 0; j < kFrame; ++j) c += wsp[j] * wsp[j - t];
      if (c < best) continue;
      best = c;
      lag = t;
    }
    double energy = 0.01;
    for (int j = 0; j < kFrame; ++j) energy += wsp[j - lag] * wsp[j - lag];
    const double normalised = normalise(best, energy);
    if (s == 0 || normalised > 0.85 * candidate) {
      candidate = normalised;
      chosen = lag;
    }
  }
  return chosen;
}

TEST(OpenLoopPitch, PicksWhatTheDirectSearchPicks) {
  test::SearchSignals signals(21);
  int by_section[3] = {};
  for (int trial = 0; trial < 2000; ++trial) {
    // A repeated pattern, exactly (whole numbers: many equal correlations) or under noise.
    const int period = signals.integer(15, 150);
    const double noise = trial % 2 == 0 ? 0.0 : signals.uniform(0.0, 500.0);
    std::vector<double> pattern(period), x(kPitchMax + kFrame);
    for (double& v : pattern) v = signals.integer(0, 3) == 0 ? signals.integer(-900, 900) : 0;
    // Far beyond what single precision can screen, too.
    const int scale = std::array{0, 0, 0, -80, 80}[trial % 5];
    for (size_t n = 0; n < x.size(); ++n)
      x[n] = std::ldexp(pattern[n % period] + noise * signals.uniform(-1, 1), scale);
    const double* wsp = x.data() + kPitchMax;
    const int lag = open_loop_pitch(wsp);
    ASSERT_EQ(lag, direct_open_loop(wsp)) << trial;
    ASSERT_EQ(lag, open_loop_pitch_plain(wsp)) << trial;
    ++by_section[lag >= 80 ? 0 : lag >= 40 ? 1 : 2];
  }
  for (int n : by_section) EXPECT_GT(n, 50);
}

// Pulses 10 apart: equal peaks in all sections, and several in each.
TEST(OpenLoopPitch, TiesGoToTheShortestSectionAndItsLargestLag) {
  double x[kPitchMax + kFrame] = {};
  EXPECT_EQ(open_loop_pitch(x + kPitchMax), kPitchMax) << "silence has nothing to favour";
  for (int n = 0; n < kPitchMax + kFrame; n += 10) x[n] = 100.0;
  EXPECT_EQ(open_loop_pitch(x + kPitchMax), 30);
}

// Where the favour for the shorter lag tips over, the single-precision root decides.
TEST(OpenLoopPitch, TipsOverWhereTheDirectSearchDoes) {
  double x[kPitchMax + kFrame] = {};
  double* wsp = x + kPitchMax;
  wsp[0] = wsp[-100] = 1000.0;
  wsp[-95] = 500.0;  // energy in the longer lag's way
  double low = 700.0, high = 900.0;
  while (high - low > 1e-9) {
    wsp[-50] = (low + high) / 2;
    (direct_open_loop(wsp) == 100 ? low : high) = wsp[-50];
  }
  for (int i = -100; i <= 100; ++i) {
    wsp[-50] = low + i * 5e-7;
    ASSERT_EQ(open_loop_pitch(wsp), direct_open_loop(wsp)) << i;
  }
}

// One subframe's input to the closed-loop search.
struct Subframe {
  std::vector<double> signal, xn, h;
  const double* exc() const { return signal.data() + kExcitationPast; }
};

Subframe random_subframe(test::SearchSignals& signals) {
  Subframe s;
  s.h = signals.impulse_response();
  // Long periods under noise, or short ones that grow: then several lags fit equally well, but for
  // the rounding of the single-precision root.
  const bool growing = signals.integer(0, 1) == 1;
  const int period = growing ? signals.integer(3, 6) : signals.integer(18, 150);
  std::vector<double> pattern(period);
  for (double& v : pattern) v = signals.uniform(-500, 500);
  for (int n = 0; n < kExcitationPast + kSubframe; ++n) {
    s.signal.push_back(growing ? pattern[n % period] * std::pow(1.003, n)
                               : pattern[n % period] + signals.uniform(-100, 100));
  }
  s.xn = signals.noise(growing ? 0.0 : 300.0);
  for (int n = 0; n < kSubframe; ++n)
    for (int i = 0; i <= n; ++i) s.xn[n] += s.exc()[i] * s.h[n - i];
  return s;
}

double direct_correlation(const Subframe& s, int lag) {
  double xy = 0, yy = 0.01;
  for (int n = 0; n < kSubframe; ++n) {
    double y = 0;
    for (int i = 0; i <= n; ++i) y += s.exc()[i - lag] * s.h[n - i];
    xy += s.xn[n] * y;
    yy += y * y;
  }
  return normalise(xy, yy);
}

// Correlation at lag + f / 3, from the filter as a function of the distance in thirds.
double direct_interpolation(const Subframe& s, int lag, int f) {
  constexpr double kFilter[13] = {0.900839, 0.760084,  0.424082, 0.084078, -0.10557,
                                  -0.12112, -0.047624, 0.016285, 0.031217, 0.015738,
                                  0.0,      -0.005925, 0.0};
  double value = 0;
  for (int t = lag - 5; t <= lag + 5; ++t) {
    const int distance = std::abs(3 * (t - lag) - f);
    if (distance <= 12) value += kFilter[distance] * direct_correlation(s, t);
  }
  return value;
}

PitchLag direct_closed_loop(const Subframe& s, LagRange range, int i_subfr, int rate) {
  int lag = range.t0_min;
  double best = -1e38;
  for (int t = range.t0_min; t <= range.t0_max; ++t) {
    const double c = direct_correlation(s, t);
    if (c >= best) {
      best = c;
      lag = t;
    }
  }
  int low = -2, high = 2;
  if (i_subfr == 0) {
    if (lag > 84) return {lag, 0};
  } else if (rate == kRate6k4) {
    const int below_max = range.t0_max - lag;
    if (below_max < 3 || below_max > 6) return {lag, 0};
    if (below_max == 6) low = 0;
    if (below_max == 3) high = 0;
  }
  int fraction = low;
  best = -1e38;
  for (int f = low; f <= high; ++f) {
    const double c = direct_interpolation(s, lag, f);
    if (c > best) {
      best = c;
      fraction = f;
    }
  }
  return fraction == -2  ? PitchLag{lag - 1, 1}
         : fraction == 2 ? PitchLag{lag + 1, -1}
                         : PitchLag{lag, fraction};
}

PitchLag decode_first(int index) {
  if (index >= 197) return {index - 112, 0};
  const int third = (index + 2) / 3;
  return {third + 19, index - 3 * third + 1};
}

PitchLag decode_second(int index, int t0_min, int rate) {
  const int third = (index + 2) / 3;
  if (rate != kRate6k4) return {t0_min + third - 1, index + 1 - 3 * third};
  if (index < 4) return {t0_min + index, 0};
  if (index >= 12) return {t0_min + index - 6, 0};
  if (index % 3 == 2) return {t0_min + index / 3 + 3, -1};
  return {t0_min + index / 3 + 2, index % 3};
}

void expect_equal(PitchLag a, PitchLag b) {
  ASSERT_EQ(a.t0, b.t0);
  ASSERT_EQ(a.frac, b.frac);
}

TEST(ClosedLoopPitch, PicksAndCodesWhatTheDirectSearchPicks) {
  test::SearchSignals signals(31);
  for (int trial = 0; trial < 1500; ++trial) {
    const int rate = trial % 3;
    LagRange range;
    range.t0_min = signals.integer(kPitchMin, 137);
    range.t0_max = range.t0_min + 6;
    const Subframe first = random_subframe(signals);
    PitchLag lag = closed_loop_pitch(first.exc(), first.xn.data(), first.h.data(), range, 0, rate);
    expect_equal(lag, direct_closed_loop(first, range, 0, rate));
    const int index = encode_lag(lag, &range, 0, rate);
    ASSERT_TRUE(index >= 0 && index < 256);
    expect_equal(decode_first(index), lag);

    const Subframe second = random_subframe(signals);
    const PitchLag next =
        closed_loop_pitch(second.exc(), second.xn.data(), second.h.data(), range, 40, rate);
    expect_equal(next, direct_closed_loop(second, range, 40, rate));
    const int code = encode_lag(next, &range, 40, rate);
    ASSERT_TRUE(code >= 0 && code < (rate == kRate6k4 ? 16 : 32));
    expect_equal(decode_second(code, range.t0_min, rate), next);
  }
}

// All correlations are zero: the largest lag, then the lowest fraction where there is one.
TEST(ClosedLoopPitch, SilenceTakesTheLargestLagAndTheLowestFraction) {
  const double silence[kExcitationPast + kSubframe] = {};
  const double* exc = silence + kExcitationPast;
  double h[kSubframe] = {1.0};
  expect_equal(closed_loop_pitch(exc, exc, h, {20, 26}, 0, kRate8k), {25, 1});
  expect_equal(closed_loop_pitch(exc, exc, h, {137, 143}, 0, kRate8k), {143, 0});
  expect_equal(closed_loop_pitch(exc, exc, h, {134, 143}, 40, kRate8k), {142, 1});
  expect_equal(closed_loop_pitch(exc, exc, h, {134, 143}, 40, kRate6k4), {143, 0});
}

TEST(EncodeLag, InvertsTheDecoderOverEveryIndex) {
  for (int index = 0; index < 256; ++index) {
    LagRange range = {};
    ASSERT_EQ(encode_lag(decode_first(index), &range, 0, kRate8k), index);
    ASSERT_EQ(range.t0_min, std::clamp(decode_first(index).t0 - 5, 20, 134));
    ASSERT_EQ(range.t0_max, range.t0_min + 9);
    const LagRange set = range;
    for (int rate : {kRate6k4, kRate8k, kRate11k8}) {
      for (int second = 0; second < (rate == kRate6k4 ? 16 : 32); ++second) {
        const PitchLag lag = decode_second(second, range.t0_min, rate);
        ASSERT_EQ(encode_lag(lag, &range, 40, rate), second);
      }
    }
    ASSERT_EQ(range.t0_min, set.t0_min);
    ASSERT_EQ(range.t0_max, set.t0_max);
  }
}

TEST(PitchGain, IsTheBoundedProjection) {
  const double y1[kSubframe] = {100.0, -200.0};
  double g_coeff[2];
  for (double gain : {-0.5, 0.0, 0.3, 1.1, 1.7}) {
    const double xn[kSubframe] = {100.0 * gain, -200.0 * gain};
    EXPECT_NEAR(pitch_gain(y1, xn, g_coeff), std::clamp(gain, 0.0, 1.2), 1e-6);
    EXPECT_NEAR(g_coeff[0], 50000.01, 1e-9);
    EXPECT_NEAR(g_coeff[1], 0.01 - 2 * 50000.0 * gain, 1e-9);
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
