#include "codec/bitstream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

struct Layout {
  int type, bits, fields[18];
};
// Field widths as clause 4 and the annexes give them; 11.8 kbit/s with the mode word first.
constexpr Layout kLayouts[] = {
    {kSid, 16, {1, 5, 4, 5}},
    {kSpeech6k4, 64, {8, 10, 8, 9, 2, 6, 4, 9, 2, 6}},
    {kSpeech8k, 80, {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7}},
    {kSpeech11k8, 118, {0, 8, 10, 8, 1, 7, 7, 7, 7, 7, 7, 5, 7, 7, 7, 7, 7, 7}},
    {kSpeech11k8, 118, {1, 8, 1, 13, 10, 7, 7, 7, 7, 5, 13, 10, 7, 7, 7, 7}},
};

// The bits of a serial frame as bytes, first bit in the highest place.
std::vector<uint8_t> packed_bytes(const uint16_t* serial) {
  std::vector<uint8_t> bytes(serial[1] / 8u);
  for (size_t i = 0; i < 8 * bytes.size(); ++i)
    bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] << 1 | (serial[2 + i] == kBitOne));
  return bytes;
}

TEST(Bitstream, RandomParametersSurviveTheRoundTrip) {
  std::mt19937 random(11);
  for (int trial = 0; trial < 2000; ++trial) {
    for (const Layout& layout : kLayouts) {
      int32_t sent[kEncoderWords] = {layout.type}, received[kDecoderWords] = {-7};
      const bool has_mode = layout.type == kSpeech11k8;
      for (int f = 0; f < 18; ++f)
        sent[1 + f] = static_cast<int32_t>(random()) & ((1 << layout.fields[f]) - 1);
      if (has_mode) sent[1] = layout.fields[0];
      uint16_t serial[kSerialWords] = {};
      parameters_to_serial(sent, serial);
      EXPECT_EQ(serial[0], kSyncWord);
      ASSERT_EQ(serial[1], layout.bits);
      serial_to_parameters(serial + 1, received);
      EXPECT_EQ(received[0], -7);
      for (int f = 0; f < 18 && (layout.fields[f] || f == 0); ++f)
        ASSERT_EQ(received[1 + f], sent[f]) << layout.bits << " " << f;
      if (has_mode) continue;
      const std::vector<uint8_t> bytes = packed_bytes(serial);
      int32_t unpacked[kDecoderWords] = {-7};
      bytes_to_parameters(bytes.data(), layout.bits, unpacked);
      ASSERT_TRUE(std::equal(received, received + kDecoderWords, unpacked)) << layout.bits;
      if (layout.type == kSpeech6k4) continue;
      std::vector<uint8_t> packed(bytes.size());
      ASSERT_EQ(8 * parameters_to_bytes(sent, packed.data()), layout.bits);
      ASSERT_EQ(packed, bytes);
    }
  }
}

TEST(Bitstream, DisagreeingModeBitsEraseTheFrame) {
  uint16_t frame[1 + kBits11k8] = {kBits11k8};
  for (int i = 0; i < kBits11k8; ++i) frame[1 + i] = kBitOne;
  frame[2] = kBitZero;
  int32_t word[kDecoderWords] = {};
  serial_to_parameters(frame, word);
  EXPECT_EQ(word[2], 1);
  for (int i = 3; i < 18; ++i) EXPECT_EQ(word[i], 0);
  EXPECT_EQ(frame[3], kBitErased);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
