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
    autocorrelation(speech, kAutocorrelations, r);
    apply_lag_window(kAutocorrelations, r);
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

double share_of_voice(const std::vector<int>& markers, int first, int last) {
  return 1.0 * std::count(markers.begin() + first, markers.begin() + last, 1) / (last - first);
}

// White noise alone, then half a second of a voice-like pulse train in every second of it, and at
// the end silence.
TEST(Vad, FindsVoiceInNoise) {
  constexpr int kPause = 300, kSilence = 1200, kFrames = 1300;
  std::mt19937 random(5);
  std::normal_distribution<> normal(0.0, 40.0);
  std::vector<double> x(kFrames * kFrame);
  double y1 = 0, y2 = 0;
  for (int n = 0; n < kSilence * kFrame; ++n) {
    const int frame = n / kFrame;
    const bool on = frame >= kPause && frame % 100 >= 50;
    const double y = (on && n % 67 == 0 ? 4000.0 : 0.0) + 1.6 * y1 - 0.8 * y2;
    y2 = y1;
    y1 = y;
    x[static_cast<size_t>(n)] = normal(random) + y;
  }
  const std::vector<int> markers = decide(x);
  EXPECT_LT(share_of_voice(markers, 150, kPause + 50), 0.05);
  for (int start = kPause; start + 100 < kSilence; start += 100) {
    EXPECT_LT(share_of_voice(markers, start + 15, start + 50), 0.1) << "pause at " << start;
    // No frame of the voice is lost, and the hangover outlasts it.
    EXPECT_EQ(share_of_voice(markers, start + 51, start + 102), 1.0) << "voice at " << start;
  }
  EXPECT_EQ(share_of_voice(markers, kSilence + 10, kFrames), 0.0);
}

// One frame's input made from the features that the detector takes out of it.
struct Frame {
  double r[kVadOrder + 1] = {};
  double lsf[kOrder];  // frequency / (2 pi)
  double speech[kWindow] = {};
  double energy, low, zc, rc;
};

Frame make_frame(double energy, double low_share, const double* lsf, int crossings, double rc) {
  Frame f;
  f.energy = energy;
  f.rc = rc;
  f.zc = crossings / 80.0;
  f.r[0] = kWindow * std::pow(10.0, energy / 10);
  f.r[1] = low_share * f.r[0];
  f.low = energy + 10 * std::log10(0.24017939691329 + 2 * 0.21398822343783 * low_share);
  std::copy_n(lsf, kOrder, f.lsf);
  // The crossings lie at one end of the 80 places; the places just outside cross as well.
  const int first = crossings % 2 != 0 ? 121 : 201 - crossings;
  for (int n = 119, sign = 1; n <= 201; ++n) {
    if (n == 120 || n == 201 || (n >= first && n < first + crossings)) sign = -sign;
    f.speech[n] = sign;
  }
  return f;
}

int run(VadState* state, const Frame& f, int frame_count, int prev, int pprev) {
  double lsf[kOrder], energy_db;
  for (int i = 0; i < kOrder; ++i) lsf[i] = 2 * M_PI * f.lsf[i];
  const int marker =
      vad_decide(state, f.rc, lsf, f.r, f.speech, frame_count, prev, pprev, &energy_db);
  EXPECT_NEAR(energy_db, f.energy, 1e-9);
  return marker;
}

// The detector by definition: means and minima taken anew from all frames seen, the decision a list
// of planes over (spectral distortion, zero crossings, full band, low band, 1).
struct Oracle {
  int step(const Frame& f, int prev, int pprev) {
    frames.push_back(f);
    const int count = static_cast<int>(frames.size());
    if (f.energy >= 21) loud.push_back(f);
    const double last_energy = count > 1 ? frames[frames.size() - 2].energy : 0;
    if (count <= 32) start(f);
    if (count < 32) return f.energy >= 21 ? 1 : 0;
    int marker = f.energy >= 21 && beyond_a_plane(f) ? 1 : 0;
    bool forced = false;
    if (prev && !marker && f.energy > std::max(mean.energy + 2, 21.0)) marker = forced = true;
    if (!permitted) {
      permitted = true;
    } else if (pprev && prev && !marker && std::fabs(last_energy - f.energy) <= 3) {
      marker = forced = true;
      if (++extensions == 5) {
        extensions = 0;
        permitted = false;
      }
    }
    if (marker && silent > 10 && f.energy <= last_energy + 3) {
      marker = 0;
      silent = 0;
    } else {
      silent = marker ? 0 : silent + 1;
    }
    if (count > 128 && !forced && f.rc < 0.6 && f.energy < mean.energy + 3) marker = 0;
    learn(f, count);
    return marker;
  }

  void start(const Frame&) {
    if (loud.empty()) return;
    mean = {};
    for (const Frame& l : loud) {
      const double share = 1.0 / static_cast<double>(loud.size());
      mean.energy += share * l.energy;
      mean.zc += share * l.zc;
      for (int i = 0; i < kOrder; ++i) mean.lsf[i] += share * l.lsf[i];
    }
    mean.low = mean.energy - 12;
    mean.energy -= 10;
  }

  double distortion(const Frame& f) const {
    double sum = 0;
    for (int i = 0; i < kOrder; ++i) sum += std::pow(f.lsf[i] - mean.lsf[i], 2);
    return sum;
  }

