// The excitation and the filters of a speech frame (clauses 4.1 and 4.4, Annexes D and E).
#pragma once

#include "codec/decoder/decoded_frame.h"
#include "codec/decoder/decoder_state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Decodes state->parameters, all but the new samples of the synthesis: leaves the excitation in the
// state, fills in order, pitch_delay, az_out and heard of *frame.
void decode_speech(DecoderCoreState* state, DecodedFrame* frame);

}  // namespace KELG729F_TARGET
}  // namespace g729
