#include "codec/decoder/driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "codec/bitstream.h"
#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

struct Decoder {
  DecoderCoreState state;
  double synthesis[kSynthesisBuffer] = {};
  DecodedFrame decoded;

  Decoder() { decoder_core_init(&state); }

  void decode(bool erased, int type, std::initializer_list<int> fields = {}) {
    int32_t parameters[kDecoderWords] = {erased, type};
    std::copy(fields.begin(), fields.end(), parameters + kFields);
    decode_frame_core(&state, parameters, 0, synthesis, &decoded);
  }
  void erased() { decode(true, kNoTransmission); }
  void speech_6k4() { decode(false, kSpeech6k4, {69, 291, 100, 188, 2, 44, 8, 343, 1, 45}); }
  void speech_8k(int pitch, int wrong_parity = 0) {
    decode(false, kSpeech8k, {69, 291, pitch, wrong_parity, 2748, 5, 60, 16, 4951, 9, 61});
  }
  void forward() {
    decode(false, kSpeech11k8, {0, 69, 291, 100, 0, 1, 2, 3, 4, 5, 60, 16, 6, 7, 8, 9, 10, 61});
  }
  void backward() {
    decode(false, kSpeech11k8,
           {1, 100, 0, 291, 341, 34, 71, 19, 60, 16, 1110, 170, 49, 18, 85, 61});
  }

  double energy() const {
    return dot(synthesis + kSynthesisPast, synthesis + kSynthesisPast, kFrame);
  }
};

TEST(DecoderDriver, LagOfErasedFramesClimbsToItsLimit) {
  Decoder d;
  d.speech_8k(230);  // a whole lag of 118
  for (int lag = d.decoded.pitch_delay[1], frame = 0; frame < 20; ++frame) {
    d.erased();
    for (const int delay : d.decoded.pitch_delay) {
      EXPECT_EQ(delay, lag);
      lag = std::min(lag + 1, kPitchMax);
    }
  }
  EXPECT_EQ(d.state.old_t0, kPitchMax);
}

TEST(DecoderDriver, WrongParityConcealsTheFirstLagOnly) {
  Decoder d;
  d.speech_8k(100);
  const int last = d.state.old_t0;
  testing::internal::CaptureStdout();
  d.speech_8k(230, 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), " ! Wrong Pitch 1st subfr. !   ");
  EXPECT_EQ(d.decoded.pitch_delay[0], last);
  EXPECT_EQ(d.decoded.pitch_delay[1], last);  // the middle of the range around the concealed lag
}

TEST(DecoderDriver, ErasuresFadeAtEveryRate) {
  const struct {
    void (Decoder::*decode)();
    int order;
    double left;  // at most, of the energy, after a second
  } cases[] = {{&Decoder::speech_6k4, kOrder, 0.1},
               {&Decoder::forward, kOrder, 1e-6},
               {&Decoder::backward, kBackwardOrder, 0.5}};
  for (const auto& c : cases) {
    Decoder d;
    for (int frame = 0; frame < 20; ++frame) (d.*c.decode)();
    const double start = d.energy();
    for (int frame = 0; frame < 100; ++frame) {
      d.erased();
      EXPECT_LT(d.energy(), 100 * start);
    }
    EXPECT_EQ(d.decoded.order, c.order);
    EXPECT_LT(d.energy(), c.left * start);
  }
}

// The first backward frame after forward ones still runs the last forward filter; by the eleventh
// the backward filter has taken over.
TEST(DecoderDriver, BackwardFilterTakesOverStepByStep) {
  Decoder d;
  for (int frame = 0; frame < 5; ++frame) d.forward();
  double last[kBackwardCoeffs] = {};
  std::copy_n(d.decoded.filter(1), kCoeffs, last);
  d.backward();
  for (int subframe = 0; subframe < kSubframes; ++subframe)
    for (int i = 0; i < kBackwardCoeffs; ++i)
      EXPECT_NEAR(d.decoded.filter(subframe)[i], last[i], 1e-15);
  for (int frame = 1; frame < 11; ++frame) d.backward();
  EXPECT_NEAR(d.state.smoothing.backward_interp, 0.0, 1e-12);
  EXPECT_NE(d.decoded.filter(0)[kBackwardOrder], 0.0);
  d.decode(false, kSpeech8k, {17, 500, 100});  // its LSPs have no predecessor to interpolate with
  EXPECT_TRUE(std::equal(d.decoded.filter(0), d.decoded.filter(1), d.decoded.filter(1)));
}

// Across all changes of order and frame type, A(z) on the synthesis gives back the excitation.
TEST(DecoderDriver, SynthesisHasNoSeams) {
  Decoder d;
  for (int frame = 0; frame < 60; ++frame) {
    switch (frame / 3 % 5) {
      case 0:
        d.speech_8k(100 + frame);
        break;
      case 1:
        d.backward();
        break;
      case 2:
        d.forward();
        break;
      case 3:
        d.decode(false, frame % 3 ? kNoTransmission : kSid, {0, 5, 3, 18});
        break;
      case 4:
        d.erased();
        break;
    }
    const double* exc = d.state.old_exc + kExcitationPast - kFrame;
    double residual[kFrame];
    for (int subframe = 0; subframe < kSubframes; ++subframe)
      residual_filter(d.decoded.order, d.decoded.filter(subframe),
                      d.synthesis + kSynthesisPast + subframe * kSubframe,
                      residual + subframe * kSubframe, kSubframe);
    for (int n = 0; n < kFrame; ++n) ASSERT_NEAR(residual[n], exc[n], 1e-6) << "frame " << frame;
  }
}

// Erased backward frames run on a frozen filter, which the next good ones leave in steps.
TEST(DecoderDriver, ErasureFreezesTheBackwardFilter) {
  Decoder d;
  for (int frame = 0; frame < 20; ++frame) d.backward();
  EXPECT_EQ(d.state.bwd35_count, 30);
  for (int frame = 0; frame < 3; ++frame) {
    d.erased();
    EXPECT_EQ(d.state.transition_gamma, 1.0);
    EXPECT_TRUE(
        std::equal(d.state.frozen_a, d.state.frozen_a + kBackwardCoeffs, d.decoded.filter(0)));
  }
  ASSERT_EQ(d.state.dominance.bwd_dominant, 1);
  for (int frame = 1; frame < 12; ++frame) {
    d.backward();
    EXPECT_NEAR(d.state.transition_gamma, std::max(0.0, 1.0 - 0.1 * frame), 1e-12);
  }
  d.forward();
  EXPECT_EQ(d.state.bwd35_count, 0);
}

// Bits that ask for ever more gain do not leave the decoder deaf.
TEST(DecoderDriver, RunawayIsDropped) {
  Decoder d;
  double loudest = 0;
  for (int frame = 0; frame < 3000; ++frame) {
    d.decode(false, kSpeech8k, {69, 291, 250, 0, 2748, 15, 5, 17, 4951, 15, 5});
    loudest = std::max(loudest, d.energy());
    ASSERT_LE(d.energy(), 1e13);
  }
  EXPECT_GT(loudest, 1e12);
  EXPECT_TRUE(std::isfinite(d.state.frame_energy));
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
