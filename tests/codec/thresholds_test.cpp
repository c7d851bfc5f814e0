// Decisions that hang on a threshold, at both sides of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "codec/decoder/decoder_state.h"
#include "codec/dsp/backward_mode.h"
#include "codec/dtx/vad.h"
#include "codec/encoder/mode_decision.h"
#include "codec/encoder/music_detector.h"
#include "codec/encoder/weighting.h"
#include "codec/frame_coder.h"
#include "tests/codec/random_signals.h"
#include "tests/support/signals.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Clause 3.3 with its logarithms; the area ratios lie near the thresholds, of one of the subframes.
TEST(Weighting, JudgesByLogAreaRatios) {
  test::Random random;
  double lsf[kSubframes * kOrder];
  for (int j = 0; j < kSubframes * kOrder; ++j) lsf[j] = 0.28 * (j % kOrder + 1);
  for (int trial = 0; trial < 2000; ++trial) {
    WeightingState state;
    bool flat = true;
    double old[2] = {0, 0};
    for (int frame = 0; frame < 4; ++frame) {
      const bool mean = random.integer(0, 1) == 0;
      double o[2], rc[kOrder] = {};
      for (int i = 0; i < 2; ++i) {
        const double threshold =
            i == 0 ? (random.integer(0, 1) ? -1.74 : -1.52) : (random.integer(0, 1) ? 0.65 : 0.43);
        const double wanted = threshold + random.uniform(-0.002, 0.002);
        o[i] = mean ? 2 * wanted - old[i] : wanted;
        rc[i] = std::tanh(0.5 * std::log(10.0) * o[i]);
      }
      const WeightingFactors factors = perceptual_weighting_factors(lsf, rc, &state);
      for (int k = 0; k < kSubframes; ++k) {
        const double o0 = k == 0 ? (old[0] + o[0]) / 2 : o[0];
        const double o1 = k == 0 ? (old[1] + o[1]) / 2 : o[1];
        flat = flat ? !(o0 < -1.74 && o1 > 0.65) : o0 > -1.52 || o1 < 0.43;
        ASSERT_EQ(factors.gamma1[k], flat ? 0.94 : 0.98) << trial << " " << o0 << " " << o1;
      }
      for (int i = 0; i < 2; ++i) old[i] = o[i];
    }
  }
}

// Of frames that are music (M) and not (.), what becomes voice.
TEST(Music, EvidenceRisesSlowlyAndFallsFast) {
  const std::string frames = "MMMMMMMM......" + std::string(60, 'M') + ".M.........";
  const std::string wanted =
      "       V      " + std::string(7, ' ') + std::string(53, 'V') + "VVVVVVVVV  ";
  MusicDetectorState state;
  const double rc[kOrder] = {}, gains[kMusicHistory] = {};
  const int lags[kMusicHistory] = {20, 40, 60, 80, 100};
  std::string found;
  for (const char frame : frames) {
    const LpMode mode = frame == 'M' ? kBackward : kForward;
    found +=
        music_detect(&state, {kRate11k8, rc, lags, gains, mode, false, 50.0, false}) ? 'V' : ' ';
  }
  EXPECT_EQ(found, wanted);
}

TEST(SynthesisEnergy, KeepsFiveLeadingBits) {
  test::Random random;
  for (int trial = 0; trial < 2000; ++trial) {
    const auto energy = static_cast<uint32_t>(std::exp2(random.uniform(4.1, 30.9)));
    if (std::has_single_bit(energy)) continue;
    const double x[] = {std::sqrt(energy)};
    const int cleared = std::bit_width(energy) - 5;
    ASSERT_NEAR(synthesis_energy_db(x, 1), 10 * std::log10(energy >> cleared << cleared), 1e-6);
  }
}

