// Fixed codebook of the 8 kbit/s mode: four pulses, 17 bits (clause 3.8).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Searches the innovation of one subframe. target[40] is what the adaptive codebook left over;
// impulse[40], the weighted synthesis filter's response, is pitch-sharpened in place with lag t0
// and gain pitch_sharp. Writes code[40] (sharpened too), y[40], the unsharpened innovation through
// the sharpened response, and the 4-bit sign index; returns the 13-bit position index.
//
// At most 75 plus *fcb_extra position triples get their fourth pulse searched; what is left of
// the budget goes into *fcb_extra for the next subframe. subframe_start is 0 or 40; at 0 the extra
// is 30 whatever *fcb_extra holds.
int acelp_search_17bit(const double* target, double* impulse, int t0, double pitch_sharp,
                       int subframe_start, double* code, double* y, int* sign_index,
                       int* fcb_extra);

}  // namespace KELG729F_TARGET
}  // namespace g729
