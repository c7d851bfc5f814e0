#include "codec/encoder/gain_quantizer.h"

#include <gtest/gtest.h>

#include "search_signals.h"

namespace g729 {
namespace {

using test::SearchSignals;

// A quantiser and its codebook, for tests that hold for both.
struct Form {
  const char* name;
  int (*quantize)(const double*, const double*, int, double*, double*, int, GainHistory*);
  const GainPair* stage_a;
  const GainPair* stage_b;
  int entries_b;
  const int* index_a;  // transmitted code -> codebook index
  const int* index_b;
  double history_floor;
  double found;    // least share of subframes whose best pair the pre-selection keeps
  double loss_db;  // greatest mean loss against the best pair
};
const Form kForms[] = {
    {"8k", gain_quantize, kGainA, kGainB, kGainStageB, kGainIndexA, kGainIndexB, 0.0, 0.95, 0.05},
    {"6k4", gain_quantize_6k4, kGainA6k4, kGainB6k4, kGainStageB6k4, kGainIndexA6k4, kGainIndexB6k4,
     kGainFloor6k4, 0.7, 0.6},
};

// A subframe's vectors with gains that the codebook can be expected to cover.
struct Subframe {
  std::vector<double> x, y1, z, code;
  double coeff[kGainTerms];
  GainHistory history;
  double g0;

  explicit Subframe(SearchSignals& signals) : y1(signals.noise(300)), z(signals.noise(1)) {
    code = std::vector<double>(kSubframe);
    for (int k = 0; k < 4; ++k) code[10 * k + k] = k % 2 ? 1 : -1;
    for (double& e : history.energy) e = signals.uniform(-14, 20);
    g0 = gain_predict(history, code.data(), kSubframe);
    const double gp = signals.uniform(0.2, 1.1), gc = g0 * signals.uniform(0.2, 1.5);
    x = signals.noise(100);
    for (int n = 0; n < kSubframe; ++n) x[n] += gp * y1[n] + gc * z[n];
    coeff[0] = coeff[1] = 0;
    for (int n = 0; n < kSubframe; ++n) {
      coeff[0] += y1[n] * y1[n];
      coeff[1] -= 2 * x[n] * y1[n];
    }
    gain_correlations(x.data(), y1.data(), z.data(), coeff);
  }

  double error(double gp, double gc) const {
    double e = 0;
    for (int n = 0; n < kSubframe; ++n) {
      const double d = x[n] - gp * y1[n] - gc * z[n];
      e += d * d;
    }
    return e;
  }

  // The quantised gains must be what a decoder makes of the index and the same history.
  int quantize(const Form& form, int tame_flag, double* gp, double* gc) const {
    GainHistory after = history;
    const int index = form.quantize(code.data(), coeff, kSubframe, gp, gc, tame_flag, &after);
    const GainPair& a = form.stage_a[form.index_a[index / form.entries_b]];
    const GainPair& b = form.stage_b[form.index_b[index % form.entries_b]];
    EXPECT_EQ(*gp, a.pitch + b.pitch);
    EXPECT_EQ(*gc, g0 * (a.code + b.code));
    GainHistory expected = history;
    gain_history_push(&expected, std::max(a.code + b.code, form.history_floor));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(after.energy[i], expected.energy[i]);
    return index;
  }
};

// The error that the best of all pairs leaves.
double least_error(const Form& form, const Subframe& s, double pitch_limit) {
  double least = 1e300;
  for (int i = 0; i < kGainStageA; ++i)
    for (int j = 0; j < form.entries_b; ++j) {
      const double gp = form.stage_a[i].pitch + form.stage_b[j].pitch;
      const double gc = s.g0 * (form.stage_a[i].code + form.stage_b[j].code);
      if (gp < pitch_limit) least = std::min(least, s.error(gp, gc));
    }
  return least;
}

TEST(GainQuantizer, PreselectionStaysNearTheWholeCodebook) {
  for (const Form& form : kForms) {
    SCOPED_TRACE(form.name);
    SearchSignals signals(4);
    double lost_db = 0;
    int best_found = 0;
    constexpr int kTrials = 1000;
    for (int trial = 0; trial < kTrials; ++trial) {
      const Subframe s(signals);
      double gp, gc;
      s.quantize(form, 0, &gp, &gc);
      const double least = least_error(form, s, 1e9), found = s.error(gp, gc);
      EXPECT_GE(found, least * (1 - 1e-9));
      lost_db += 10 * std::log10(found / least) / kTrials;
      best_found += found <= least * (1 + 1e-9);
    }
    EXPECT_LT(lost_db, form.loss_db);
    EXPECT_GT(best_found, kTrials * form.found);
  }
}

TEST(GainQuantizer, TamingKeepsThePitchGainBelowOne) {
  for (const Form& form : kForms) {
    SCOPED_TRACE(form.name);
    SearchSignals signals(5);
    int above_one_untamed = 0;
    for (int trial = 0; trial < 500; ++trial) {
      const Subframe s(signals);
      double gp, gc;
      s.quantize(form, 0, &gp, &gc);
      above_one_untamed += gp >= 0.9999;
      s.quantize(form, 1, &gp, &gc);
      EXPECT_LT(gp, 0.9999);
    }
    EXPECT_GT(above_one_untamed, 20);
  }
}

// A loud prediction and an innovation that only adds error: the least factor is chosen.
TEST(GainQuantizer, HistoryHasAFloorAt6k4ThatTheGainHasNot) {
  SearchSignals signals(6);
  Subframe s(signals);
  for (double& e : s.history.energy) e = 30;
  s.g0 = gain_predict(s.history, s.code.data(), kSubframe);
  s.coeff[1] = -2 * 0.6 * s.coeff[0];
  s.coeff[3] = s.coeff[4] = 0;
  double gp, gc;
  s.quantize(kForms[1], 0, &gp, &gc);  // holds the history against the floor
  EXPECT_LT(gc, kGainFloor6k4 * s.g0);
}

}  // namespace
}  // namespace g729
