#include "codec/decoder/postfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

#include "codec/decoder/postprocess.h"
#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using Signal = std::vector<double>;

Signal noise(int n, double scale, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  Signal x(static_cast<size_t>(n));
  for (double& v : x) v = scale * normal(random);
  return x;
}

double filter_tap(double x, double half_width) {
  const double pi = std::numbers::pi;
  const double sinc = x == 0 ? 1 : std::sin(pi * x) / (pi * x);
  return sinc * (0.54 + 0.46 * std::cos(pi * x / half_width));
}

TEST(LongTermPostfilter, TablesFollowTheirFormula) {
  for (int p = 0; p < kDelayPhases; ++p) {
    for (int k = 0; k < kShortTaps; ++k)
      EXPECT_NEAR(kShortDelay[k][p], filter_tap(k - 1 - p / 8.0, 2), 5.1e-9);
    for (int k = 0; k < kLongTaps; ++k)
      EXPECT_NEAR(kLongDelay[p][k], filter_tap(k - 7 - p / 8.0, 8), 5.1e-9);
  }
}

double product(const double* x, const double* y) {
  double s = 0;
  for (int n = 0; n < kSubframe; ++n) s += x[n] * y[n];
  return s;
}

// The search of clause 4.2.1 step by step, every delayed signal formed.
struct DirectSearch {
  Signal delayed = Signal(kSubframe);
  double corr = 0, energy = 1;
  int eighths = 0;

  static Signal delay(const double* r, int eighths, bool longer) {
    Signal s(kSubframe);
    const int lag = eighths / 8, p = eighths % 8;
    for (int n = 0; n < kSubframe; ++n)
      for (int k = longer ? -7 : -1; k <= (longer ? 8 : 2); ++k)
        s[n] += (longer ? kLongDelay[p][k + 7] : kShortDelay[k + 1][p]) * r[n - lag - k];
    return s;
  }

  DirectSearch(const double* r, int t0) {
    int best = t0 - 1;
    for (int lag = t0; lag <= t0 + 1; ++lag)
      if (product(r, r - lag) > product(r, r - best)) best = lag;
    if (product(r, r - best) <= 0) return;
    for (int e = 8 * best - 7; e <= 8 * best + 7; ++e) consider(r, delay(r, e, false), e);
    if (corr * corr < 0.5 * product(r, r) * energy) corr = 0;
    if (corr > 0 && eighths % 8 != 0) consider(r, delay(r, eighths, true), eighths);
  }

  void consider(const double* r, const Signal& s, int e) {
    const double c = product(r, s.data()), en = product(s.data(), s.data());
    if (c <= 0 || en < 0.1 || c * c / en <= corr * corr / energy) return;
    corr = c;
    energy = en;
    eighths = e;
    delayed = s;
  }
};

// A pulse train of fractional period in noise: some voiced, some not.
TEST(LongTermPostfilter, MatchesTheDirectSearch) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> uniform(0, 1);
  int voiced = 0, fractional = 0;
  for (int round = 0; round < 2000; ++round) {
    const int t0 = 19 + round % 125;
    const double period = t0 - 1.4 + 2.8 * uniform(random), level = uniform(random);
    Signal x = noise(kResidualPast + kSubframe, 300 * level * level, unsigned(round));
    for (int n = 0; n < int(x.size()); ++n)
      for (int h = 1; h < 8 && h < period / 2; ++h)
        x[n] += 100 * std::cos(2 * std::numbers::pi * h * n / period);
    const double* r = x.data() + kResidualPast;
    double out[kSubframe];
    const int delay = long_term_postfilter(r, t0, 0.5, out);
    const DirectSearch direct(r, t0);
    ASSERT_EQ(delay, direct.corr > 0 ? (direct.eighths + 7) / 8 : 0) << "round " << round;
    voiced += delay > 0;
    fractional += direct.eighths % 8 != 0;
    const double g = 0.5 * std::min(1.0, direct.corr / direct.energy);
    for (int n = 0; n < kSubframe; ++n)
      ASSERT_NEAR(out[n], (r[n] + g * direct.delayed[n]) / (1 + g), 1e-7) << "round " << round;
  }
  EXPECT_GT(voiced, 400);
  EXPECT_LT(voiced, 1800);
  EXPECT_GT(fractional, 200);
}

constexpr PostFilterSettings kSettings = {0.7, 0.55, 0.5, 20};
constexpr double kFlat[kCoeffs] = {1.0};

