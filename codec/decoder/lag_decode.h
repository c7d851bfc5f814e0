// Decoding of the pitch lag (clause 4.1.3 and Annex D).
#pragma once

#include "codec/dsp/pitch.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// First subframe, 8-bit index, all rates.
PitchLag pitch_lag_decode_first(int index);

// Second subframe, relative to the first one's integer lag: a 5-bit index, at 6.4 kbit/s 4 bits.
PitchLag pitch_lag_decode_second(int index, int first_t0, FrameType type);

}  // namespace KELG729F_TARGET
}  // namespace g729
