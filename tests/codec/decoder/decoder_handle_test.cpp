#include "codec/decoder_handle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "tests/codec/decoder/random_frames.h"

namespace g729::inline KELG729F_TARGET {
namespace {

static_assert(sizeof(DecoderHandle) < 16 * 1024);

struct Handle : DecoderHandle {
  Handle() { decoder_init(this); }
  int16_t samples[kFrame];

  void decode(const SerialFrame& f) { decode_serial_frame(this, f.word, samples); }

  double energy() const {
    double e = 0;
    for (double v : output) e += v * v;
    return e;
  }
};

TEST(DecoderHandle, BytesAreASerialFrame) {
  RandomFrames frames(1);
  Handle bytes, serial;
  testing::internal::CaptureStdout();
  constexpr int kSizes[] = {80, 80, 80, 64, 16, 0, 0};
  for (int i = 0; i < 2000; ++i) {
    const SerialFrame f = frames.frame(kSizes[frames.below(7)]);
    uint8_t packed[kMaxPackedBytes];
    const int size = f.word[1] / 8;
    pack_serial_bits(f.word + 2, packed, size);
    serial.decode(f);
    decode_packed_frame(&bytes, size ? packed : nullptr, uint32_t(size), bytes.samples);
    ASSERT_TRUE(std::equal(serial.samples, serial.samples + kFrame, bytes.samples)) << i;
  }
  testing::internal::GetCapturedStdout();
}

// Whatever arrives, every state stays finite and speech comes back.
TEST(DecoderHandle, RandomFramesStayFinite) {
  RandomFrames frames(2);
  Handle handle;
  testing::internal::CaptureStdout();
  constexpr int kSizes[] = {0, 16, 64, 80, 118};
  constexpr int kLoss[] = {0, 5, 50};
  int size = 80;
  for (int i = 0; i < 120000; ++i) {
    if (frames.below(20) == 0) size = kSizes[frames.below(5)];
    SerialFrame f = frames.frame(size);
    if (frames.below(100) < kLoss[i / 1000 % 3]) f = erased(f);
    handle.decode(f);
    ASSERT_TRUE(std::isfinite(handle.energy())) << "frame " << i << " of " << size << " bits";
  }
  testing::internal::GetCapturedStdout();
}

TEST(DecoderHandle, ErasedBitsAndLostSyncConcealSpeech) {
  RandomFrames frames(3);
  Handle handle;
  testing::internal::CaptureStdout();
  for (int i = 0; i < 10; ++i) handle.decode(frames.frame(kBits8k));
  EXPECT_EQ(handle.decoded.type, kSpeech8k);
  handle.decode(erased(frames.frame(kSidBits)));
  EXPECT_EQ(handle.decoded.type, kSpeech8k);
  handle.decode(erased(frames.frame(0)));
  EXPECT_EQ(handle.decoded.type, kSpeech8k);
  EXPECT_EQ(handle.previous_bits, kBits8k);
  handle.decode(frames.frame(0));
  EXPECT_EQ(handle.decoded.type, kNoTransmission);
  testing::internal::GetCapturedStdout();
}

TEST(DecoderHandle, ParityErrorsAreFoundAtBothRates) {
  RandomFrames frames(4);
  const std::string warning = " ! Wrong Pitch 1st subfr. !   ";
  for (int i = 0; i < 200; ++i) {
    const int kind = i % 3;
    SerialFrame f = kind == 0   ? frames.frame(kBits8k)
                    : kind == 1 ? frames.frame_11k8(kForward)
                                : frames.frame_11k8(kBackward);
    uint16_t* parity = f.word + 2 + (kind == 0 ? 26 : kind == 1 ? 28 : 10);
    Handle handle;
    testing::internal::CaptureStdout();
    handle.decode(f);
    EXPECT_EQ(testing::internal::GetCapturedStdout().find(warning), std::string::npos);
    *parity = *parity == kBitOne ? kBitZero : kBitOne;
    testing::internal::CaptureStdout();
    handle.decode(f);
    EXPECT_NE(testing::internal::GetCapturedStdout().find(warning), std::string::npos);
    EXPECT_EQ(handle.decoded.type, kind == 0 ? kSpeech8k : kSpeech11k8);
  }
}

TEST(DecoderHandle, DisagreeingModeBitsEraseTheFrame) {
  RandomFrames frames(5);
  Handle handle;
  testing::internal::CaptureStdout();
  handle.decode(frames.frame_11k8(kForward));
  SerialFrame f = frames.frame_11k8(kForward);
  f.word[2] = kBitOne;
  handle.decode(f);
  EXPECT_EQ(handle.parameters[kErased], 1);
  EXPECT_EQ(handle.parameters[kFields], 1);
  EXPECT_EQ(handle.decoded.order, kOrder);  // the mode is the last good frame's
  EXPECT_EQ(handle.previous_bits, kBits11k8);
  testing::internal::GetCapturedStdout();
}

// The factors fade in a run of dominant backward frames, come back with forward ones, and 8 kbit/s
// has its own.
TEST(DecoderHandle, PostFilterFollowsTheBackwardMode) {
  RandomFrames frames(6);
  Handle handle;
  testing::internal::CaptureStdout();
  handle.decode(frames.frame_11k8(kForward));
  EXPECT_EQ(handle.gamma_d, 0.7);
  EXPECT_EQ(handle.gamma_n, 0.65);
  EXPECT_EQ(handle.gamma_h, 0.25);
  for (int i = 0; i < 60; ++i) handle.decode(frames.frame_11k8(kBackward));
  EXPECT_EQ(handle.gamma_d, 0.0);
  EXPECT_EQ(handle.gamma_n, 0.0);
  EXPECT_EQ(handle.gamma_h, 0.0);
  handle.decode(frames.frame_11k8(kForward));
  EXPECT_NEAR(handle.gamma_d, 0.035, 1e-12);
  EXPECT_NEAR(handle.gamma_n, 0.0325, 1e-12);
  EXPECT_NEAR(handle.gamma_h, 0.0125, 1e-12);
  handle.decode(frames.frame(kBits8k));
  EXPECT_EQ(handle.gamma_n, 0.55);
  EXPECT_EQ(handle.gamma_h, 0.5);
  testing::internal::GetCapturedStdout();
}

TEST(DecoderHandle, PausesHaveNoVoicing) {
  RandomFrames frames(7);
  Handle handle;
  EXPECT_EQ(handle.voicing, 60);
  testing::internal::CaptureStdout();
  handle.decode(frames.frame(kBits8k));
  handle.decode(frames.frame(kSidBits));
  EXPECT_EQ(handle.voicing, 0);
  EXPECT_EQ(handle.frame_counter, 2u);
  testing::internal::GetCapturedStdout();
}

TEST(DecoderHandle, CopyGoesOnAlike) {
  RandomFrames frames(8);
  Handle handle;
  testing::internal::CaptureStdout();
  for (int i = 0; i < 50; ++i) handle.decode(frames.frame(kBits11k8));
  const auto copy = std::make_unique<Handle>(handle);
  for (int i = 0; i < 50; ++i) {
    const SerialFrame f = frames.frame(kBits11k8);
    handle.decode(f);
    copy->decode(f);
    ASSERT_TRUE(std::equal(handle.output, handle.output + kFrame, copy->output));
  }
  testing::internal::GetCapturedStdout();
}

TEST(DecoderHandleDeathTest, ImpossibleSizesEndTheProcess) {
  uint8_t bytes[15] = {};
  int16_t samples[kFrame];
  Handle handle;
  for (const uint32_t size : {1u, 3u, 9u, 15u})
    EXPECT_EXIT(decode_packed_frame(&handle, bytes, size, samples), testing::ExitedWithCode(255),
                "");
}

}  // namespace
}  // namespace g729::inline KELG729F_TARGET