  bool beyond_a_plane(const Frame& f) {
    static const double kPlanes[14][5] = {{1, -0.00175, 0, 0, -0.00085},
                                          {1, 0.004545455, 0, 0, -0.001159091},
                                          {0, -25, -1, 0, -5},
                                          {0, 20, -1, 0, -6},
                                          {0, 0, -1, 0, -4.7},
                                          {8800, 0, -1, 0, -12.2},
                                          {1, 0, 0, 0, -0.0009},
                                          {0, 25, -1, 0, -7},
                                          {0, -29.09091, -1, 0, -4.8182},
                                          {0, 0, -1, 0, -5.3},
                                          {14000, 0, 0, -1, -15.5},
                                          {0, 0, -0.928571, 1, -1.14285},
                                          {0, 0, -1.5, -1, -9},
                                          {0, 0, 0.714285, -1, -2.1428571}};
    const double x[5] = {distortion(f), mean.zc - f.zc, mean.energy - f.energy, mean.low - f.low,
                         1};
    int only = -1, count = 0;
    for (int k = 0; k < 14; ++k) {
      double sum = 0;
      for (int i = 0; i < 5; ++i) sum += kPlanes[k][i] * x[i];
      if (sum > 0) {
        only = k;
        ++count;
      }
    }
    if (count == 1) ++decided_by[only];
    return count > 0;
  }

  // Least energy of the current block of eight frames and the sixteen before it; before there are
  // so many, of the current block alone, and nothing once that is full.
  double least(int count) const {
    double least = 1e38;
    if (count <= 128 && count % 8 == 0) return least;
    const int block = (count - 1) / 8 * 8;
    for (int n = count <= 128 ? block : block - 128; n < count; ++n)
      least = std::min(least, frames[static_cast<size_t>(n)].energy);
    return least;
  }

  void learn(const Frame& f, int count) {
    const double sd = distortion(f);
    if (f.energy < mean.energy + 3 && f.rc < 0.75 && sd < 0.002532959) {
      ++updates;
      const int row = updates < 20 ? 0 : updates >= 60 ? 5 : updates / 10 - 1;
      static const double kShare[6][3] = {{0.75, 0.8, 0.6},    {0.95, 0.92, 0.65},
                                          {0.97, 0.94, 0.7},   {0.99, 0.96, 0.75},
                                          {0.995, 0.99, 0.75}, {0.995, 0.998, 0.75}};
      mean.energy += (1 - kShare[row][0]) * (f.energy - mean.energy);
      mean.low += (1 - kShare[row][0]) * (f.low - mean.low);
      mean.zc += (1 - kShare[row][1]) * (f.zc - mean.zc);
      for (int i = 0; i < kOrder; ++i)
        mean.lsf[i] += (1 - kShare[row][2]) * (f.lsf[i] - mean.lsf[i]);
    }
    const double floor = least(count);
    if ((count > 128 && mean.energy < floor && sd < 0.002532959) || mean.energy > floor + 10) {
      mean.energy = floor;
      updates = 0;
      ++resets;
      if (count <= 128) ++early_resets;
    }
  }

  std::vector<Frame> frames, loud;
  Frame mean = {};
  bool permitted = true;
  int extensions = 0, silent = 0, updates = 0, resets = 0, early_resets = 0;
  int decided_by[14] = {};
};

TEST(Vad, EqualsTheDefinitionOnRandomFeatures) {
  std::mt19937 random(11);
  std::normal_distribution<> normal;
  int decided_by[14] = {}, resets = 0, early_resets = 0, voice = 0;
  for (int trial = 0; trial < 20; ++trial) {
    Oracle oracle;
    VadState state;
    int prev = 1, pprev = 1;
    double level = 35, spread = 0.004, low = 0.5;
    for (int frame = 1; frame <= 1000; ++frame) {
      if (random() % 25 == 0) {
        level = 35 + (random() % 4 == 0 ? 15 : 3) * normal(random);
        spread = 0.003 + 0.009 * std::generate_canonical<double, 53>(random);
        low = 0.2 + 0.7 * std::generate_canonical<double, 53>(random);
      }
      double lsf[kOrder];
      for (int i = 0; i < kOrder; ++i) lsf[i] = 0.045 * (i + 1) + spread * normal(random);
      // Drawn one by one: the order of arguments is the compiler's.
      const double energy = level + 1.5 * normal(random);
      const int crossings = std::clamp(static_cast<int>(25 + 8 * normal(random)), 0, 80);
      const double rc = 0.2 + 0.3 * static_cast<double>(random() % 3);
      const Frame f = make_frame(energy, low, lsf, crossings, rc);
      const int marker = run(&state, f, frame, prev, pprev);
      ASSERT_EQ(marker, oracle.step(f, prev, pprev)) << "trial " << trial << " frame " << frame;
      if (frame >= 32) {
        ASSERT_NEAR(state.mean_se, oracle.mean.energy, 1e-6) << "frame " << frame;
      }
      pprev = prev;
      prev = marker;
      voice += marker;
    }
    for (int k = 0; k < 14; ++k) decided_by[k] += oracle.decided_by[k];
    resets += oracle.resets;
    early_resets += oracle.early_resets;
  }
  // The features have to reach what they are to test: the planes that the others do not
  // cover, all but a sliver.
  for (int k : {1, 2, 4, 7, 9, 12, 13, 14}) EXPECT_GT(decided_by[k - 1], 0) << "plane " << k;
  EXPECT_GT(resets, 10);
  EXPECT_GT(early_resets, 0);
  EXPECT_GT(voice, 4000);
  EXPECT_LT(voice, 16000);
}

}  // namespace
}  // namespace g729
