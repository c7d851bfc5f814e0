#include "codec/encoder/lsp_quantizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "codec/dsp/math.h"
#include "tests/codec/encoder/search_signals.h"

namespace g729::inline KELG729F_TARGET {
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
Direct quantise_directly(const LspHistory& history, const double* lsp) {
  double lsf[kOrder], w[kOrder];
  for (int j = 0; j < kOrder; ++j) lsf[j] = arc_cosine(lsp[j]);
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

// LSFs that wander from frame to frame, now and then jumping, as LSPs.
class Wander {
 public:
  explicit Wander(unsigned seed) : signals_(seed) {}
  std::vector<double> next() {
    const double stay = signals_.integer(0, 9) == 0 ? 0.0 : 0.85;
    std::vector<double> target(kOrder), lsp(kOrder);
    for (double& v : target) v = signals_.uniform(0.1, 3.0);
    std::sort(target.begin(), target.end());
    for (int j = 0; j < kOrder; ++j) {
      lsf_[j] = stay * lsf_[j] + (1 - stay) * target[j];
      lsp[j] = std::cos(lsf_[j]);
    }
    return lsp;
  }

 private:
  test::SearchSignals signals_;
  std::vector<double> lsf_ = std::vector<double>(kOrder);
};

TEST(LspQuantizer, PicksWhatTheDirectSearchPicks) {
  Wander wander(5);
  LspHistory history;
  lsp_history_reset(&history);
  int mode_frames[2] = {};
  for (int frame = 0; frame < 3000; ++frame) {
    const auto lsp = wander.next();
    double lsp_q[kOrder], residual[kOrder];
    int index[2];
    const LspHistory before = history;
    lsp_quantize(history, lsp.data(), lsp_q, residual, index);
    const Direct direct = quantise_directly(before, lsp.data());
    ASSERT_EQ(index[0], direct.index[0]) << frame;
    ASSERT_EQ(index[1], direct.index[1]) << frame;
    ++mode_frames[index[0] >> 7];

    double decoded[kOrder], lsf[kOrder];
    lsp_reconstruct(index, before, decoded, lsf);
    for (int j = 0; j < kOrder; ++j) {
      ASSERT_EQ(residual[j], decoded[j]);
      ASSERT_EQ(lsp_q[j], cosine(lsf[j]));
    }
    lsp_history_push(residual, &history);
  }
  EXPECT_GT(mode_frames[0], 300);
  EXPECT_GT(mode_frames[1], 300);
}

// A vector that the codebooks hold comes back as it is, so every entry can be reached in its place.
TEST(LspQuantizer, FindsEveryEntryAtItsOwnPlace) {
  LspHistory history;
  lsp_history_reset(&history);
  int exact = 0;
  for (int i = 0; i < kFirstStage; ++i) {
    const int sent[2] = {i | (i & 1) << 7, (i * 7 % 32) * 32 + i * 11 % 32};
    double buf[kOrder], lsf[kOrder], lsp[kOrder], lsp_q[kOrder], residual[kOrder];
    int index[2];
    lsp_reconstruct(sent, history, buf, lsf);
    cosine(lsf, lsp, kOrder);
    lsp_quantize(history, lsp, lsp_q, residual, index);
    exact += index[0] == sent[0] && index[1] == sent[1];
  }
  // The rest: another first-stage row is nearer to the sum of both stages.
  EXPECT_GT(exact, 90);
}

TEST(LspQuantizer, ExtremesAreMadeStableAndReported) {
  LspHistory low, high;
  for (int k = 0; k < kMaOrder; ++k) {
    for (int j = 0; j < kOrder; ++j) {
      low.row[k][j] = -1.0;
      high.row[k][j] = 4.0;
    }
  }
  double lsp_q[kOrder], residual[kOrder];
  int index[2];
  testing::internal::CaptureStdout();
  lsp_quantize(low, kInitialLsp, lsp_q, residual, index);
  EXPECT_LE(lsp_q[0], cosine(kLsfLow));
  lsp_quantize(high, kInitialLsp, lsp_q, residual, index);
  EXPECT_EQ(lsp_q[kOrder - 1], cosine(kLsfHigh));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "warning LSP Low \nwarning LSP High \n");
}

}  // namespace
}  // namespace g729::inline KELG729F_TARGET
