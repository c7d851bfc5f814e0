// What the stages of one frame hand to each other; lives on the stack of the driver.
#pragma once

#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct DecodedFrame {
  FrameType type;  // after concealment of an erased frame's type
  bool erased;
  LpMode lp_mode;               // kForward but at 11.8 kbit/s
  int order;                    // LP order in force, 10 or 30
  int pitch_delay[kSubframes];  // integer lags; 0 in frames without speech
  // LP vectors of the subframes, order + 1 coefficients each, one behind the other.
  double az_out[kSubframes * kBackwardCoeffs];
  // What 1/A(z) is to filter: the excitation in the state or, dispersed at 6.4 kbit/s, here.
  const double* heard[kSubframes];
  double dispersed[kFrame];

  LpFilter filter(int subframe) const { return {az_out + subframe * (order + 1), order}; }
};

}  // namespace KELG729F_TARGET
}  // namespace g729
