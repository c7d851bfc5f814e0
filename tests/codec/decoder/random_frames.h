// Serial frames for the decoder's tests.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "codec/bitstream.h"
#include "codec/dsp/pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// The bits of a serial frame as bytes, first bit in the highest place.
inline std::vector<uint8_t> packed_bytes(const uint16_t* serial) {
  std::vector<uint8_t> bytes(serial[1] / 8u);
  for (size_t i = 0; i < 8 * bytes.size(); ++i)
    bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] << 1 | (serial[2 + i] == kBitOne));
  return bytes;
}

struct SerialFrame {
  uint16_t word[kSerialWords] = {kSyncWord};

  // A bit is lost (without bits: the sync word).
  SerialFrame& erase() {
    word[word[1] == 0 ? 0 : 2] = kBitErased;
    return *this;
  }
};

// Good frames of random bits: the parity is right, and the mode bits of 11.8 kbit/s agree.
class RandomFrames {
 public:
  explicit RandomFrames(unsigned seed) : random_(seed) {}

  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }

  SerialFrame frame(int bits) {
    if (bits == kBits11k8) return frame_11k8(below(2));
    SerialFrame f = bits_of(bits);
    if (bits == kBits8k) set_parity(f.word + 2 + 18, false);
    return f;
  }

  SerialFrame frame_11k8(int lp_mode) {
    SerialFrame f = bits_of(kBits11k8);
    f.word[2] = f.word[3] = lp_mode == kBackward ? kBitOne : kBitZero;
    set_parity(f.word + 2 + (lp_mode == kBackward ? 2 : 20), true);
    return f;
  }

 private:
  SerialFrame bits_of(int bits) {
    SerialFrame f;
    f.word[1] = static_cast<uint16_t>(bits);
    for (int i = 0; i < bits; ++i) f.word[2 + i] = below(2) ? kBitOne : kBitZero;
    return f;
  }

  // Of the eight bits of a pitch index, into the bit behind them.
  static void set_parity(uint16_t* bits, bool with_bit_1) {
    int index = 0;
    for (int i = 0; i < 8; ++i) index = 2 * index + (bits[i] == kBitOne);
    bits[8] = pitch_parity(index) ^ (with_bit_1 ? (index >> 1) & 1 : 0) ? kBitOne : kBitZero;
  }

  std::mt19937 random_;
};

}  // namespace KELG729F_TARGET
}  // namespace g729
