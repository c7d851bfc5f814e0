// The C interface: a handle remembers its build and hands every call to it.
#include "codec/g729.h"

#include <iterator>
#include <string_view>

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

struct Build {
  const Target* target;
  bool (*runs)();
};
constexpr Build kBuilds[] = {
#define X(name) {&name::target, runs::name},
    KELG729F_TARGETS
#undef X
};

// Made when the library is loaded.
struct TargetList {
  const Target* entry[std::size(kBuilds) + 1] = {};
  TargetList() {
    const Target** next = entry;
    for (const Build& build : kBuilds)
      if (build.runs()) *next++ = build.target;
  }
};
const TargetList kTargetList;

template <typename... Pointers>
bool any_null(const Pointers*... pointers) {
  return (... || (pointers == nullptr));
}

bool is_size_of_bytes(size_t size) {
  return size == 0 || size == G729_SID_BYTES || size == 8 || size == G729_SPEECH_BYTES;
}
bool is_size_of_words(uint16_t bits) {
  return bits == 0 || bits == 16 || bits == 64 || bits == 80 || bits == 118;
}

#define STRING(x) #x
#define VERSION_STRING(major, minor, micro) STRING(major) "." STRING(minor) "." STRING(micro)
constexpr char kVersion[] =
    VERSION_STRING(G729_VERSION_MAJOR, G729_VERSION_MINOR, G729_VERSION_MICRO);
static_assert(std::string_view(kVersion) == KELG729F_VERSION);

}  // namespace

const Target* const* supported_targets() {
  return kTargetList.entry;
}
const Target* best_target() {
  const Target* best = nullptr;
  for (const Build& build : kBuilds)
    if (build.runs()) best = build.target;
  return best;
}

}  // namespace g729

extern "C" {

const char* g729_version(void) {
  return g729::kVersion;
}

G729EncoderState* g729_encoder_create(int32_t annexb) {
  return g729::best_target()->encoder_create(annexb);
}

void g729_encoder_destroy(G729EncoderState* encoder) {
  if (encoder) encoder->target->encoder_destroy(encoder);
}

int32_t g729_encoder_set_complexity(G729EncoderState* encoder, int32_t complexity) {
  if (g729::any_null(encoder)) return G729_ERROR_NULL;
  if (complexity < 0 || complexity > G729_COMPLEXITY_MAX) return G729_ERROR_COMPLEXITY;
  encoder->target->set_complexity(encoder, complexity);
  return 0;
}

void g729_encoder_encode_frame(G729EncoderState* encoder, const int16_t* samples, uint8_t* bytes,
                               uint32_t* size) {
  encoder->target->encode_packed(encoder, samples, bytes, size);
}

void g729_encoder_encode_serial(G729EncoderState* encoder, const int16_t* samples, int32_t rate,
                                uint16_t* serial) {
  encoder->target->encode_serial(encoder, samples, rate, serial);
}

int32_t g729_encoder_encode_bytes(G729EncoderState* encoder, const int16_t* samples, uint8_t* bytes,
                                  size_t room) {
  if (g729::any_null(encoder, samples, bytes)) return G729_ERROR_NULL;
  if (room < G729_SPEECH_BYTES) return G729_ERROR_SIZE;
  uint32_t size;
  encoder->target->encode_packed(encoder, samples, bytes, &size);
  return static_cast<int32_t>(size);
}

int32_t g729_encoder_encode_words(G729EncoderState* encoder, const int16_t* samples, int32_t rate,
                                  uint16_t* words, size_t room) {
  if (g729::any_null(encoder, samples, words)) return G729_ERROR_NULL;
  if (rate < G729_RATE_6K4 || rate > G729_RATE_11K8) return G729_ERROR_RATE;
  if (room < 120) return G729_ERROR_SIZE;
  encoder->target->encode_serial(encoder, samples, rate, words);
  return 2 + words[1];
}

void g729_encoder_set_remark_function(G729EncoderState* encoder, G729RemarkFunction function,
                                      void* user) {
  encoder->remark = function;
  encoder->user = user;
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

int32_t g729_decoder_decode_bytes(G729DecoderState* decoder, const uint8_t* bytes, size_t size,
                                  int16_t* samples) {
  if (g729::any_null(decoder, samples) || (size > 0 && !bytes)) return G729_ERROR_NULL;
  if (!g729::is_size_of_bytes(size)) return G729_ERROR_SIZE;
  decoder->target->decode_packed(decoder, bytes, static_cast<uint32_t>(size), samples);
  return 0;
}

int32_t g729_decoder_decode_words(G729DecoderState* decoder, const uint16_t* words, size_t count,
                                  int16_t* samples) {
  if (g729::any_null(decoder, words, samples)) return G729_ERROR_NULL;
  if (count < 2 || !g729::is_size_of_words(words[1]) || count < 2u + words[1])
    return G729_ERROR_SIZE;
  decoder->target->decode_serial(decoder, words, samples);
  return 0;
}

void g729_decoder_conceal(G729DecoderState* decoder, int16_t* samples) {
  decoder->target->conceal(decoder, samples);
}

void g729_decoder_set_remark_function(G729DecoderState* decoder, G729RemarkFunction function,
                                      void* user) {
  decoder->remark = function;
  decoder->user = user;
}

}  // extern "C"
