// One 40-sample subframe of an active frame, analysis by synthesis (clauses 3.5 to 3.10), and its
// counterpart in silence.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/parameter_set.h"
#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/encoder_state.h"
#include "codec/encoder/frame_work.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Codes subframe k (0, 1) of the frame at the front of the state's buffers and moves every memory
// past it. range holds the first subframe's lags; coding it sets the second's.
SubframeParameters code_subframe(EncoderCoreState* state, const FrameWork& w, int k, Rate rate,
                                 LagRange* range);

// Synthesizes subframe k of comfort noise, whose excitation stands in the state, and leaves the
// error memories as coding it would have.
void synthesize_noise_subframe(EncoderCoreState* state, const FrameWork& w, int k);

// Shifts the recent pitch gains, which the music detector watches.
void push_pitch_gain(EncoderCoreState* state, double gain);

}  // namespace KELG729F_TARGET
}  // namespace g729
