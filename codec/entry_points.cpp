// One build's entry points.
#include <algorithm>

#include "codec/dispatch.h"
#include "codec/frame_coder.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// What a handle points at: the part that the C interface sees, and the record behind it.
template <typename Handle, typename State>
struct Owned : Handle {
  State state;
};
using OwnedEncoder = Owned<G729EncoderState, EncoderCoreState>;
using OwnedDecoder = Owned<G729DecoderState, DecoderCoreState>;

EncoderCoreState* state_of(G729EncoderState* handle) {
  return &static_cast<OwnedEncoder*>(handle)->state;
}
DecoderCoreState* state_of(G729DecoderState* handle) {
  return &static_cast<OwnedDecoder*>(handle)->state;
}

G729EncoderState* create_encoder(int32_t annexb);
G729DecoderState* create_decoder();

void encode_packed(G729EncoderState* handle, const int16_t* samples, uint8_t* bytes,
                   uint32_t* size) {
  *size = static_cast<uint32_t>(encode_packed_frame(state_of(handle), samples, bytes));
}

void encode_serial(G729EncoderState* handle, const int16_t* samples, int32_t rate,
                   uint16_t* serial) {
  SerialFrame frame;
  encode_serial_frame(state_of(handle), samples, static_cast<Rate>(rate), &frame);
  serial[0] = frame.sync;
  serial[1] = frame.size;
  std::copy_n(frame.bits, frame.size, serial + 2);
}

void decode_packed(G729DecoderState* handle, const uint8_t* bytes, uint32_t size,
                   int16_t* samples) {
  decode_packed_frame(state_of(handle), bytes, size, samples);
}

void decode_serial(G729DecoderState* handle, const uint16_t* serial, int16_t* samples) {
  SerialFrame frame = {serial[0], serial[1]};
  const int bits = static_cast<int16_t>(frame.size);
  std::copy_n(serial + 2, std::clamp(bits, 0, kMaxFrameBits), frame.bits);
  decode_serial_frame(state_of(handle), &frame, samples);
}

}  // namespace

extern const Target target = {
#define KELG729F_STRING(x) #x
#define KELG729F_NAME(x) KELG729F_STRING(x)
    .name = KELG729F_NAME(KELG729F_TARGET),
    .encoder_create = create_encoder,
    .encoder_destroy = [](G729EncoderState* handle) { delete static_cast<OwnedEncoder*>(handle); },
    .encode_packed = encode_packed,
    .encode_serial = encode_serial,
    .decoder_create = create_decoder,
    .decoder_destroy = [](G729DecoderState* handle) { delete static_cast<OwnedDecoder*>(handle); },
    .decode_packed = decode_packed,
    .decode_serial = decode_serial,
};

namespace {

G729EncoderState* create_encoder(int32_t annexb) {
  auto* const owned = new OwnedEncoder{{&target}, {}};
  encoder_core_init(&owned->state, annexb != 0);
  return owned;
}

G729DecoderState* create_decoder() {
  auto* const owned = new OwnedDecoder{{&target}, {}};
  decoder_core_init(&owned->state);
  return owned;
}

}  // namespace

}  // namespace KELG729F_TARGET
}  // namespace g729
