// One frame through the decoder (clause 4 and Annexes B, D, E).
#pragma once

#include <cstdint>
#include <span>

#include "codec/decoder/decoder_state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Brings the record to its state at the start of a call.
void decoder_core_init(DecoderCoreState* state);

// Decodes state->parameters into samples[80]; when the frame is erased, its type is replaced by the
// one that is concealed. Remarks kWrongPitch when a good frame's parity is wrong and
// conceals its first lag.
void decode_frame(DecoderCoreState* state, bool erased, int16_t* samples);

}  // namespace KELG729F_TARGET
}  // namespace g729
