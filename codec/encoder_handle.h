// The encoder's record and its frame operations.
#pragma once

#include <cstdint>

#include "codec/bitstream.h"
#include "codec/dsp/constants.h"
#include "codec/encoder/driver.h"
#include "codec/encoder/preprocess.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct EncoderHandle {
  BiquadMemory preprocessing = {};
  EncoderCoreState core;
  alignas(kAlign) double input[kFrame] = {};  // the frame, pre-processed in place
  int32_t parameters[kEncoderWords] = {};
  int32_t dtx_enabled = 0;
  int32_t frame_counter = 0;
};

// Brings a handle to its state at the start of a call; annexb switches silence compression on.
void encoder_init(EncoderHandle* handle, bool annexb);

// Encodes samples[80] at `rate` into a serial frame.
void encode_serial_frame(EncoderHandle* handle, const int16_t* samples, int rate, uint16_t* serial);

// Encodes samples[80] at 8 kbit/s into 10, 2 or 0 bytes; with 0 the bytes are not touched.
void encode_packed_frame(EncoderHandle* handle, const int16_t* samples, uint8_t* bytes,
                         uint32_t* size);

}  // namespace KELG729F_TARGET
}  // namespace g729
