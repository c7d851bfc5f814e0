#include "codec/decoder/driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "codec/bitstream.h"

namespace g729::inline KELG729F_TARGET {
namespace {

struct Decoder {
  DecoderCoreState state;
  double synthesis[kSynthesisBuffer] = {};
  DecodedFrame decoded;

  Decoder() { decoder_core_init(&state); }

  // Fields are those of the type; 0 where not given.
  const DecodedFrame& decode(bool erased, int type, std::initializer_list<int> fields = {}) {
    int32_t parameters[kDecoderWords] = {erased, type};
    std::copy(fields.begin(), fields.end(), parameters + kFields);
    decode_frame_core(&state, parameters, 0, synthesis, &decoded);
    return decoded;
  }

  const DecodedFrame& speech_8k(int pitch, int wrong_parity = 0, int second_pitch = 16) {
    return decode(false, kSpeech8k,
                  {0x45, 0x123, pitch, wrong_parity, 0x0ABC, 5, 60, second_pitch, 0x1357, 9, 61});
  }

  const DecodedFrame& backward() {
    return decode(false, kSpeech11k8,
                  {kBackward, 100, 0, 0x0123, 0x155, 0x22, 0x47, 0x13, 60, 16, 0x0456, 0x0AA, 0x31,
                   0x12, 0x55, 61});
  }

  const DecodedFrame& forward_11k8() {
    return decode(false, kSpeech11k8,
                  {kForward, 0x45, 0x123, 100, 0, 1, 2, 3, 4, 5, 60, 16, 6, 7, 8, 9, 10, 61});
  }

  double energy() const {
    double e = 0;
    for (int i = kSynthesisPast; i < kSynthesisBuffer; ++i) e += synthesis[i] * synthesis[i];
    return e;
  }
};

TEST(DecoderDriver, LagOfErasedFramesClimbsToItsLimit) {
  Decoder d;
  d.speech_8k(230);  // a whole lag of 118
  int lag = d.decoded.pitch_delay[1];
  for (int frame = 0; frame < 20; ++frame) {
    d.decode(true, kSpeech8k);
    EXPECT_EQ(d.decoded.pitch_delay[0], lag);
    lag = std::min(lag + 1, kPitchMax);
    EXPECT_EQ(d.decoded.pitch_delay[1], lag);
    lag = std::min(lag + 1, kPitchMax);
  }
  EXPECT_EQ(d.state.old_t0, kPitchMax);
}

TEST(DecoderDriver, LagOfErased11k8FramesStays) {
  Decoder d;
  d.forward_11k8();
  const int lag = d.state.old_t0, frac = d.state.old_t0_frac;
  for (int frame = 0; frame < 3; ++frame) d.decode(true, kSpeech11k8);
  EXPECT_EQ(d.state.old_t0, lag);
  EXPECT_EQ(d.state.old_t0_frac, frac);
}

TEST(DecoderDriver, WrongParityConcealsTheFirstLagOnly) {
  Decoder d, good;
  d.speech_8k(100);
  const int last = d.state.old_t0;
  testing::internal::CaptureStdout();
  d.speech_8k(230, 1, 16);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), " ! Wrong Pitch 1st subfr. !   ");
  EXPECT_EQ(d.decoded.pitch_delay[0], last);
  EXPECT_NEAR(d.decoded.pitch_delay[1], last, 5);  // relative to the concealed lag
  EXPECT_EQ(good.speech_8k(230).pitch_delay[0], 118);
}

