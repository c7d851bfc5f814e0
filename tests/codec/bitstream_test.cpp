#include "codec/bitstream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

struct Layout {
  FrameType type;
  LpMode mode;
  std::vector<int> widths;
};
// Field widths as clause 4 and the annexes give them; 11.8 kbit/s without its mode bits.
const Layout kLayouts[] = {
    {kSid, kForward, {1, 5, 4, 5}},
    {kSpeech6k4, kForward, {8, 10, 8, 9, 2, 6, 4, 9, 2, 6}},
    {kSpeech8k, kForward, {8, 10, 8, 1, 13, 4, 7, 5, 13, 4, 7}},
    {kSpeech11k8, kForward, {8, 10, 8, 1, 7, 7, 7, 7, 7, 7, 5, 7, 7, 7, 7, 7, 7}},
    {kSpeech11k8, kBackward, {8, 1, 13, 10, 7, 7, 7, 7, 5, 13, 10, 7, 7, 7, 7}},
};

// The fields of the set in the order of transmission.
std::vector<int> fields_of(const ParameterSet& s) {
  if (s.type == kSid) return {s.sid.mode, s.sid.first, s.sid.second, s.sid.energy};
  std::vector<int> fields;
  if (s.lp_mode == kForward) fields = {s.lsp[0], s.lsp[1]};
  for (const SubframeParameters& sub : s.subframe) {
    fields.push_back(sub.lag);
    if (&sub == s.subframe && s.type != kSpeech6k4) fields.push_back(sub.parity);
    fields.insert(fields.end(), sub.code, sub.code + code_words(s.type));
    fields.push_back(sub.gain);
  }
  return fields;
}

// Random fields as bits, and those through every form and back.
TEST(Bitstream, EveryFormCarriesTheSameFields) {
  std::mt19937 random(11);
  for (int trial = 0; trial < 2000; ++trial) {
    for (const Layout& layout : kLayouts) {
      SerialFrame sent = {.size = static_cast<uint16_t>(kFrameBits[layout.type])}, written;
      uint16_t* bit = sent.bits;
      if (layout.type == kSpeech11k8)
        for (int i = 0; i < 2; ++i) *bit++ = layout.mode == kBackward ? kBitOne : kBitZero;
      std::vector<int> fields;
      for (const int width : layout.widths) {
        fields.push_back(static_cast<int>(random() % (1U << width)));
        for (int b = width - 1; b >= 0; --b) *bit++ = fields.back() >> b & 1 ? kBitOne : kBitZero;
      }
      if (layout.type == kSid) *bit++ = kBitZero;
      ASSERT_EQ(bit - sent.bits, sent.size);
      ParameterSet set, unpacked;
      serial_to_parameters(&sent, &set);
      ASSERT_EQ(fields_of(set), fields);
      parameters_to_serial(set, &written);
      EXPECT_EQ(written.sync, kSyncWord);
      ASSERT_EQ(written.size, sent.size);
      ASSERT_TRUE(std::equal(sent.bits, bit, written.bits));
      if (layout.type == kSpeech11k8) continue;
      uint8_t bytes[kMaxFrameBytes], packed[kMaxFrameBytes];
      pack_serial_bits(sent.bits, sent.size / 8, bytes);
      bytes_to_parameters(bytes, sent.size, &unpacked);
      ASSERT_EQ(fields_of(unpacked), fields);
      ASSERT_EQ(8 * parameters_to_bytes(set, packed), sent.size);
      ASSERT_TRUE(std::equal(packed, packed + sent.size / 8, bytes));
    }
  }
}

TEST(Bitstream, DisagreeingModeBitsEraseTheFrame) {
  SerialFrame frame = {.size = kMaxFrameBits};
  std::fill_n(frame.bits, kMaxFrameBits, kBitOne);
  frame.bits[1] = kBitZero;
  ParameterSet set;
  serial_to_parameters(&frame, &set);
  EXPECT_EQ(set.lp_mode, kBackward);
  EXPECT_EQ(fields_of(set), std::vector<int>(15));
  EXPECT_EQ(frame.bits[2], kBitErased);
}

}  // namespace
}  // namespace KELG729F_TARGET
}  // namespace g729
