#include "codec/dsp/lpc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "codec/dsp/diagnostics.h"
#include "codec/dsp/lsp_codebook.h"
#include "tests/codec/random_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

TEST(Lpc, LspsDecreaseWithinTheGridOrAreTheOldOnesAndGiveTheFilterBack) {
  test::Random random;
  int close = 0;
  for (int i = 0; i < 20000; ++i) {
    const auto a = test::filter_of_reflections(kOrder, i % 2 ? 0.99 : 0.5, random);
    double lsp[kOrder], plain[kOrder], back[kCoeffs];
    lpc_to_lsp(a.data(), lsp, kInitialLsp);
    lpc_to_lsp_plain(a.data(), plain, kInitialLsp);
    ASSERT_TRUE(std::equal(lsp, lsp + kOrder, plain));
    if (std::equal(lsp, lsp + kOrder, kInitialLsp)) continue;
    EXPECT_LE(lsp[0], 0.9997559);
    EXPECT_GE(lsp[kOrder - 1], -0.9997559);
    for (int j = 1; j < kOrder; ++j) ASSERT_LE(lsp[j], lsp[j - 1]);
    lsp_to_lpc(lsp, back);
    double difference = 0;
    for (int j = 1; j <= kOrder; ++j) difference = std::max(difference, std::abs(back[j] - a[j]));
    close += difference < 5e-3;
  }
  EXPECT_GT(close, 10000);
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

TEST(Lpc, LevinsonSolvesTheNormalEquationsOrFallsBackToTheLastStableFilter) {
  test::Random random;
  for (const auto& [m, solve] : kRecursions) {
    std::vector<double> x = random.vector(400, 1), r(m + 1, 0.0);
    double past = 0;
    for (double& v : x) v = past = 0.8 * past + v;
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
    const std::vector<double> good = std::exchange(a, std::vector<double>(m + 1));
    std::fill(r.begin(), r.end(), 0.0);
    r[0] = 1, r[3] = 0.9999;
    EXPECT_EQ(solve(m, r.data(), a.data(), rc.data(), &memory), 0.001);
    EXPECT_EQ(a, good);
    EXPECT_EQ(rc[0], memory.levinson_old_rc[0]);
    EXPECT_EQ(rc[2], -0.9999);
    if (solve != recursion_of_10) continue;
    a.assign(m + 1, 0.0), r[0] = r[3] = 0;  // all reflections are 0 / 0
    EXPECT_EQ(solve(m, r.data(), a.data(), rc.data(), &memory), 0.001);
    EXPECT_EQ(a, good);
    EXPECT_EQ(rc[2], 0.0);
  }
}

TEST(LspCodebook, StabilizeOrdersAndSpacesAndRemarksOnTheEnds) {
  double lsf[kOrder] = {0.001, 0.3, 0.2, 0.8, 0.81, 1.4, 1.7, 2.0, 2.5, 3.14};
  EXPECT_EQ(lsp_stabilize(lsf), unsigned{kLspLow | kLspHigh});
  EXPECT_EQ(lsf[0], kLsfLow);
  EXPECT_EQ(lsf[kOrder - 1], kLsfHigh);
  for (int j = 1; j < kOrder; ++j) EXPECT_GE(lsf[j] - lsf[j - 1], kLsfGap - 1e-12);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
