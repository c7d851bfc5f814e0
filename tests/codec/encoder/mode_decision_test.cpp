#include "codec/encoder/mode_decision.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "codec/dsp/backward_lp.h"
#include "codec/dsp/lpc.h"
#include "codec/encoder/lp_analysis.h"
#include "codec/encoder/music_detector.h"
#include "search_signals.h"

namespace g729 {
namespace {

using test::SearchSignals;

// Runs the decision over a signal as an ideal coder would: the past synthesis is the past signal,
// the forward filter is the unquantised one.
struct Decider {
  ModeState state;
  BackwardLpState backward_lp;
  LevinsonMemory levinson;
  double lsp_old[kOrder];
  std::vector<double> signal = std::vector<double>(kHybridWindow + kFrame + kLookAhead);
  int frames = 0, backward_frames = 0;

  Decider() {
    for (int i = 0; i < kOrder; ++i) lsp_old[i] = kInitialLsp[i];
  }

  LpMode next(const std::function<double(int)>& sample) {
    signal.erase(signal.begin(), signal.begin() + kFrame);
    for (int i = 0; i < kFrame; ++i) signal.push_back(sample(frames * kFrame + i));
    const double* speech = signal.data() + kHybridWindow;
    double r[kAutocorrelations + 1], rc[kOrder], lsp[kOrder], aq[2 * kCoeffs];
    autocorrelation(signal.data() + signal.size() - kWindow, kOrder, r);
    apply_lag_window(kOrder, r);
    levinson_durbin(kOrder, r, aq, rc, &levinson);
    lpc_to_lsp(aq, lsp, lsp_old);
    interpolate_quantized_lpc(lsp_old, lsp, aq);

    double backward[kBackwardCoeffs], chosen[kBackwardCoeffs];
    backward_lp_analysis(&backward_lp, signal.data(), backward);
    const ModeInput input = {speech, aq, backward, lsp, lsp_old};
    const LpMode mode = mode_decide(&state, input, chosen);
    if (mode == kForward) backward_smoothing_restart(&state.smoothing, aq + kCoeffs);
    for (int i = 0; i < kBackwardCoeffs && mode == kBackward; ++i)
      EXPECT_EQ(chosen[i], state.smoothing.prev_filter[i]);
    backward_dominance_update(&state.dominance, mode, speech);
    for (int i = 0; i < kOrder; ++i) lsp_old[i] = lsp[i];
    EXPECT_GE(state.stationarity, 0);
    EXPECT_LE(state.stationarity, kStationarityMax);
    ++frames;
    backward_frames += mode == kBackward;
    return mode;
  }
  void run(int count, const std::function<double(int)>& sample) {
    frames = backward_frames = 0;
    for (int i = 0; i < count; ++i) next(sample);
  }
};

double chord(int n) {
  double x = 0;
  for (const double f : {220.0, 277.2, 329.6, 440.0, 659.3, 880.0, 1318.5, 1760.0})
    x += 900 * std::cos(2 * std::numbers::pi * f * n / 8000 + f);
  return x;
}

TEST(ModeDecision, StationaryMusicGoesBackwardAndStays) {
  Decider d;
  d.run(120, chord);
  d.run(200, chord);
  EXPECT_GT(d.backward_frames, 180);
  EXPECT_EQ(d.state.dominance.bwd_dominant, 1);
  EXPECT_GT(d.state.stationarity, 30000);
}

TEST(ModeDecision, ChangingSpectraStayForward) {
  SearchSignals signals(10);
  Decider d;
  double past[2] = {}, a1 = 0, a2 = 0;
  d.run(300, [&](int n) {
    if (n % 240 == 0) {  // another resonance every 30 ms
      const double r = signals.uniform(0.8, 0.98), w = signals.uniform(0.2, 2.8);
      a1 = 2 * r * std::cos(w);
      a2 = -r * r;
    }
    const double x = signals.uniform(-500, 500) + a1 * past[0] + a2 * past[1];
    past[1] = past[0];
    past[0] = x;
    return x;
  });
  EXPECT_LT(d.backward_frames, 15);
}

TEST(ModeDecision, QuietFramesAreForwardAndCapTheStatistic) {
  Decider d;
  d.run(100, chord);
  ASSERT_GT(d.state.stationarity, 13000);
  d.run(3, [](int n) { return n % 2 ? 1.0 : -1.0; });
  EXPECT_EQ(d.next([](int n) { return n % 2 ? 1.0 : -1.0; }), kForward);
  EXPECT_LE(d.state.stationarity, 13000);
  EXPECT_EQ(d.state.backward_run, 0);
}

TEST(ModeDecision, OtherFramesLetTheStatisticFallToItsStart) {
  Decider d;
  d.run(300, chord);
  ASSERT_EQ(d.state.bwd_dominant, 1);
  int frames = 0;
  for (int before = kStationarityMax; d.state.stationarity > kStationarityStart; ++frames) {
    simple_mode_update(&d.state);
    EXPECT_LT(d.state.stationarity, before);
    before = d.state.stationarity;
  }
  EXPECT_EQ(frames, 9);
  EXPECT_EQ(d.state.stationarity, kStationarityStart);
  EXPECT_EQ(d.state.bwd_dominant, 0);
  EXPECT_EQ(d.state.smoothing.backward_interp, kBackwardInterpStart);
  d.state.stationarity = 5;
  simple_mode_update(&d.state);
  EXPECT_EQ(d.state.stationarity, 5);
}

// Frames as the detector sees them: background noise, and tones well above it.
struct MusicFrames {
  SearchSignals signals{11};
  MusicDetectorState state;

