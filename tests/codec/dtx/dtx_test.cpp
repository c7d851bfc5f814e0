#include "codec/dtx/dtx.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "codec/dsp/random.h"

namespace g729 {
namespace {

// What both ends of a connection hold of the comfort noise.
struct End {
  End() { lsp_history_reset(&history); }
  double* exc() { return excitation + kExcitationPast; }
  void shift() { std::memmove(excitation, excitation + kFrame, kExcitationPast * sizeof(double)); }
  double excitation[kExcitationPast + kFrame] = {};
  double lsp_old[kOrder] = {0.9595,  0.8413,  0.6549,  0.4154,  0.1423,
                            -0.1423, -0.4154, -0.6549, -0.8413, -0.9595};
  double a[kSubframes * kCoeffs] = {};
  int16_t seed = kNoiseSeed;
  LspHistory history;
  NoiseSubframe applied[kSubframes];
};

// A first-order coloured noise in frames of 240 samples, and the encoder that sees them.
struct Encoder : End {
  void analyse(double deviation, double colour, int vad) {
    double x[kWindow], y = 0;
    for (double& s : x) s = y = colour * y + deviation * std::normal_distribution<>()(random);
    double r[kCoeffs] = {};
    for (int k = 0; k < kCoeffs; ++k)
      for (int n = k; n < kWindow; ++n) r[k] += x[n] * x[n - k];
    dtx_update(&state, r, vad);
  }
  // One inactive frame; returns its type.
  int pause(double deviation, double colour) {
    analyse(deviation, colour, 0);
    dtx_encode_frame(&state, exc(), previous_vad, word, lsp_old, a, &seed, &history, applied);
    previous_vad = 0;
    return word[0];
  }
  std::mt19937 random{3};
  DtxState state;
  int previous_vad = 1;
  int32_t word[5] = {};
};

struct Decoder : End {
  void pause(const int32_t* word) {
    const SidParameters sid = {word[1], word[2], word[3], word[4]};
    comfort_noise_decode(&state, previous_type, word[0] == kSid ? &sid : nullptr, frame_energy,
                         exc(), lsp_old, a, &seed, &history, applied);
    previous_type = word[0];
  }
  ComfortNoiseState state;
  int previous_type = kSpeech8k;
  double frame_energy = 0;
};

// A speech frame as the comfort noise sees it: new excitation, LSPs and predictor memory.
void speech(Encoder* encoder, Decoder* decoder, double deviation) {
  std::normal_distribution<> normal;
  double residual[kOrder];
  for (int j = 0; j < kOrder; ++j) residual[j] = (j + 1) * 0.28 + 0.05 * normal(encoder->random);
  for (int j = 0; j < kOrder; ++j) encoder->lsp_old[j] = std::cos(residual[j]);
  std::memcpy(decoder->lsp_old, encoder->lsp_old, sizeof encoder->lsp_old);
  lsp_history_push(residual, &encoder->history);
  lsp_history_push(residual, &decoder->history);
  for (int i = 0; i < kFrame; ++i)
    encoder->exc()[i] = decoder->exc()[i] = deviation * normal(encoder->random);
  encoder->seed = decoder->seed = kNoiseSeed;
  encoder->analyse(deviation, 0.9, 1);
  encoder->previous_vad = 1;
  decoder->previous_type = kSpeech8k;
}

template <typename T>
bool same(const T& x, const T& y) {
  return std::memcmp(&x, &y, sizeof x) == 0;
}

TEST(Dtx, DecoderHoldsExactlyWhatTheEncoderHolds) {
  Encoder encoder;
  Decoder decoder;
  int sids = 0;
  for (int frame = 0; frame < 5000; ++frame) {
    if (encoder.random() % 16 == 0) {
      for (int n = 1 + static_cast<int>(encoder.random() % 8); n > 0; --n) {
        speech(&encoder, &decoder, std::exp(static_cast<double>(encoder.random() % 8)));
        encoder.shift();
        decoder.shift();
      }
    }
    const double deviation = std::exp(0.01 * static_cast<double>(frame % 700));
    sids += encoder.pause(deviation, frame % 300 < 150 ? 0.9 : -0.3);
    decoder.pause(encoder.word);
    ASSERT_TRUE(same(encoder.excitation, decoder.excitation)) << "frame " << frame;
    ASSERT_TRUE(same(encoder.a, decoder.a)) << "frame " << frame;
    ASSERT_TRUE(same(encoder.lsp_old, decoder.lsp_old)) << "frame " << frame;
    ASSERT_TRUE(same(encoder.history, decoder.history)) << "frame " << frame;
    ASSERT_EQ(encoder.seed, decoder.seed);
    encoder.shift();
    decoder.shift();
  }
  EXPECT_GT(sids, 300);
}

TEST(Dtx, DescriptorsAreThreeFramesApartAndFollowChanges) {
  Encoder encoder;
  int since = 0;
  for (int frame = 0; frame < 2000; ++frame) {
    const bool first = frame % 100 == 0;
    if (first) {
      encoder.previous_vad = 1;
      encoder.analyse(5000, 0.9, 1);
    }
    // The level jumps by 20 dB in the middle of the pause.
    const int type = encoder.pause(frame % 100 < 50 ? 20 : 200, 0.5);
    if (first) {
      EXPECT_EQ(type, kSid);
    } else if (type == kSid) {
      EXPECT_GE(since, 3) << "frame " << frame;
    }
    since = type == kSid ? 1 : since + 1;
    if (frame % 100 == 55) {
      EXPECT_LT(since, 6) << "the jump was not sent";
    }
  }
}

TEST(Dtx, SteadyNoiseNeedsFewDescriptors) {
  Encoder encoder;
  double r[kCoeffs];
  for (int i = 0; i < kCoeffs; ++i) r[i] = 5e6 * std::pow(0.8, i);
  int sids = 0;
  for (int frame = 0; frame < 500; ++frame) {
    dtx_update(&encoder.state, r, 0);
    dtx_encode_frame(&encoder.state, encoder.exc(), frame == 0, encoder.word, encoder.lsp_old,
                     encoder.a, &encoder.seed, &encoder.history, encoder.applied);
    encoder.shift();
    sids += encoder.word[0];
  }
  EXPECT_GE(sids, 1);
  EXPECT_LE(sids, 4);
}

TEST(Dtx, ComfortNoiseKeepsTheLevelOfTheResidual) {
  for (double deviation : {10.0, 100.0, 1000.0}) {
    Encoder encoder;
    double energy = 0;
    constexpr int kFrames = 400;
    for (int frame = 0; frame < kFrames; ++frame) {
      encoder.pause(deviation, 0.8);
      for (int i = 0; i < kFrame; ++i) energy += encoder.exc()[i] * encoder.exc()[i];
      encoder.shift();
    }
    // The analysis here is not windowed: two frames of 240 samples at 1 / 2560, half a dB up from
    // the quarter of the energy that the gains undo.
    const double level = 10 * std::log10(energy / kFrames / kFrame);
    const double expected = 20 * std::log10(deviation) + 10 * std::log10(4 * 2 * 2 * 240.0 / 2560);
    EXPECT_LT(std::fabs(level - expected), 1.5) << deviation;
  }
}

TEST(Dtx, SilenceHasTheLowestGainAndAFlatReference) {
  Encoder encoder;
  const double r[kCoeffs] = {};
  dtx_update(&encoder.state, r, 0);
  dtx_encode_frame(&encoder.state, encoder.exc(), 1, encoder.word, encoder.lsp_old, encoder.a,
                   &encoder.seed, &encoder.history, encoder.applied);
  EXPECT_EQ(encoder.word[0], kSid);
  EXPECT_EQ(encoder.word[4], 0);
  EXPECT_EQ(encoder.state.ref_rcoeff[0], 1.0);
  for (int i = 1; i < kCoeffs; ++i) EXPECT_EQ(encoder.state.ref_rcoeff[i], 0.0);
}

}  // namespace
}  // namespace g729
