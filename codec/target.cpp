// One build's entry points.
#include "codec/decoder_handle.h"
#include "codec/dispatch.h"
#include "codec/encoder_handle.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

struct Encoder : G729EncoderState {
  EncoderHandle handle;
};
struct Decoder : G729DecoderState {
  DecoderHandle handle;
};

EncoderHandle* handle_of(G729EncoderState* s) {
  return &static_cast<Encoder*>(s)->handle;
}
DecoderHandle* handle_of(G729DecoderState* s) {
  return &static_cast<Decoder*>(s)->handle;
}

G729EncoderState* create_encoder(int32_t annexb);
G729DecoderState* create_decoder();

}  // namespace

extern const Target target = {
#define KELG729F_STRING(x) #x
#define KELG729F_NAME(x) KELG729F_STRING(x)
    KELG729F_NAME(KELG729F_TARGET),
    create_encoder,
    [](G729EncoderState* s) { delete static_cast<Encoder*>(s); },
    [](G729EncoderState* s, const int16_t* samples, uint8_t* bytes, uint32_t* size) {
      encode_packed_frame(handle_of(s), samples, bytes, size);
    },
    [](G729EncoderState* s, const int16_t* samples, int32_t rate, uint16_t* serial) {
      encode_serial_frame(handle_of(s), samples, rate, serial);
    },
    create_decoder,
    [](G729DecoderState* s) { delete static_cast<Decoder*>(s); },
    [](G729DecoderState* s, const uint8_t* bytes, uint32_t size, int16_t* samples) {
      decode_packed_frame(handle_of(s), bytes, size, samples);
    },
    [](G729DecoderState* s, const uint16_t* serial, int16_t* samples) {
      decode_serial_frame(handle_of(s), serial, samples);
    },
};

namespace {

G729EncoderState* create_encoder(int32_t annexb) {
  auto* s = new Encoder{{&target}, {}};
  encoder_init(&s->handle, annexb != 0);
  return s;
}

G729DecoderState* create_decoder() {
  auto* s = new Decoder{{&target}, {}};
  decoder_init(&s->handle);
  return s;
}

}  // namespace

}  // namespace KELG729F_TARGET
}  // namespace g729