TEST(PostFilter, NoLongTermFilterInPausesAndSilence) {
  Signal x(kBackwardOrder + 20 * kSubframe);
  for (size_t n = 0; n < x.size(); n += 50) x[n] = 1000;  // a pulse train, voiced
  for (const int type : {int{kNoTransmission}, int{kSid}, int{kSpeech6k4}, int{kSpeech8k}}) {
    PostFilterState state;
    double out[kSubframe];
    int voiced = 0;
    for (int s = 0; s < 20; ++s)
      voiced += postfilter_subframe(&state, 50, &x[kBackwardOrder + s * kSubframe], kFlat, out,
                                    kSettings, kOrder, type) > 0;
    EXPECT_EQ(voiced > 0, type >= kSpeech6k4);
    const double gain = state.past_gain;
    const Signal zero(kBackwardOrder + kSubframe);
    EXPECT_EQ(
        postfilter_subframe(&state, 50, &zero[kBackwardOrder], kFlat, out, kSettings, kOrder, type),
        0);
    EXPECT_EQ(*std::max_element(out, out + kSubframe), 0.0);
    EXPECT_EQ(state.past_gain, gain);
  }
}

// With one filter throughout and no long-term part, the subframes are one signal: residual, tilt
// and formant filter run over it at once, then the gain by its recursion.
TEST(PostFilter, MatchesTheDirectFilters) {
  constexpr int kCount = 10;
  const double a[kCoeffs] = {1.0, -1.2, 0.5, 0.1, -0.2};
  for (const double slope : {1.0, -1.0}) {  // tilt of either sign
    double lpc[kCoeffs], num[kCoeffs], den[kCoeffs], h[20];
    weight_lpc(a, slope, kOrder, lpc);
    weight_lpc(lpc, 0.55, kOrder, num);
    weight_lpc(lpc, 0.7, kOrder, den);
    impulse_response(kOrder, num, den, h, 20);
    const double r0 = dot(h, h, 20), k = dot(h, h + 1, 19) / r0, mu = (k > 0 ? 0.2 : 0.9) * k;
    EXPECT_EQ(k > 0, slope > 0);

    Signal x = noise(kBackwardOrder + kCount * kSubframe, 1000, 5), y(x.size());
    std::fill_n(x.begin(), kBackwardOrder, 0.0);
    PostFilterState state;
    double gain = state.past_gain = 3.0, residual = 0, last_residual, out[kSubframe];
    for (int start = kBackwardOrder; start < int(x.size()); start += kSubframe) {
      for (int n = start; n < start + kSubframe; ++n) {
        last_residual = std::exchange(residual, 0.0);
        for (int i = 0; i < kCoeffs; ++i) residual += num[i] * x[n - i];
        y[n] = r0 / (r0 - std::fabs(mu)) * (residual - mu * last_residual);
        for (int i = 1; i < kCoeffs; ++i) y[n] -= den[i] * y[n - i];
      }
      const double target =
          std::sqrt(product(&x[start], &x[start]) / product(&y[start], &y[start]));
      postfilter_subframe(&state, 60, &x[start], lpc, out, kSettings, kOrder, kSid);
      for (int n = 0; n < kSubframe; ++n) {
        gain = 0.9875 * gain + (1 - 0.9875) * target;
        ASSERT_NEAR(out[n], gain * y[start + n], 1e-8) << start + n;
      }
    }
  }
}

TEST(PostProcess, RemovesDirectCurrent) {
  BiquadMemory memory = {};
  Signal x(8000, 1000.0);
  EXPECT_EQ(postprocess_highpass(&memory, x.data(), int(x.size())), int(x.size()));
  EXPECT_NEAR(x[0], 939.80581, 1e-9);
  EXPECT_LT(std::fabs(x.back()), 0.0101 * 1000);  // the standard's zeros lie just off z = 1
}

TEST(PostProcess, SamplesWrapTowardZero) {
  const struct {
    double in;
    int16_t out;
  } cases[] = {{0.9, 0},           {-0.9, 0},         {-1.0, -1},         {32767.9, 32767},
               {32768.0, -32768},  {65536.0, 0},      {40000.7, -25536},  {-32769.0, 32767},
               {2147483647.5, -1}, {2147483648.0, 0}, {-2147483648.5, 0}, {-2147483649.0, 0},
               {1e300, 0},         {-1e300, 0},       {std::nan(""), 0},  {-65537.5, -1}};
  double x[kFrame] = {};
  int16_t y[kFrame];
  int n = 0;
  for (const auto& c : cases) x[n++] = c.in;
  wrap_to_samples(x, y);
  n = 0;
  for (const auto& c : cases) EXPECT_EQ(y[n++], c.out) << c.in;
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