// Frames around the detector's background, so that each of its lines decides some: decisions and
// means are those recorded.
TEST(Vad, DecidesAsEver) {
  test::Random random;
  VadState state;
  bool past = true, before = true;
  int voice = 0, changes = 0;
  double means = 0;
  for (int frame = 0; frame < 100000; ++frame) {
    if (frame % 1000 == 0) state = {};
    double lsf[kOrder], r[kVadOrder + 1], speech[kWindow] = {};
    const bool start = state.mean_se == 0;
    const double far = frame / 50 % 4 == 0 && frame % 20 ? 0.2 : 1;  // quiet for a while, then not
    const double level =
        start ? 50 : state.mean_se + far * random.uniform(frame % 300 ? -6 : -16, 8);
    const double shape = 0.5 + far * 0.5 * std::pow(random.uniform(-1, 1), 3);
    const double crossings = state.mean_szc + far * std::pow(random.uniform(-0.7, 0.7), 3);
    const double away = far * (random.uniform(0, 0.11) + (random.integer(0, 9) == 0 ? 0.12 : 0));
    r[0] = kWindow * std::pow(10, std::clamp(level, 20.0, 80.0) / 10);
    for (int i = 1; i <= kVadOrder; ++i) r[i] = r[i - 1] * shape;
    for (int j = 0; j < kOrder; ++j)
      lsf[j] = start ? 0.28 * (j + 1) : 2 * M_PI * state.mean_lsf[j] + random.uniform(-away, away);
    speech[120] = 1;
    for (int n = 121; n <= 200; ++n)
      speech[n] = random.uniform(0, 1) < crossings ? -speech[n - 1] : speech[n - 1];
    const VadDecision decision = vad_decide(
        &state, {random.uniform(0.3, 0.9), lsf, r, speech, frame % 1000 + 1, past, before});
    voice += decision.voice;
    changes += decision.voice != past;
    before = std::exchange(past, decision.voice);
    means += state.mean_se + state.mean_sle + state.mean_szc + state.mean_lsf[4];
  }
  EXPECT_EQ(voice, 43213);
  EXPECT_EQ(changes, 34279);
  EXPECT_NEAR(means / 100000, 59.631920629, 1e-8);
}

// Both filters fit, or the backward one predicts nothing.
TEST(ModeDecision, BeginsGoesOnAndHoldsFromItsStationarity) {
  const struct {
    int run, stationarity;
    bool fits;
    LpMode mode;
  } cases[] = {{0, 23999, true, kForward},  {0, 24000, true, kBackward},
               {1, 12999, true, kForward},  {1, 13000, true, kBackward},
               {1, 31999, false, kForward}, {1, 32000, false, kBackward},
               {0, 32000, false, kForward}};
  test::Random random;
  double speech[kBackwardOrder + kFrame] = {};
  for (int n = 1; n < kBackwardOrder + kFrame; ++n)
    speech[n] = 0.95 * speech[n - 1] + random.uniform(-1000, 1000);
  const double aq[kSubframes * kCoeffs] = {1, -0.95, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, -0.95};
  const double lsp[kOrder] = {};
  for (const auto& c : cases) {
    const double backward[kBackwardCoeffs] = {1, c.fits ? -0.95 : 0.0};
    ModeState state;
    backward_smoothing_restart(&state.smoothing, backward);
    state.backward_run = c.run;
    state.stationarity = c.stationarity;
    double used[kBackwardCoeffs];
    EXPECT_EQ(mode_decide(&state, {speech + kBackwardOrder, aq, backward, lsp, lsp}, used), c.mode)
        << c.run << " " << c.stationarity;
  }
}

// A frame that goes beyond 20 dB above full scale is silence from its first sample on.
TEST(Render, DropsWhatRunsAway) {
  const signals::Samples speech = signals::loud_speech(20, 3);
  for (const Rate rate : {kRate6k4, kRate8k, kRate11k8}) {
    EncoderCoreState encoder;
    encoder_core_init(&encoder, false);
    SerialFrame frame;
    for (size_t n = 0; n < speech.size(); n += kFrame)
      encode_serial_frame(&encoder, speech.data() + n, rate, &frame);
    for (const bool runs_away : {false, true}) {
      DecoderCoreState decoder;
      decoder_core_init(&decoder);
      std::ranges::fill(decoder.old_exc, runs_away ? 1e8 : 100.0);
      SerialFrame again = frame;
      int16_t samples[kFrame];
      decode_serial_frame(&decoder, &again, samples);
      EXPECT_EQ(std::ranges::count(samples, 0) == kFrame, runs_away) << "rate " << rate;
    }
  }
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
