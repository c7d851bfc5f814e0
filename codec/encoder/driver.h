// One frame through the encoder (clause 3 and Annexes B, D, E).
#pragma once

#include <cstdint>

#include "codec/encoder/state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Brings the record to its state at the start of a call.
void encoder_core_init(EncoderCoreState* state);

// Encodes input[80], pre-processed samples, into the parameter words: word[0] the frame type, the
// fields after it in the order of transmission. frame_counter is 1 for the first frame; dtx_enable
// is 1 when silence may go untransmitted; rate is a Rate and may change from frame to frame, any
// other value is fatal: "Unrecognized bit rate\n". The frame's local synthesis stands in
// state->synthesis[kSynthesisPast..] afterwards.
void encoder_process_frame(EncoderCoreState* state, const double* input, int32_t* word,
                           int frame_counter, int dtx_enable, int rate);

}  // namespace KELG729F_TARGET
}  // namespace g729
