// A frame of speech from its spectrum on: lag, subframes, and what the next frame finds.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/parameter_set.h"
#include "codec/encoder/encoder_state.h"
#include "codec/encoder/frame_work.h"
#include "codec/encoder/joint_search.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Codes the frame whose weighted speech state->old_wsp holds. spectra is null where the stages
// decide one by one; otherwise the one chosen becomes that of w.
ParameterSet code_active_frame(EncoderCoreState* state, FrameWork* w, Rate rate,
                               const Spectra* spectra);

}  // namespace KELG729F_TARGET
}  // namespace g729
