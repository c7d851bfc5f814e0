// Impulse responses of the phase dispersion (Annex D).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// An impulse response, all-pass under circular convolution of 40 samples, as two periods:
// h[k + 40] = h[k].
struct DispersionResponse {
  double h[2 * kSubframe];
};
extern const DispersionResponse kDispersionResponse[2];  // strong, medium

}  // namespace KELG729F_TARGET
}  // namespace g729
