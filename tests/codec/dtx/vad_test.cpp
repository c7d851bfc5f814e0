#include "codec/dtx/vad.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "codec/dsp/lpc.h"
#include "codec/encoder/lp_analysis.h"

namespace g729 {
namespace {

// Decisions over a whole signal, analysed as the encoder analyses it.
std::vector<int> decide(const std::vector<double>& signal) {
  VadState state;
  LevinsonMemory memory;
  double lsp_old[kOrder], lsp[kOrder];
  std::copy_n(kInitialLsp, kOrder, lsp_old);
  std::vector<int> markers = {1, 1};
  std::vector<double> padded(kWindow - kFrame, 0.0);
  padded.insert(padded.end(), signal.begin(), signal.end());
  for (size_t start = 0; start + kWindow <= padded.size(); start += kFrame) {
    const double* speech = padded.data() + start;
    double r[kVadOrder + 1], a[kCoeffs], rc[kOrder], lsf[kOrder], energy_db;
    autocorrelation(speech, r);
    apply_lag_window(r);
    levinson_durbin(kOrder, r, a, rc, &memory);
    lpc_to_lsp(a, lsp, lsp_old);
    std::copy_n(lsp, kOrder, lsp_old);
    lsp_to_lsf(lsp, lsf, kOrder);
    const size_t n = markers.size();
    markers.push_back(vad_decide(&state, rc[1], lsf, r, speech, static_cast<int>(n) - 1,
                                 markers[n - 1], markers[n - 2], &energy_db));
  }
  markers.erase(markers.begin(), markers.begin() + 2);
  return markers;
}

double share_of_voice(const std::vector<int>& markers, size_t first, size_t last) {
  return static_cast<double>(std::count(markers.begin() + static_cast<std::ptrdiff_t>(first),
                                        markers.begin() + static_cast<std::ptrdiff_t>(last), 1)) /
         static_cast<double>(last - first);
}

std::vector<double> noise(int frames, double deviation) {
  std::mt19937 random(5);
  std::normal_distribution<> normal(0.0, deviation);
  std::vector<double> x(static_cast<size_t>(frames) * kFrame);
  for (double& s : x) s = normal(random);
  return x;
}

TEST(Vad, SilenceIsNoiseFromTheFirstFrame) {
  for (int marker : decide(std::vector<double>(400 * kFrame, 0.0))) EXPECT_EQ(marker, 0);
}

TEST(Vad, StationaryNoiseBecomesNoise) {
  for (double deviation : {40.0, 100.0, 1000.0}) {
    const std::vector<int> markers = decide(noise(1500, deviation));
    EXPECT_EQ(share_of_voice(markers, 0, 31), 1.0) << "loud frames of the first means are voice";
    EXPECT_LT(share_of_voice(markers, 200, 1500), 0.03) << deviation;
  }
}

// Half a second of a voice-like pulse train in every second, over noise.
TEST(Vad, FindsVoiceInNoise) {
  std::vector<double> x = noise(1500, 20);
  double y1 = 0, y2 = 0;
  for (size_t n = 0; n < x.size(); ++n) {
    const bool on = n / kFrame % 100 >= 50;
    const double pulse = on && n % 67 == 0 ? 4000.0 : 0.0;
    const double y = pulse + 1.6 * y1 - 0.8 * y2;
    y2 = y1;
    y1 = y;
    x[n] += y;
  }
  const std::vector<int> markers = decide(x);
  for (size_t start = 200; start + 100 <= 1500; start += 100) {
    EXPECT_LT(share_of_voice(markers, start + 15, start + 50), 0.1) << "pause at " << start;
    EXPECT_GT(share_of_voice(markers, start + 52, start + 100), 0.95) << "voice at " << start;
    // The frame that begins to see the voice does not wait, and the hangover outlasts it.
    EXPECT_EQ(markers[start + 51], 1);
    EXPECT_EQ(share_of_voice(markers, start + 100, start + 102), 1.0);
  }
}

// A detector fed with one energy and a fixed flat spectrum.
struct Bench {
  int step(double energy_db, int prev_marker, int pprev_marker) {
    double lsf[kOrder];
    for (int i = 0; i < kOrder; ++i) lsf[i] = 2 * M_PI * state.mean_lsf[i];
    const double r[kVadOrder + 1] = {kWindow * std::pow(10.0, energy_db / 10)};
    const double speech[kWindow] = {};
    double measured;
    const int marker =
        vad_decide(&state, 0.0, lsf, r, speech, frame_count, prev_marker, pprev_marker, &measured);
    EXPECT_NEAR(measured, energy_db, 1e-9);
    frame_count = frame_count == 32767 ? 256 : frame_count + 1;
    return marker;
  }
  VadState state;
  int frame_count = 1;
};

TEST(Vad, MinimumIsThatOfSixteenBlocksAndTheCurrentOne) {
  std::mt19937 random(9);
  Bench bench;
  std::vector<double> energies;
  for (int frame = 1; frame <= 33000; ++frame) {
    energies.push_back(30 + 30 * std::generate_canonical<double, 53>(random));
    bench.step(energies.back(), 0, 0);
    if (frame <= 128) continue;
    const int window = 16 * 8 + (frame - 1) % 8 + 1;
    ASSERT_NEAR(bench.state.min, *std::min_element(energies.end() - window, energies.end()), 1e-9)
        << "frame " << frame;
  }
}

TEST(Vad, HangoverGrantsFiveFramesThenDropsOne) {
  Bench bench;
  for (int frame = 1; frame < 40; ++frame) bench.step(50, 0, 0);
  bench.state.mean_se = bench.state.mean_e = 50;
  bench.state.mean_sle = 50;
  for (int frame = 0; frame < 60; ++frame) {
    // A level below the background, so that only the hangover can make it voice.
    bench.state.mean_se = 51;
    bench.state.mean_sle = 10 * std::log10(0.24017939691329) + 51;
    EXPECT_EQ(bench.step(50, 1, 1), frame % 6 == 5 ? 0 : 1) << frame;
  }
}

TEST(Vad, QuietFramesAreNoiseWhateverTheirSpectrum) {
  Bench bench;
  for (int frame = 1; frame < 300; ++frame) {
    bench.state.mean_lsf[3] += 0.1;
    EXPECT_EQ(bench.step(20.9, 0, 0), 0);
  }
}

}  // namespace
}  // namespace g729
