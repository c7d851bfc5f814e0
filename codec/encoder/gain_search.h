// The gains of a subframe by trying every pair of the codebook (clause 3.9.2).
#pragma once

#include "codec/dsp/gain_predictor.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct GainChoice {
  double error;  // that of gain_quantizer.h
  int index;     // as sent
  Gains gains;
  double factor;  // correction of the predicted gain
};

// The pair of least error for the terms c[0..4] (gain_quantizer.h) and the predicted gain g0. With
// tame_flag pairs of pitch gain 0.9999 and above are left out.
GainChoice search_gains(const double* c, double g0, bool tame_flag);
GainChoice search_gains_6k4(const double* c, double g0, bool tame_flag);

}  // namespace KELG729F_TARGET
}  // namespace g729
