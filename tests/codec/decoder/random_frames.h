// Serial frames for the decoder's tests.
#pragma once

#include <cstdint>
#include <random>

#include "codec/bitstream.h"
#include "codec/dsp/pitch.h"

namespace g729::inline KELG729F_TARGET {

struct SerialFrame {
  uint16_t word[kSerialWords] = {kSyncWord};
};

// A good speech frame, or a silence descriptor, of the given size with random bits. Its parity bit
// is right, and the two mode bits of an 11.8 kbit/s frame agree.
class RandomFrames {
 public:
  explicit RandomFrames(unsigned seed) : random_(seed) {}

  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }

  SerialFrame frame(int bits) {
    SerialFrame f;
    f.word[1] = static_cast<uint16_t>(bits);
    for (int i = 0; i < bits; ++i) f.word[2 + i] = below(2) ? kBitOne : kBitZero;
    if (bits == kBits11k8) return mode(f, below(2));
    if (bits == kBits8k) set_parity(&f, 18, false);
    return f;
  }

  SerialFrame frame_11k8(int lp_mode) { return mode(frame(kBits11k8), lp_mode); }

 private:
  static SerialFrame mode(SerialFrame f, int lp_mode) {
    f.word[2] = f.word[3] = lp_mode == kBackward ? kBitOne : kBitZero;
    set_parity(&f, lp_mode == kBackward ? 2 : 20, true);
    return f;
  }

  // The pitch index stands at bit `at`, its parity bit behind it.
  static void set_parity(SerialFrame* f, int at, bool with_bit_1) {
    int index = 0;
    for (int i = 0; i < 8; ++i) index = 2 * index + (f->word[2 + at + i] == kBitOne);
    const int parity = pitch_parity(index) ^ (with_bit_1 ? (index >> 1) & 1 : 0);
    f->word[2 + at + 8] = parity ? kBitOne : kBitZero;
  }

  std::mt19937 random_;
};

// The same frame with an erased bit (without bits: a wrong sync word).
inline SerialFrame erased(SerialFrame f) {
  if (f.word[1] == 0)
    f.word[0] = 0;
  else
    f.word[2] = kBitErased;
  return f;
}

}  // namespace g729::inline KELG729F_TARGET
