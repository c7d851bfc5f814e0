// The decoder's record and its frame operations.
#pragma once

#include <cstdint>

#include "codec/bitstream.h"
#include "codec/decoder/driver.h"
#include "codec/decoder/postfilter.h"
#include "codec/decoder/postprocess.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kInitialVoicing = 60;

struct DecoderHandle {
  DecoderCoreState core;
  PostFilterState postfilter;
  BiquadMemory postprocessing = {};
  alignas(kAlign) double synthesis_lead[lead(kSynthesisPast)] = {};
  double synthesis[kSynthesisBuffer] =
      {};  // past synthesis, then the frame's before the post-filter
  alignas(kAlign) double output[kFrame] = {};  // the frame after post-filter and high-pass
  DecodedFrame decoded;
  int32_t parameters[kDecoderWords] = {};
  int voicing = kInitialVoicing;  // long-term post-filter delay in the last frame, 0 without one
  // Post-filter factors that follow the 11.8 kbit/s mode.
  double gamma_d = 0.7;
  double gamma_n = 0.65;
  double gamma_h = 0.25;
  int previous_bits = kBits8k;  // bit count of the last frame
  uint32_t frame_counter = 0;   // frames decoded
};

// Brings a handle to its state at the start of a call.
void decoder_init(DecoderHandle* handle);

// Decodes a serial frame of any type, see g729_decoder_decode_serial(). Writes samples[80].
void decode_serial_frame(DecoderHandle* handle, const uint16_t* serial, int16_t* samples);

// Decodes `size` bytes as a frame of 8 * size bits (modulo 256); what is beyond it is not read.
// bytes may be null when size is 0. Writes samples[80].
void decode_packed_frame(DecoderHandle* handle, const uint8_t* bytes, uint32_t size,
                         int16_t* samples);

}  // namespace KELG729F_TARGET
}  // namespace g729
