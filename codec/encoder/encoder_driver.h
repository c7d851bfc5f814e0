// One frame through the encoder (clause 3 and Annexes B, D, E).
#pragma once

#include <cstdint>
#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/parameter_set.h"
#include "codec/encoder/encoder_state.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Brings the record to its state at the start of a call; annexb switches silence compression on.
void encoder_core_init(EncoderCoreState* state, bool annexb);

// Encodes the samples. The frame counter is 1 for the first frame and goes on at 256 after 32767,
// so that the detector's start-up frames never come again.
using Samples = std::span<const int16_t, kFrame>;
ParameterSet encode_frame(EncoderCoreState* state, Samples samples, Rate rate);

// The same behind the pre-processing filter. rate may change from frame to frame; one that does not
// exist is fatal: "Unrecognized bit rate\n". The frame's local synthesis stands in
// state->synthesis[kSynthesisPast..] afterwards.
ParameterSet encoder_process_frame(EncoderCoreState* state, std::span<const double, kFrame> input,
                                   Rate rate);

}  // namespace KELG729F_TARGET
}  // namespace g729
