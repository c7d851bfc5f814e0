// The codec's builds for the instruction sets, and which of them a handle runs.
#pragma once

#include <cstdint>

#include "codec/g729.h"

namespace g729 {

// One build of the codec core.
struct Target {
  const char* name;
  G729EncoderState* (*encoder_create)(int32_t annexb);
  void (*encoder_destroy)(G729EncoderState*);
  void (*set_complexity)(G729EncoderState*, int level);
  void (*encode_packed)(G729EncoderState*, const int16_t* samples, uint8_t* bytes, uint32_t* size);
  void (*encode_serial)(G729EncoderState*, const int16_t* samples, int32_t rate, uint16_t* serial);
  // Both create functions return null when there is no memory.
  G729DecoderState* (*decoder_create)();
  void (*decoder_destroy)(G729DecoderState*);
  void (*decode_packed)(G729DecoderState*, const uint8_t* bytes, uint32_t size, int16_t* samples);
  void (*decode_serial)(G729DecoderState*, const uint16_t* serial, int16_t* samples);
  void (*conceal)(G729DecoderState*, int16_t* samples);
};

// Builds that this processor runs, slowest first; a null pointer ends the list.
const Target* const* supported_targets();

// The build that new handles use: the last of the list. Its results are those of every other.
const Target* best_target();

}  // namespace g729

// What every handle begins with; the build's record follows it.
struct G729EncoderState {
  const g729::Target* target;
  G729RemarkFunction remark = nullptr;  // standard output
  void* user = nullptr;
};
struct G729DecoderState {
  const g729::Target* target;
  G729RemarkFunction remark = nullptr;
  void* user = nullptr;
};
