// A frame without speech (Annex B): descriptor or nothing, and noise through the memories of
// speech.
#pragma once

#include "codec/dsp/parameter_set.h"
#include "codec/encoder/encoder_state.h"
#include "codec/encoder/frame_work.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// w->forward_q becomes the filters of the noise.
ParameterSet code_inactive_frame(EncoderCoreState* state, FrameWork* w);

}  // namespace KELG729F_TARGET
}  // namespace g729