TEST(DecoderDriver, ErasedFramesFadeAtEveryRate) {
  const auto fades = [](Decoder& d, int type, double within) {
    const double start = d.energy();
    EXPECT_GT(start, 0.0);
    testing::internal::CaptureStdout();
    for (int frame = 0; frame < 100; ++frame) {
      EXPECT_EQ(d.decode(true, kNoTransmission).type, type);
      EXPECT_LT(d.energy(), 100 * start);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_LT(d.energy(), within * start) << "type " << type;
  };
  Decoder d8k, d6k4, forward, back;
  for (int frame = 0; frame < 10; ++frame) {
    d8k.speech_8k(100);
    d6k4.decode(false, kSpeech6k4, {0x45, 0x123, 100, 0x0BC, 2, 44, 8, 0x157, 1, 45});
    forward.forward_11k8();
    back.backward();
  }
  fades(d8k, kSpeech8k, 0.1);
  fades(d6k4, kSpeech6k4, 0.1);
  fades(forward, kSpeech11k8, 1e-6);
  fades(back, kSpeech11k8, 0.5);
  EXPECT_EQ(back.decoded.order, kBackwardOrder);
}

TEST(DecoderDriver, ErasureAfterADescriptorIsANoisePause) {
  Decoder d;
  d.speech_8k(100);
  EXPECT_EQ(d.decode(false, kSid, {0, 5, 3, 18}).type, kSid);
  EXPECT_EQ(d.decode(true, kSpeech8k).type, kNoTransmission);
  EXPECT_EQ(d.decode(true, kSpeech8k).type, kNoTransmission);
  EXPECT_GT(d.energy(), 0.0);
  EXPECT_EQ(d.state.gains.gain_pitch, Decoder(d).state.gains.gain_pitch);
}

// Comfort noise starts from the same seed after every talk spurt.
TEST(DecoderDriver, SpeechResetsTheNoise) {
  Decoder d;
  double first[kFrame];
  for (int spurt = 0; spurt < 2; ++spurt) {
    d.speech_8k(100);
    EXPECT_EQ(d.state.noise_seed, kNoiseSeed);
    d.decode(false, kSid, {0, 5, 3, 18});
    d.decode(false, kNoTransmission);
    EXPECT_NE(d.state.noise_seed, kNoiseSeed);
    EXPECT_EQ(d.state.sharp, kSharpMin);
    if (spurt == 0) std::copy_n(d.synthesis + kSynthesisPast, kFrame, first);
  }
  EXPECT_GT(d.energy(), 0.0);
}

// The first backward frame after forward ones still runs the last forward filter; by the eleventh
// the backward filter has taken over.
TEST(DecoderDriver, BackwardFilterTakesOverStepByStep) {
  Decoder d;
  for (int frame = 0; frame < 5; ++frame) d.forward_11k8();
  double forward[kCoeffs];
  std::copy_n(d.decoded.filter(1), kCoeffs, forward);
  EXPECT_EQ(d.decoded.order, kOrder);
  d.backward();
  EXPECT_EQ(d.decoded.order, kBackwardOrder);
  for (int i = 0; i < kBackwardCoeffs; ++i)
    EXPECT_NEAR(d.decoded.filter(0)[i], i < kCoeffs ? forward[i] : 0.0, 1e-15);
  EXPECT_TRUE(
      std::equal(d.decoded.filter(0), d.decoded.filter(0) + kBackwardCoeffs, d.decoded.filter(1)));
  for (int frame = 1; frame < 11; ++frame) d.backward();
  EXPECT_NEAR(d.state.smoothing.backward_interp, 0.0, 1e-12);
  EXPECT_NE(d.decoded.filter(0)[kBackwardOrder], 0.0);
}

// Erased backward frames freeze their filter; the next good ones leave it in steps.
TEST(DecoderDriver, ErasureFreezesTheBackwardFilter) {
  Decoder d;
  for (int frame = 0; frame < 20; ++frame) d.backward();
  d.decode(true, kSpeech11k8);
  EXPECT_EQ(d.state.transition_gamma, 1.0);
  double frozen[kBackwardCoeffs];
  std::copy_n(d.state.frozen_a, kBackwardCoeffs, frozen);
  EXPECT_TRUE(std::equal(frozen, frozen + kBackwardCoeffs, d.decoded.filter(0)));
  d.decode(true, kSpeech11k8);
  EXPECT_TRUE(std::equal(frozen, frozen + kBackwardCoeffs, d.decoded.filter(0)));
  ASSERT_EQ(d.state.dominance.bwd_dominant, 1);
  double left = 1.0;
  for (int frame = 0; frame < 12; ++frame) {
    d.backward();
    left = std::max(0.0, left - 0.1);
    EXPECT_NEAR(d.state.transition_gamma, left, 1e-12);
  }
}

TEST(DecoderDriver, BackwardRunBecomesStationary) {
  Decoder d;
  for (int frame = 0; frame < 15; ++frame) d.backward();
  EXPECT_EQ(d.state.bwd35_count, 30);
  d.backward();
  EXPECT_EQ(d.state.bwd35_count, 30);
  d.decode(true, kSpeech11k8);
  EXPECT_EQ(d.state.gains.gain_pitch, 1.0);
  d.forward_11k8();
  EXPECT_EQ(d.state.bwd35_count, 0);
}

// Bits that ask for ever more gain must not leave the decoder deaf.
TEST(DecoderDriver, RunawayIsDropped) {
  Decoder d;
  for (int frame = 0; frame < 3000; ++frame) {
    d.decode(false, kSpeech8k, {0x45, 0x123, 250, 0, 0x0ABC, 15, 0x7D, 16, 0x1357, 15, 0x7D});
    ASSERT_LE(d.energy(), 1e20);
  }
  for (int frame = 0; frame < 50; ++frame) d.decode(false, kNoTransmission);
  d.speech_8k(100);
  EXPECT_TRUE(std::isfinite(d.energy()));
}

}  // namespace
}  // namespace g729::inline KELG729F_TARGET
