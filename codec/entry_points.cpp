// One build's entry points.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>

#include "codec/bitstream.h"
#include "codec/decoder/decoder_driver.h"
#include "codec/decoder/decoder_state.h"
#include "codec/dispatch.h"
#include "codec/dsp/constants.h"
#include "codec/dsp/diagnostics.h"
#include "codec/encoder/encoder_driver.h"
#include "codec/encoder/encoder_state.h"
#include "codec/frame_coder.h"
#include "codec/g729.h"

namespace g729 {
inline namespace KELG729F_TARGET {

extern const Target target;

namespace {

// What a handle points at: the part that the C interface sees, and the record behind it.
template <typename Handle, typename State>
struct Owned : Handle {
  State state;
};
using OwnedEncoder = Owned<G729EncoderState, EncoderCoreState>;
using OwnedDecoder = Owned<G729DecoderState, DecoderCoreState>;

OwnedEncoder* owned(G729EncoderState* handle) {
  return static_cast<OwnedEncoder*>(handle);
}
OwnedDecoder* owned(G729DecoderState* handle) {
  return static_cast<OwnedDecoder*>(handle);
}

// From the C library's heap: programs in C need no other runtime.
template <typename Owned>
Owned* allocate() {
  constexpr size_t kSize = (sizeof(Owned) + alignof(Owned) - 1) / alignof(Owned) * alignof(Owned);
  void* const memory = std::aligned_alloc(alignof(Owned), kSize);
  return memory ? new (memory) Owned{{&target}, {}} : nullptr;
}

G729EncoderState* create_encoder(int32_t annexb) {
  auto* const encoder = allocate<OwnedEncoder>();
  if (encoder) encoder_core_init(&encoder->state, annexb != 0);
  return encoder;
}

G729DecoderState* create_decoder() {
  auto* const decoder = allocate<OwnedDecoder>();
  if (decoder) decoder_core_init(&decoder->state);
  return decoder;
}

// Passes on what is odd about the frame just coded.
void tell(auto* handle) {
  if (handle->state.remarks == 0) return;
  for (size_t i = 0; i < std::size(kRemarkText); ++i) {
    if (!(handle->state.remarks >> i & 1)) continue;
    if (handle->remark)
      handle->remark(handle->user, kRemarkText[i]);
    else
      print_warning("%s", kRemarkText[i]);
  }
}

void encode_packed(G729EncoderState* handle, const int16_t* samples, uint8_t* bytes,
                   uint32_t* size) {
  *size = static_cast<uint32_t>(encode_packed_frame(&owned(handle)->state, samples, bytes));
  tell(owned(handle));
}

void encode_serial(G729EncoderState* handle, const int16_t* samples, int32_t rate,
                   uint16_t* serial) {
  SerialFrame frame;
  encode_serial_frame(&owned(handle)->state, samples, static_cast<Rate>(rate), &frame);
  serial[0] = frame.sync;
  serial[1] = frame.size;
  std::copy_n(frame.bits, frame.size, serial + 2);
  tell(owned(handle));
}

void decode_packed(G729DecoderState* handle, const uint8_t* bytes, uint32_t size,
                   int16_t* samples) {
  decode_packed_frame(&owned(handle)->state, bytes, size, samples);
  tell(owned(handle));
}

void decode_serial(G729DecoderState* handle, const uint16_t* serial, int16_t* samples) {
  SerialFrame frame = {serial[0], serial[1]};
  const int bits = static_cast<int16_t>(frame.size);
  std::copy_n(serial + 2, std::clamp(bits, 0, kMaxFrameBits), frame.bits);
  decode_serial_frame(&owned(handle)->state, &frame, samples);
  tell(owned(handle));
}

void conceal(G729DecoderState* handle, int16_t* samples) {
  conceal_frame(&owned(handle)->state, samples);
  tell(owned(handle));
}

}  // namespace

const Target target = {
#define KELG729F_STRING(x) #x
#define KELG729F_NAME(x) KELG729F_STRING(x)
    .name = KELG729F_NAME(KELG729F_TARGET),
    .encoder_create = create_encoder,
    .encoder_destroy = [](G729EncoderState* handle) { std::free(owned(handle)); },
    .set_complexity = [](G729EncoderState* handle,
                         int level) { owned(handle)->state.complexity = level; },
    .encode_packed = encode_packed,
    .encode_serial = encode_serial,
    .decoder_create = create_decoder,
    .decoder_destroy = [](G729DecoderState* handle) { std::free(owned(handle)); },
    .decode_packed = decode_packed,
    .decode_serial = decode_serial,
    .conceal = conceal,
};

}  // namespace KELG729F_TARGET
}  // namespace g729
