#include "codec/encoder/acelp_11k8.h"

#include <gtest/gtest.h>

#include "search_signals.h"

namespace g729 {
namespace {

using test::SearchSignals;

// What a decoder makes of the words, before sharpening.
std::vector<double> decode(LpMode lp_mode, const int* words) {
  std::vector<double> code(kSubframe);
  const bool backward = lp_mode == kBackward;
  int track = backward ? std::min(words[0] >> 10 & 7, 4) : 0;
  for (int w = 0; w < 5; ++w, track = (track + 1) % 5) {
    double sign = words[w] & 8 ? -1 : 1;
    int position = 5 * (words[w] & 7) + track;
    code[position] = sign;
    for (int k = 1; k < (backward && w < 2 ? 3 : 2); ++k) {
      const int next = 5 * (words[w] >> (3 * k + 1) & 7) + track;
      if (next > position) sign = -sign;
      position = next;
      code[position] += sign;
    }
  }
  return code;
}

struct Found {
  std::vector<double> code = std::vector<double>(kSubframe);
  std::vector<double> y = std::vector<double>(kSubframe);
  int words[5];
};

Found search(LpMode lp_mode, const std::vector<double>& target, std::vector<double> impulse,
             int t0 = 40, double sharp = 0) {
  Found f;
  acelp_search_118(lp_mode, target.data(), impulse.data(), t0, sharp, f.code.data(), f.y.data(),
                   f.words);
  return f;
}

std::vector<double> sharpened(std::vector<double> x, int t0, double sharp) {
  for (int i = t0; i < kSubframe; ++i) x[i] += sharp * x[i - t0];
  return x;
}

std::vector<double> filtered(const std::vector<double>& x, const std::vector<double>& h) {
  std::vector<double> y(kSubframe);
  for (int n = 0; n < kSubframe; ++n)
    for (int i = 0; i <= n; ++i) y[n] += x[i] * h[n - i];
  return y;
}

// Share of the target's energy that the innovation leaves, with its best gain.
double error_share(const std::vector<double>& target, const std::vector<double>& y) {
  double xx = 0, xy = 0, yy = 1e-9;
  for (int n = 0; n < kSubframe; ++n) {
    xx += target[n] * target[n];
    xy += target[n] * y[n];
    yy += y[n] * y[n];
  }
  return xy <= 0 ? 1 : 1 - xy * xy / (xx * yy);
}

class AcelpSearch118 : public ::testing::TestWithParam<LpMode> {};
INSTANTIATE_TEST_SUITE_P(Modes, AcelpSearch118, ::testing::Values(kForward, kBackward));

TEST_P(AcelpSearch118, WordsDecodeToTheInnovation) {
  SearchSignals signals(7);
  for (int trial = 0; trial < 1500; ++trial) {
    std::vector<double> target = signals.noise(100);
    if (trial % 3 == 0)  // a sparse target makes pulses share positions
      for (int n = 0; n < kSubframe; ++n) target[n] *= n % 7 == trial % 7 ? 50 : 0.01;
    const std::vector<double> impulse = signals.impulse_response();
    const int t0 = signals.integer(18, 50);
    const double sharp = signals.uniform(0.2, 0.79);
    const Found f = search(GetParam(), target, impulse, t0, sharp);
    const std::vector<double> code = decode(GetParam(), f.words);
    ASSERT_EQ(f.code, sharpened(code, t0, sharp));
    const std::vector<double> y = filtered(code, sharpened(impulse, t0, sharp));
    for (int n = 0; n < kSubframe; ++n) ASSERT_NEAR(f.y[n], y[n], 1e-9);
    const int bits[2][5] = {{7, 7, 7, 7, 7}, {13, 10, 7, 7, 7}};
    for (int w = 0; w < 5; ++w) ASSERT_EQ(f.words[w] >> bits[GetParam()][w], 0);
  }
}

// A code vector of the codebook itself is found again, all but exactly.
TEST_P(AcelpSearch118, FindsAnInnovationOfItsOwn) {
  SearchSignals signals(8);
  std::vector<double> impulse(kSubframe);
  impulse[0] = 1;
  impulse[1] = -0.5;
  int exact = 0;
  for (int trial = 0; trial < 200; ++trial) {
    int words[5];
    for (int& w : words) w = signals.integer(0, 1023);
    words[0] |= signals.integer(0, 4) << 10;
    const std::vector<double> target = filtered(decode(GetParam(), words), impulse);
    exact += error_share(target, search(GetParam(), target, impulse).y) < 1e-9;
  }
  EXPECT_GT(exact, 100);
}

// A longer search: from the result on, every pulse in turn is moved to the place and sign that
// serve best, until no move helps.
double error_after_exchange(LpMode lp_mode, const std::vector<double>& target,
                            const std::vector<double>& impulse, const Found& f) {
  std::vector<double> code = decode(lp_mode, f.words);
  double least = error_share(target, filtered(code, impulse));
  for (bool moved = true; moved;) {
    moved = false;
    for (int from = 0; from < kSubframe; ++from)
      for (int to = from % 5; to < kSubframe && code[from] != 0; to += 5)
        for (const double sign : {1.0, -1.0}) {
          std::vector<double> tried = code;
          tried[from] -= tried[from] > 0 ? 1 : -1;
          if (tried[to] * sign < 0) continue;
          tried[to] += sign;
          const double e = error_share(target, filtered(tried, impulse));
          if (e >= least * (1 - 1e-9)) continue;
          least = e;
          code = tried;
          moved = true;
        }
  }
  return least;
}

TEST_P(AcelpSearch118, StaysNearALongerSearch) {
  SearchSignals signals(9);
  double found_db = 0, longer_db = 0;
  constexpr int kTrials = 100;
  for (int trial = 0; trial < kTrials; ++trial) {
    const std::vector<double> impulse = signals.impulse_response();
    const std::vector<double> target = filtered(signals.noise(100), impulse);
    const Found f = search(GetParam(), target, impulse);
    found_db += 10 * std::log10(error_share(target, f.y)) / kTrials;
    longer_db += 10 * std::log10(error_after_exchange(GetParam(), target, impulse, f)) / kTrials;
  }
  EXPECT_LT(found_db, GetParam() == kBackward ? -7.2 : -6.4);
  EXPECT_LT(found_db - longer_db, 0.2);
}

TEST_P(AcelpSearch118, SilentTargetGivesAValidInnovation) {
  std::vector<double> impulse(kSubframe);
  impulse[0] = 1;
  const Found f = search(GetParam(), std::vector<double>(kSubframe), impulse);
  EXPECT_EQ(f.code, decode(GetParam(), f.words));
}

}  // namespace
}  // namespace g729
