// The C interface: a handle remembers its build and hands every call to it.
#include "codec/g729.h"

#include "codec/dispatch.h"

// KELG729F_TARGETS is X(name) for every build, slowest first.
namespace g729 {

#define X(name)               \
  namespace name {            \
  extern const Target target; \
  }
KELG729F_TARGETS
#undef X

namespace {

// Instruction sets, by the build's name, that this processor and system run.
namespace runs {
[[maybe_unused]] bool plain() {
  return true;
}
[[maybe_unused]] bool generic() {
  return true;
}
[[maybe_unused]] bool sse2() {
  return true;
}
#if defined(__x86_64__)
[[maybe_unused]] bool avx2() {
  return __builtin_cpu_supports("avx2");
}
[[maybe_unused]] bool avx512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw");
}
#endif
}  // namespace runs

#define X(name) +1
constexpr int kTargets = 0 KELG729F_TARGETS;
#undef X

struct TargetList {
  const Target* entry[kTargets + 1] = {};
  int count = 0;
};

TargetList list_targets() {
  TargetList list;
#define X(name) \
  if (runs::name()) list.entry[list.count++] = &name::target;
  KELG729F_TARGETS
#undef X
  return list;
}

const TargetList& targets() {
  static const TargetList list = list_targets();
  return list;
}

}  // namespace

const Target* const* supported_targets() {
  return targets().entry;
}
const Target* best_target() {
  return targets().entry[targets().count - 1];
}

}  // namespace g729

extern "C" {

G729EncoderState* g729_encoder_create(int32_t annexb) {
  return g729::best_target()->encoder_create(annexb);
}

void g729_encoder_destroy(G729EncoderState* encoder) {
  if (encoder) encoder->target->encoder_destroy(encoder);
}

void g729_encoder_encode_frame(G729EncoderState* encoder, const int16_t* samples, uint8_t* bytes,
                               uint32_t* size) {
  encoder->target->encode_packed(encoder, samples, bytes, size);
}

void g729_encoder_encode_serial(G729EncoderState* encoder, const int16_t* samples, int32_t rate,
                                uint16_t* serial) {
  encoder->target->encode_serial(encoder, samples, rate, serial);
}

G729DecoderState* g729_decoder_create(void) {
  return g729::best_target()->decoder_create();
}

void g729_decoder_destroy(G729DecoderState* decoder) {
  if (decoder) decoder->target->decoder_destroy(decoder);
}

void g729_decoder_decode_frame(G729DecoderState* decoder, const uint8_t* bytes, uint32_t size,
                               int16_t* samples) {
  decoder->target->decode_packed(decoder, bytes, size, samples);
}

void g729_decoder_decode_serial(G729DecoderState* decoder, const uint16_t* serial,
                                int16_t* samples) {
  decoder->target->decode_serial(decoder, serial, samples);
}

}  // extern "C"
