// One frame between samples and its coded forms: what a build of the codec offers.
#pragma once

#include <cstdint>

#include "codec/bitstream.h"
#include "codec/decoder/decoder_driver.h"
#include "codec/decoder/decoder_state.h"
#include "codec/dsp/constants.h"
#include "codec/encoder/encoder_driver.h"
#include "codec/encoder/encoder_state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Encodes samples[80] at `rate` into a serial frame.
void encode_serial_frame(EncoderCoreState* state, const int16_t* samples, Rate rate,
                         SerialFrame* serial);

// Encodes samples[80] at 8 kbit/s into 10, 2 or 0 bytes, whose number it returns.
int encode_packed_frame(EncoderCoreState* state, const int16_t* samples, uint8_t* bytes);

// Decodes a serial frame of any type into samples[80]. It is erased when a bit word is, and one
// without bits when its sync word is wrong. Words beyond its size are not read; what is read of it
// may be rewritten.
void decode_serial_frame(DecoderCoreState* state, SerialFrame* serial, int16_t* samples);

// Decodes a frame of which nothing came.
void conceal_frame(DecoderCoreState* state, int16_t* samples);

// Decodes `size` bytes as a frame of 8 * size bits (modulo 256) into samples[80]; what is beyond it
// is not read. bytes may be null when size is 0.
void decode_packed_frame(DecoderCoreState* state, const uint8_t* bytes, uint32_t size,
                         int16_t* samples);

}  // namespace KELG729F_TARGET
}  // namespace g729
