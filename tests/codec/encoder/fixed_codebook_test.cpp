// The 8 and 6.4 kbit/s searches against plain scalar searches.
#include "codec/encoder/fixed_codebook.h"

#include <gtest/gtest.h>

#include <climits>

#include "codec/encoder/acelp_6k4.h"
#include "codec/encoder/acelp_8k.h"
#include "search_signals.h"

namespace g729 {
namespace {

using test::SearchSignals;

// Direct forms of the front end.
struct FrontEnd {
  double h[kSubframe], d[kSubframe], sign[kSubframe], rr[kSubframe][kSubframe];

  FrontEnd(const std::vector<double>& target, const std::vector<double>& impulse, int t0,
           double sharp) {
    for (int i = 0; i < kSubframe; ++i) h[i] = impulse[i];
    for (int i = t0; i < kSubframe; ++i) h[i] += sharp * h[i - t0];
    for (int n = 0; n < kSubframe; ++n) {
      d[n] = 0;
      for (int i = n; i < kSubframe; ++i) d[n] += target[i] * h[i - n];
      sign[n] = d[n] >= 0 ? 1 : -1;
      d[n] = std::fabs(d[n]);
    }
    for (int i = 0; i < kSubframe; ++i)
      for (int j = 0; j < kSubframe; ++j) {
        double sum = 0;
        for (int k = 0; k <= kSubframe - 1 - std::max(i, j); ++k)
          sum += h[k] * h[k + std::abs(i - j)];
        rr[i][j] = i == j ? sum : sum * sign[i] * sign[j];
      }
  }
};

struct Result {
  int position_index = 0, sign_index = 0, extra = 0;
  std::vector<double> code = std::vector<double>(kSubframe);
  std::vector<double> y = std::vector<double>(kSubframe);

