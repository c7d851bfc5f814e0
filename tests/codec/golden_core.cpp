// Compiled once per build of the codec core.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "codec/bitstream.h"
#include "codec/decoder/decoder_driver.h"
#include "codec/decoder/decoder_state.h"
#include "codec/dsp/constants.h"
#include "codec/encoder/encoder_driver.h"
#include "codec/encoder/encoder_state.h"
#include "codec/frame_coder.h"
#include "tests/codec/golden.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

template <typename T>
void fold(const T* values, int n, uint64_t* hash) {
  for (int i = 0; i < n; ++i) {
    uint64_t word = 0;
    std::memcpy(&word, values + i, sizeof(T));
    *hash = (*hash ^ word) * 0x100000001B3u;
    *hash ^= *hash >> 29;
  }
}

// Adds up all doubles of a record, told from its other words by their size, wherever they stand.
template <typename Record>
void add_state(const Record& record, uint64_t* sum) {
  double words[sizeof record / sizeof(double)];
  std::memcpy(words, &record, sizeof words);
  for (const double& x : words) {
    if (!(std::fabs(x) > 1e-100 && std::fabs(x) < 1e100)) continue;
    uint64_t hash = 0;
    fold(&x, 1, &hash);
    *sum += hash;
  }
}

uint32_t scramble(uint32_t x) {
  x = (x ^ (x >> 15)) * 2654435761u;
  return x ^ (x >> 13);
}

}  // namespace

GoldenHash golden_hash(const int16_t* samples, int frames, GoldenPlan plan) {
  auto* encoder = new EncoderCoreState();
  auto* decoder = new DecoderCoreState();
  encoder_core_init(encoder, plan.annexb);
  decoder_core_init(decoder);
  GoldenHash hash;
  bool lost = false;
  for (int f = 0; f < frames; ++f) {
    const auto frame = static_cast<uint32_t>(f);
    const auto rate = static_cast<Rate>(
        plan.rate >= 0 ? plan.rate : static_cast<int>(scramble(frame / 7 + plan.call) % 3));
    encoder->complexity = plan.complexity;
    if (plan.complexity < 0) {
      encoder->complexity = static_cast<int>(scramble(frame / 5 + 7) % 4);
      encoder->dtx_enabled = scramble(frame / 11 + 3) % 2 != 0;
    }
    SerialFrame serial;
    int16_t out[kFrame];
    encode_serial_frame(encoder, samples + f * kFrame, rate, &serial);
    fold(&serial.sync, 2 + serial.size, &hash.stream);
    const bool erased = scramble(frame * 3 + 1 + 100003 * plan.call) % 64 < plan.loss;
    if (erased) {
      for (int i = 0; i < serial.size; ++i) serial.bits[i] = kBitErased;
      if (serial.size == 0) serial.sync = 0;
    }
    decode_serial_frame(decoder, &serial, out);
    fold(decoder->synthesis + kSynthesisPast, kFrame, &hash.synthesis);
    fold(decoder->output, kFrame, &hash.output);
    lost = lost || erased;
    if (!lost && std::equal(decoder->synthesis + kSynthesisPast,
                            decoder->synthesis + kSynthesisPast + kFrame,
                            encoder->synthesis + kSynthesisPast))
      ++hash.in_step;
    hash.lossless += !lost;
    add_state(*encoder, &hash.states.emplace_back());
    add_state(*decoder, &hash.states.back());
    fold(&hash.states.back(), 1, &hash.state);
  }
  delete encoder;
  delete decoder;
  return hash;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
