#include "codec/dtx/dtx.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

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
    const double deviation = frame < 20 ? 0 : std::exp(0.01 * static_cast<double>(frame % 700));
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

// Frames of first-order noise with pole p and prediction-error energy `energy`, given to the
// encoder as exact autocorrelations; returns how many descriptors it sends.
int steady_pause(Encoder* encoder, double pole, double energy, int frames) {
  double r[kCoeffs];
  for (int i = 0; i < kCoeffs; ++i) r[i] = energy / (1 - pole * pole) * std::pow(pole, i);
  int sids = 0;
  for (; frames > 0; --frames) {
    dtx_update(&encoder->state, r, 0);
    dtx_encode_frame(&encoder->state, encoder->exc(), encoder->previous_vad, encoder->word,
                     encoder->lsp_old, encoder->a, &encoder->seed, &encoder->history,
                     encoder->applied);
    encoder->previous_vad = 0;
    encoder->shift();
    sids += encoder->word[0];
  }
  return sids;
}

// Pole of the filter that was last sent, out of its coefficients' autocorrelation.
double sent_pole(const DtxState& state) {
  const double slope = -0.5 * state.ref_rcoeff[1] / state.ref_rcoeff[0];  // p / (1 + p^2)
  return (1 - std::sqrt(1 - 4 * slope * slope)) / (2 * slope);
}

// The filter with pole p leaves (1 + p^2 - 2 p q) / (1 - q^2) times the prediction error of noise
// with pole q.
double pole_at_distance(double p, double ratio) {
  return (p + std::sqrt(p * p - ratio * (1 + p * p - ratio))) / ratio;
}

TEST(Dtx, DescriptorsFollowTheSpectrum) {
  const struct {
    double distance;  // of the second noise from the first
    bool forced;      // a descriptor is due anyway
    int sids;
    bool sends_average;
  } cases[] = {{1.14, false, 0, true},
               {1.16, false, 1, false},
               {1.09, true, 1, true},
               {1.10, true, 1, false}};
  for (const auto& c : cases) {
    Encoder encoder;
    EXPECT_LE(steady_pause(&encoder, 0.6, 1e6, 40), 2);
    EXPECT_NEAR(sent_pole(encoder.state), 0.6, 1e-3);
    // Two frames of the new noise are one pair: the present is all new, the average still all old.
    const double pole = pole_at_distance(0.6, c.distance);
    EXPECT_EQ(steady_pause(&encoder, pole, 1e6, 1), 0);
    if (c.forced) encoder.state.flag_chang = 1;
    EXPECT_EQ(steady_pause(&encoder, pole, 1e6, 1), c.sids) << c.distance;
    EXPECT_NEAR(sent_pole(encoder.state), c.sends_average ? 0.6 : pole, 1e-3) << c.distance;
  }
}

TEST(Dtx, KeepsTheSumsOfTheLastThreePairsOfFrames) {
  Encoder encoder;
  std::vector<double> r0;
  for (int frame = 0; frame < 200; ++frame) {
    const int vad = static_cast<int>(encoder.random() % 2);
    double r[kCoeffs] = {1e4 + frame * frame, 100, 10};
    r0.push_back(r[0]);
    dtx_update(&encoder.state, r, vad);
    if (vad == 0) {
      dtx_encode_frame(&encoder.state, encoder.exc(), 1, encoder.word, encoder.lsp_old, encoder.a,
                       &encoder.seed, &encoder.history, encoder.applied);
    }
    if (frame % 2 == 0 || frame < 5) continue;
    for (int k = 0; k < kSumAcf; ++k) {
      const auto newest = r0.end() - 1 - 2 * k;
      EXPECT_EQ(encoder.state.acf_sum[k][0], newest[0] + newest[-1]);
    }
  }
}

}  // namespace
}  // namespace g729
