#include "codec/encoder/lsp_quantizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "codec/dsp/math.h"
#include "tests/codec/encoder/search_signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

using std::numbers::pi;

struct Direct {
  int index[2];
  double distortion[2];
};

void spread(double* buf, int first, int last, double gap) {
  for (int j = first; j < last; ++j) {
    const double d = 0.5 * (buf[j - 1] - buf[j] + gap);
    if (d <= 0) continue;
    buf[j - 1] -= d;
    buf[j] += d;
  }
}

// The search as clause 3.2.4 has it, one entry after the other.
Direct quantise_directly(const LspHistory& history, const double* lsf) {
  double w[kOrder];
  for (int j = 0; j < kOrder; ++j) {
    const double below = j == 0 ? 0.04 * pi : lsf[j - 1];
    const double above = j == kOrder - 1 ? 0.92 * pi : lsf[j + 1];
    const double t = above - below - 1.0;
    w[j] = (t > 0 ? 1.0 : 10 * t * t + 1) * (j == 4 || j == 5 ? 1.2 : 1.0);
  }
  Direct best = {};
  for (int m = 0; m < 2; ++m) {
    const LspPredictor& predictor = kSpeechPredictor[m];
    double target[kOrder], buf[kOrder];
    for (int j = 0; j < kOrder; ++j) {
      double past = 0, share = 0;
      for (int k = 0; k < kMaOrder; ++k) {
        past += predictor.coefficient[k][j] * history.row[k][j];
        share += predictor.coefficient[k][j];
      }
      target[j] = (lsf[j] - past) / (1 - share);
    }
    int first = 0;
    double least = 1e38;
    for (int i = 0; i < kFirstStage; ++i) {
      double error = 0;
      for (int j = 0; j < kOrder; ++j) error += std::pow(target[j] - kLspFirstStage[i][j], 2);
      if (error < least) {
        least = error;
        first = i;
      }
    }
    int second[2];
    for (int half = 0; half < 2; ++half) {
      const int from = half * kHalf, to = from + kHalf;
      least = 1e38;
      for (int i = 0; i < kSecondStage; ++i) {
        double error = 0;
        for (int j = from; j < to; ++j)
          error += w[j] * std::pow(target[j] - kLspFirstStage[first][j] - kLspSecondStage[i][j], 2);
        if (error < least) {
          least = error;
          second[half] = i;
        }
      }
      for (int j = from; j < to; ++j)
        buf[j] = kLspFirstStage[first][j] + kLspSecondStage[second[half]][j];
      spread(buf, half == 0 ? 1 : from, to, 0.0012);
    }
    spread(buf, 1, kOrder, 0.0006);
    for (int j = 0; j < kOrder; ++j)
      best.distortion[m] += std::pow((buf[j] - target[j]) * predictor.sum[j], 2) * w[j];
    if (m == 0 || best.distortion[1] < best.distortion[0]) {
      best.index[0] = m * 128 + first;
      best.index[1] = second[0] * 32 + second[1];
    }
  }
  return best;
}

// Ten LSFs within a band, in order.
void draw_lsf(test::SearchSignals& signals, double low, double width, double* lsf) {
  for (int j = 0; j < kOrder; ++j) lsf[j] = signals.uniform(low, low + width);
  std::sort(lsf, lsf + kOrder);
}

// Moves the LSFs as speech does from frame to frame, now and then with a jump to a narrow band.
void wander(test::SearchSignals& signals, double* lsf) {
  double target[kOrder];
  if (signals.integer(0, 9) == 0) {
    draw_lsf(signals, signals.uniform(0.1, 2.0), 0.5, lsf);
  } else {
    draw_lsf(signals, 0.1, 2.9, target);
    for (int j = 0; j < kOrder; ++j) lsf[j] += 0.15 * (target[j] - lsf[j]);
  }
}

