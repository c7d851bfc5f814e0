#include "codec/decoder_handle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/codec/decoder/random_frames.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

static_assert(sizeof(DecoderHandle) < 16 * 1024);

const std::string kParityWarning = " ! Wrong Pitch 1st subfr. !   ";

struct Handle : DecoderHandle {
  int16_t samples[kFrame];

  Handle() { decoder_init(this); }

  // Returns what was printed.
  std::string decode(const SerialFrame& f) {
    testing::internal::CaptureStdout();
    decode_serial_frame(this, f.word, samples);
    return testing::internal::GetCapturedStdout();
  }
};

TEST(DecoderHandle, BytesAreASerialFrame) {
  RandomFrames frames(1);
  Handle bytes, serial;
  constexpr int kSizes[] = {80, 80, 80, 64, 16, 0, 0};
  for (int i = 0; i < 1000; ++i) {
    const SerialFrame f = frames.frame(kSizes[frames.below(7)]);
    const std::vector<uint8_t> packed = packed_bytes(f.word);
    const bool empty = packed.empty();
    serial.decode(f);
    testing::internal::CaptureStdout();
    decode_packed_frame(&bytes, empty ? nullptr : packed.data(), uint32_t(packed.size()),
                        bytes.samples);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(std::equal(serial.samples, serial.samples + kFrame, bytes.samples)) << i;
  }
}

TEST(DecoderHandle, ErasedFramesTakeTheTypeBefore) {
  RandomFrames frames(3);
  Handle handle;
  const struct {
    SerialFrame frame;
    int type;
    int bits;
  } steps[] = {{frames.frame(kBits8k), kSpeech8k, 80},
               {frames.frame(kSidBits).erase(), kSpeech8k, 80},
               {frames.frame(0).erase(), kSpeech8k, 80},
               {frames.frame(0), kNoTransmission, 0},
               {frames.frame(kBits8k).erase(), kNoTransmission, 0},
               {frames.frame(kSidBits), kSid, 16},
               {frames.frame(kBits6k4).erase(), kNoTransmission, 0},
               {frames.frame(kBits6k4), kSpeech6k4, 64},
               {frames.frame(kBits11k8).erase(), kSpeech6k4, 64}};
  for (const auto& step : steps) {
    handle.decode(step.frame);
    EXPECT_EQ(handle.decoded.type, step.type) << "step " << &step - steps;
    EXPECT_EQ(handle.previous_bits, step.bits) << "step " << &step - steps;
    EXPECT_TRUE(handle.voicing == 0 || step.type >= kSpeech6k4) << "step " << &step - steps;
  }
}

TEST(DecoderHandle, ParityErrorsAreFoundAtBothRates) {
  RandomFrames frames(4);
  for (int i = 0; i < 300; ++i) {
    SerialFrame f = i % 3 == 0 ? frames.frame(kBits8k) : frames.frame_11k8(i % 3 - 1);
    uint16_t* parity = f.word + 2 + (i % 3 == 0 ? 26 : i % 3 == 1 ? 28 : 10);
    Handle handle;
    EXPECT_EQ(handle.decode(f).find(kParityWarning), std::string::npos);
    *parity = *parity == kBitOne ? kBitZero : kBitOne;
    EXPECT_NE(handle.decode(f).find(kParityWarning), std::string::npos);
  }
}

TEST(DecoderHandle, DisagreeingModeBitsEraseTheFrame) {
  RandomFrames frames(5);
  Handle handle;
  handle.decode(frames.frame_11k8(kForward));
  SerialFrame f = frames.frame_11k8(kForward);
  f.word[2] = kBitOne;
  handle.decode(f);
  EXPECT_EQ(handle.parameters[kErased], 1);
  EXPECT_EQ(handle.decoded.order, kOrder);  // the mode is the last good frame's
  EXPECT_EQ(handle.previous_bits, kBits11k8);
}

// The factors fade in a run of backward frames and come back; 8 kbit/s has its own.
TEST(DecoderHandle, PostFilterFollowsTheBackwardMode) {
  RandomFrames frames(6);
  Handle handle;
  const auto expect_factors = [&](double denominator, double numerator, double harmonic) {
    EXPECT_NEAR(handle.gamma_d, denominator, 1e-12);
    EXPECT_NEAR(handle.gamma_n, numerator, 1e-12);
    EXPECT_NEAR(handle.gamma_h, harmonic, 1e-12);
  };
  handle.decode(frames.frame_11k8(kForward));
  expect_factors(0.7, 0.65, 0.25);
  for (int i = 0; i < 60; ++i) handle.decode(frames.frame_11k8(kBackward));
  expect_factors(0.0, 0.0, 0.0);
  handle.decode(frames.frame_11k8(kForward));
  expect_factors(0.035, 0.0325, 0.0125);
  handle.decode(frames.frame(kBits8k));
  expect_factors(0.7, 0.55, 0.5);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
