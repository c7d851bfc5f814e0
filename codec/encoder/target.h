// Weighted speech, the target of the codebook searches and the impulse response that they filter
// with (clauses 3.3, 3.5 and 3.6).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/encoder/frame_work.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// A(z/gamma1) and A(z/gamma2) of w.weighting, from w.factors.
void expand_bandwidth(FrameWork* w);

// wsp[0..79], the frame's weighted speech, from speech[-order..79]; wsp[-order..-1] is that of the
// samples before.
void weight_speech(const double* speech, const FrameWork& w, double* wsp);

// The ends of the errors so far, kBackwardOrder values each, the newest last.
struct ErrorMemory {
  double error[kBackwardOrder] = {};           // speech - undispersed synthesis
  double weighted_error[kBackwardOrder] = {};  // xn - g_p y1 - g_c y2
};

// Subframe k's target xn[0..39], the LP residual through the weighted synthesis filter from the
// memories of the errors so far, and that filter's impulse response h[0..39].
void find_target(const double* residual, const ErrorMemory& mem, const FrameWork& w, int k,
                 double* xn, double* h);

// The same, one filter after the other, for filters of any orders.
void find_target_plain(const double* residual, const ErrorMemory& mem, const FrameWork& w, int k,
                       double* xn, double* h);

}  // namespace KELG729F_TARGET
}  // namespace g729
