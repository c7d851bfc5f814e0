#include "codec/dsp/filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "codec/dsp/constants.h"
#include "tests/codec/random_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using test::stable_filter;

TEST(Filters, SynthesisUndoesResidual) {
  test::Random random;
  for (int m : {0, 3, kOrder, kBackwardOrder}) {
    for (int n : {kLanes, 31, kSubframe, kFrame}) {
      const auto a = stable_filter(m, random);
      const auto x = random.vector(m + n, 8000);
      std::vector<double> r(n), y(n), mem(x.begin(), x.begin() + m);
      residual_filter({a.data(), m}, x.data() + m, r.data(), n);
      y = r;
      synthesis_filter({a.data(), m}, y.data(), y.data(), n, mem.data(), false);
      EXPECT_TRUE(std::equal(mem.begin(), mem.end(), x.begin()));
      for (int i = 0; i < n; ++i) ASSERT_NEAR(y[i], x[m + i], 1e-6);
      synthesis_filter({a.data(), m}, r.data(), y.data(), n, mem.data(), true);
      for (int i = 0; i < n; ++i) ASSERT_NEAR(y[i], x[m + i], 1e-6);
      for (int i = 0; i < m; ++i) ASSERT_NEAR(mem[i], x[n + i], 1e-6);
    }
  }
}

TEST(Filters, APairEqualsTwoSingles) {
  test::Random random;
  for (int m : {0, 3, kOrder, kBackwardOrder}) {
    const auto a = stable_filter(m, random);
    auto x0 = random.vector(kSubframe, 1000), x1 = random.vector(kSubframe, 1000);
    auto mem0 = random.vector(m, 1000), mem1 = random.vector(m, 1000);
    auto y0 = x0, y1 = x1;
    synthesis_filter_pair({a.data(), m}, {y0.data(), mem0.data(), y0.data()},
                          {y1.data(), mem1.data(), y1.data()});
    synthesis_filter({a.data(), m}, x0.data(), x0.data(), kSubframe, mem0.data(), false);
    synthesis_filter({a.data(), m}, x1.data(), x1.data(), kSubframe, mem1.data(), false);
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
    residual_filter({a, kOrder}, x + kOrder, y, n);
    synthesis_filter({a, kOrder}, x, y, n, mem, true);
  }
  EXPECT_EQ(y[0], 5.0);
  EXPECT_EQ(mem[1], 2.0);
}

TEST(Filters, ConvolutionIsSynthesisOfTheImpulseResponse) {
  test::Random random;
  const auto a = stable_filter(kOrder, random);
  auto x = random.vector(kSubframe, 1);
  const double one[kCoeffs] = {1.0}, rest[kOrder] = {};
  std::vector<double> h(kSubframe), y(kSubframe);
  impulse_response(kOrder, one, a.data(), h.data(), kSubframe);
  convolve(x.data(), h.data(), y.data());
  synthesis_filter({a.data(), kOrder}, x.data(), x.data(), kSubframe, const_cast<double*>(rest),
                   false);
  for (int n = 0; n < kSubframe; ++n) ASSERT_NEAR(y[n], x[n], 1e-9);
}

TEST(Filters, BiquadEqualsItsRecursionInPiecesOfAnyLength) {
  test::Random random;
  const BiquadCoefficients c = {0.9, -1.8, 0.95, 1.9, -0.91};
  const auto x = random.vector(400, 1000);
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
  test::Random random;
  for (int n = 0; n < 30; ++n) {
    const auto x = random.vector(n, 1), y = random.vector(n, 1);
    double s = 0;
    for (int i = 0; i < n; ++i) s += x[i] * y[i];
    EXPECT_NEAR(dot(x.data(), y.data(), n), s, 1e-13);
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