  bool operator==(const Result&) const = default;
};

void write_pulses(const FrontEnd& f, const std::vector<int>& pulses, int t0, double sharp,
                  Result* r) {
  for (size_t k = 0; k < pulses.size(); ++k) {
    r->code[pulses[k]] += f.sign[pulses[k]];
    r->sign_index |= (f.sign[pulses[k]] > 0) << k;
    for (int n = pulses[k]; n < kSubframe; ++n) r->y[n] += f.sign[pulses[k]] * f.h[n - pulses[k]];
  }
  for (int i = t0; i < kSubframe; ++i) r->code[i] += sharp * r->code[i - t0];
}

// Four nested loops with threshold and budget; `*square_per_energy` is the criterion reached.
Result nested_search_17bit(const FrontEnd& f, int t0, double sharp, int budget,
                           double threshold_share, double* square_per_energy) {
  double mean = 0, max = 0;
  for (int t = 0; t < 3; ++t) {
    double most = 0;
    for (int i = t; i < kSubframe; i += 5) {
      mean += 0.125 * f.d[i];
      most = std::max(most, f.d[i]);
    }
    max += most;
  }
  const double threshold = mean + threshold_share * (max - mean);
  double psk = 0, alpk = 1000000;
  std::vector<int> best = {0, 1, 2, 3};
  Result r;
  r.extra = budget;
  const auto search = [&] {
    for (int i0 = 0; i0 < kSubframe; i0 += 5)
      for (int i1 = 1; i1 < kSubframe; i1 += 5)
        for (int i2 = 2; i2 < kSubframe; i2 += 5) {
          const double ps2 = f.d[i0] + f.d[i1] + f.d[i2];
          if (!(ps2 > threshold)) continue;
          const double alp1 = f.rr[i0][i0] + f.rr[i1][i1] + 2 * f.rr[i0][i1];
          const double alp2 = alp1 + f.rr[i2][i2] + 2 * (f.rr[i0][i2] + f.rr[i1][i2]);
          for (int track = 3; track <= 4; ++track)
            for (int i3 = track; i3 < kSubframe; i3 += 5) {
              const double ps3 = ps2 + f.d[i3];
              const double alp3 =
                  alp2 + f.rr[i3][i3] + 2 * (f.rr[i0][i3] + f.rr[i1][i3] + f.rr[i2][i3]);
              if (!(ps3 * ps3 * alpk > psk * alp3)) continue;
              psk = ps3 * ps3;
              alpk = alp3;
              best = {i0, i1, i2, i3};
            }
          if (--r.extra <= 0) return;
        }
  };
  search();
  *square_per_energy = psk / alpk;
  r.position_index = best[0] / 5 + 8 * (best[1] / 5) + 64 * (best[2] / 5) +
                     512 * (best[3] % 5 - 3) + 1024 * (best[3] / 5);
  write_pulses(f, best, t0, sharp, &r);
  return r;
}

Result fast_search_17bit(const std::vector<double>& target, std::vector<double> impulse, int t0,
                         double sharp, int subframe_start, int extra) {
  Result r;
  r.extra = extra;
  r.position_index = acelp_search_17bit(target.data(), impulse.data(), t0, sharp, subframe_start,
                                        r.code.data(), r.y.data(), &r.sign_index, &r.extra);
  return r;
}

TEST(AcelpSearch17Bit, EqualsTheNestedSearchAndCarriesItsBudget) {
  SearchSignals signals(1);
  int timed_out = 0, extra = 1234;
  for (int trial = 0; trial < 2000; ++trial) {
    const std::vector<double> target = signals.noise(200), impulse = signals.impulse_response();
    const int t0 = signals.integer(18, 50), start = trial % 2 * 40;
    const double sharp = signals.uniform(0.2, 0.79);
    double unused;
    const FrontEnd f(target, impulse, t0, sharp);
    const Result slow =
        nested_search_17bit(f, t0, sharp, 75 + (start == 0 ? 30 : extra), 0.4, &unused);
    const Result fast = fast_search_17bit(target, impulse, t0, sharp, start, extra);
    ASSERT_EQ(fast, slow) << "trial " << trial;
    extra = fast.extra;
    timed_out += start == 0 && extra == 0;
  }
  EXPECT_GT(timed_out, 0);
  EXPECT_LT(timed_out, 1000);
}

TEST(AcelpSearch17Bit, TiesKeepTheFirstCandidate) {
  std::vector<double> impulse(kSubframe);
  impulse[0] = 1;
  for (const double level : {0.0, 1.0, -3.0}) {  // every position is as good as every other
    const std::vector<double> target(kSubframe, level);
    double unused;
    const FrontEnd f(target, impulse, 60, 0.5);
    EXPECT_EQ(fast_search_17bit(target, impulse, 60, 0.5, 0, 0),
              nested_search_17bit(f, 60, 0.5, 105, 0.4, &unused));
  }
}

// Without threshold and budget the nested search is exhaustive for the fixed signs: what the
// focused search gives up for its bounded cost must stay small.
TEST(AcelpSearch17Bit, FocusedSearchStaysNearTheExhaustiveOne) {
  SearchSignals signals(2);
  double lost_db = 0;
  constexpr int kTrials = 300;
  for (int trial = 0; trial < kTrials; ++trial) {
    const std::vector<double> target = signals.noise(200), impulse = signals.impulse_response();
    const FrontEnd f(target, impulse, 40, 0);
    double exhaustive, focused = 0, energy = 0;
    nested_search_17bit(f, 40, 0, INT_MAX, -1e9, &exhaustive);
    const Result fast = fast_search_17bit(target, impulse, 40, 0, 0, 0);
    for (int n = 0; n < kSubframe; ++n) {
      focused += target[n] * fast.y[n];
      energy += fast.y[n] * fast.y[n];
    }
    const double ratio = focused * focused / energy / exhaustive;
    ASSERT_LT(ratio, 1 + 1e-9);
    lost_db -= 10 * std::log10(ratio) / kTrials;
  }
  EXPECT_LT(lost_db, 0.25);
}

Result brute_force_11bit(const FrontEnd& f, int t0, double sharp, double* square_per_energy) {
  double psk = 0, alpk = 1e38;
  int k[2] = {0, 0};
  for (int k0 = 0; k0 < 16; ++k0)
    for (int k1 = 0; k1 < 32; ++k1) {
      const int p0 = kPulse0Track6k4[k0], p1 = kPulse1Track6k4[k1];
      const double ps = f.d[p0] + f.d[p1];
      const double alp = f.rr[p0][p0] + f.rr[p1][p1] + 2 * f.rr[p0][p1];
      if (!(ps * ps * alpk > psk * alp)) continue;
      psk = ps * ps;
      alpk = alp;
      k[0] = k0;
      k[1] = k1;
    }
  *square_per_energy = psk / alpk;
  Result r;
  r.position_index = kGray[k[0]] + 16 * kGray[k[1]];
  write_pulses(f, {kPulse0Track6k4[k[0]], kPulse1Track6k4[k[1]]}, t0, sharp, &r);
  return r;
}

TEST(AcelpSearch11Bit, EqualsBruteForce) {
  SearchSignals signals(3);
  int on_one_position = 0;
  for (int trial = 0; trial < 2000; ++trial) {
    std::vector<double> target = signals.noise(200);
    std::vector<double> impulse = signals.impulse_response();
    if (trial % 4 == 0) target[1 + 5 * (trial % 8)] += 3000;  // invites both pulses
    const int t0 = signals.integer(18, 50);
    const double sharp = signals.uniform(0.2, 0.79);
    double unused;
    const FrontEnd f(target, impulse, t0, sharp);
    const Result slow = brute_force_11bit(f, t0, sharp, &unused);
    Result fast;
    fast.position_index = acelp_search_11bit(target.data(), impulse.data(), t0, sharp,
                                             fast.code.data(), fast.y.data(), &fast.sign_index);
    ASSERT_EQ(fast, slow) << "trial " << trial;
    for (const double c : fast.code) on_one_position += std::fabs(c) == 2;
    for (int n = 0; n < kSubframe; ++n) ASSERT_EQ(impulse[n], f.h[n]);  // sharpened in place
  }
  EXPECT_GT(on_one_position, 0);
}

TEST(AcelpSearch11Bit, SilentTargetGivesTheFirstPositions) {
  std::vector<double> target(kSubframe), impulse(kSubframe, 0.1), code(kSubframe), y(kSubframe);
  int sign_index;
  EXPECT_EQ(acelp_search_11bit(target.data(), impulse.data(), 40, 0.2, code.data(), y.data(),
                               &sign_index),
            0);
  EXPECT_EQ(sign_index, 3);
  EXPECT_EQ(code[1], 1.0);
  EXPECT_EQ(code[0], 1.0);
}

}  // namespace
}  // namespace g729
