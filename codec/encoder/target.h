// Weighted speech, the target of the codebook searches and the impulse response that they filter
// with (clauses 3.3, 3.5 and 3.6).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/encoder/frame_work.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// A(z/gamma1) and A(z/gamma2) of w.weighting, from w.gamma1 and w.gamma2.
void expand_bandwidth(FrameWork* w);

// wsp[0..79], the frame's weighted speech, from speech[-order..79]; wsp[-order..-1] is that of the
// samples before.
void weight_speech(const double* speech, const FrameWork& w, double* wsp);

// Subframe k's target xn[0..39], the LP residual through the weighted synthesis filter from the
// memories of the errors so far, and that filter's impulse response h[0..39]. The memories hold
// kBackwardOrder values, the newest last.
void find_target(const double* residual, const double* error_mem, const double* weighted_error_mem,
                 const FrameWork& w, int k, double* xn, double* h);

// The same, one filter after the other, for filters of any orders.
void find_target_plain(const double* residual, const double* error_mem,
                       const double* weighted_error_mem, const FrameWork& w, int k, double* xn,
                       double* h);

}  // namespace KELG729F_TARGET
}  // namespace g729