  int noise(Rate rate) {
    const double rc[4] = {signals.uniform(-0.4, -0.2), signals.uniform(-0.1, 0.1), 0.05, 0};
    int lag[5];
    double gain[5];
    for (int i = 0; i < 5; ++i) {
      lag[i] = signals.integer(20, 143);
      gain[i] = signals.uniform(0, 0.6);
    }
    int vad = 0;
    music_detect(&state, rate, rc, lag, gain, kForward, 0, signals.uniform(28, 32), &vad);
    return vad;
  }
  int tones(Rate rate, int vad = 0) {
    const double rc[4] = {-0.95, 0.8, 0.1, 0};
    const int lag[5] = {61, 61, 62, 61, 61};
    const double gain[5] = {0.9, 1, 0.8, 0.95, 0.9};
    music_detect(&state, rate, rc, lag, gain, kForward, 0, 50, &vad);
    return vad;
  }
};

TEST(MusicDetector, TurnsSteadyTonesIntoVoiceOnlyAt11k8) {
  for (const Rate rate : {kRate6k4, kRate8k, kRate11k8}) {
    MusicFrames frames;
    int noise = 0, tones = 0;
    for (int i = 0; i < 500; ++i) noise += frames.noise(rate);
    for (int i = 0; i < 100; ++i) tones += frames.tones(rate);
    EXPECT_EQ(noise, 0);
    if (rate == kRate11k8) {
      EXPECT_GT(tones, 80);
    } else {
      EXPECT_EQ(tones, 0);
    }
    EXPECT_EQ(frames.tones(rate, 1), 1);  // voice is never taken back
  }
}

TEST(MusicDetector, MemoriesMoveAlikeAtEveryRate) {
  MusicFrames low, high;
  for (int i = 0; i < 200; ++i) {
    low.noise(kRate8k);
    high.noise(kRate11k8);
  }
  for (int i = 0; i < 20; ++i) low.tones(kRate8k);
  for (int i = 0; i < 20; ++i) high.tones(kRate11k8);
  EXPECT_EQ(low.tones(kRate11k8), 1);
  EXPECT_EQ(low.state.mean_energy, high.state.mean_energy);
}

}  // namespace
}  // namespace g729