TEST(LspQuantizer, PicksWhatTheDirectSearchPicks) {
  test::SearchSignals signals(5);
  double lsf[kOrder] = {};
  LspHistory history;
  lsp_history_reset(&history);
  int mode_frames[2] = {};
  for (int frame = 0; frame < 3000; ++frame) {
    wander(signals, lsf);
    double lsp_q[kOrder], residual[kOrder];
    int index[2];
    lsp_quantize(history, lsf, lsp_q, residual, index);
    const Direct direct = quantise_directly(history, lsf);
    ASSERT_EQ(index[0], direct.index[0]) << frame;
    ASSERT_EQ(index[1], direct.index[1]) << frame;
    ++mode_frames[index[0] >> 7];

    double decoded[kOrder], lsf_q[kOrder];
    lsp_reconstruct(index, history, decoded, lsf_q);
    for (int j = 0; j < kOrder; ++j) {
      ASSERT_EQ(residual[j], decoded[j]);
      ASSERT_EQ(lsp_q[j], cosine(lsf_q[j]));
    }
    lsp_history_push(residual, &history);
  }
  EXPECT_GT(mode_frames[0], 300);
  EXPECT_GT(mode_frames[1], 300);
}

// LSFs that a mode predicts from a codebook sum whose halves overlap, so that spreading moves them.
void draw_overlapping(test::SearchSignals& signals, const LspHistory& history, int mode,
                      double* lsf) {
  double buf[kOrder];
  do {
    const int first = signals.integer(0, 127),
              second[2] = {signals.integer(0, 31), signals.integer(0, 31)};
    for (int j = 0; j < kOrder; ++j)
      buf[j] = kLspFirstStage[first][j] + kLspSecondStage[second[j / kHalf]][j];
  } while (buf[4] < buf[5]);
  lsp_predict(kSpeechPredictor[mode], history, buf, lsf);
}

// On the way from one mode's vector to the other's, where the distortions of the modes are equal.
TEST(LspQuantizer, ChangesModeWhereTheDirectSearchDoes) {
  test::SearchSignals signals(6);
  LspHistory history;
  lsp_history_reset(&history);
  for (int trial = 0; trial < 300; ++trial) {
    double from[kOrder], to[kOrder], lsf[kOrder], lsp_q[kOrder], residual[kOrder];
    draw_overlapping(signals, history, 0, from);
    draw_overlapping(signals, history, 1, to);
    const auto at = [&](double t) {
      for (int j = 0; j < kOrder; ++j) lsf[j] = from[j] + t * (to[j] - from[j]);
      return quantise_directly(history, lsf);
    };
    const int mode = at(0.0).index[0] >> 7;
    double low = 0.0, high = 1.0;
    while (high - low > 1e-10) {
      const double middle = (low + high) / 2;
      (at(middle).index[0] >> 7 == mode ? low : high) = middle;
    }
    for (double t : {low, high}) {
      const Direct direct = at(t);
      int index[2];
      lsp_quantize(history, lsf, lsp_q, residual, index);
      ASSERT_EQ(index[0], direct.index[0]) << trial << " " << t;
      ASSERT_EQ(index[1], direct.index[1]) << trial << " " << t;
    }
    if (trial % 10 == 0) lsp_history_push(residual, &history);
  }
}

TEST(LspQuantizer, ExtremesAreMadeStableAndReported) {
  LspHistory low, high;
  for (int k = 0; k < kMaOrder; ++k) {
    for (int j = 0; j < kOrder; ++j) {
      low.row[k][j] = -1.0;
      high.row[k][j] = 4.0;
    }
  }
  double lsf[kOrder], lsp_q[kOrder], residual[kOrder];
  int index[2];
  arc_cosine(kInitialLsp, lsf, kOrder);
  testing::internal::CaptureStdout();
  lsp_quantize(low, lsf, lsp_q, residual, index);
  EXPECT_LE(lsp_q[0], cosine(kLsfLow));
  lsp_quantize(high, lsf, lsp_q, residual, index);
  EXPECT_EQ(lsp_q[kOrder - 1], cosine(kLsfHigh));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "warning LSP Low \nwarning LSP High \n");
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
