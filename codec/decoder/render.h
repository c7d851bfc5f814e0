// From the excitation to the output: synthesis, post-filter, high-pass (clauses 4.1.6, 4.2).
#pragma once

#include "codec/decoder/decoded_frame.h"
#include "codec/decoder/decoder_state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Synthesizes the frame behind the past synthesis, follows the mode that its samples show and
// filters it into state->output. A signal that grows without end is dropped. state->voicing becomes
// the post-filter's delay.
void render(DecoderCoreState* state, const DecodedFrame& frame);

}  // namespace KELG729F_TARGET
}  // namespace g729
