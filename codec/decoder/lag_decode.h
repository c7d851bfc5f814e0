// Decoding of the pitch lag (clause 4.1.3 and Annex D).
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Lag of a subframe. The first one's index has 8 bits, first_t0 is null; the second one's, 5 bits,
// at 6.4 kbit/s 4 bits, is relative to the first one's integer lag.
PitchLag pitch_lag_decode(int index, const int* first_t0, FrameType type);

}  // namespace KELG729F_TARGET
}  // namespace g729
