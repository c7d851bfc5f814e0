#include "codec/frame_coder.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

bool is_erased(const SerialFrame& serial) {
  const int bits = static_cast<int16_t>(serial.size);
  if (bits == 0) return serial.sync != kSyncWord;
  int erased = 0;
  for (int i = 0; i < bits; ++i) erased |= serial.bits[i] == kBitErased;
  return erased != 0;
}

}  // namespace

void encode_serial_frame(EncoderCoreState* state, const int16_t* samples, Rate rate,
                         SerialFrame* serial) {
  parameters_to_serial(encode_frame(state, Samples(samples, kFrame), rate), serial);
}

int encode_packed_frame(EncoderCoreState* state, const int16_t* samples, uint8_t* bytes) {
  return parameters_to_bytes(encode_frame(state, Samples(samples, kFrame), kRate8k), bytes);
}

void decode_serial_frame(DecoderCoreState* state, SerialFrame* serial, int16_t* samples) {
  serial_to_parameters(serial, &state->parameters);
  decode_frame(state, is_erased(*serial), samples);
}

void conceal_frame(DecoderCoreState* state, int16_t* samples) {
  decode_frame(state, true, samples);
}

void decode_packed_frame(DecoderCoreState* state, const uint8_t* bytes, uint32_t size,
                         int16_t* samples) {
  bytes_to_parameters(bytes, static_cast<int>(8 * size % 256), &state->parameters);
  decode_frame(state, false, samples);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
