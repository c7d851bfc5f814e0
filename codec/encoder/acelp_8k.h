// Fixed codebook of the 8 kbit/s mode: four pulses, 17 bits (clause 3.8).
#pragma once

#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Searches the innovation of one subframe; returns 13 bits of positions and 4 of signs.
//
// At most 75 plus *fcb_extra position triples get their fourth pulse searched; what is left of
// the budget goes into *fcb_extra for the next subframe. subframe_start is 0 or 40; at 0 the extra
// is 30 whatever *fcb_extra holds.
PulseWords acelp_search_17bit(const InnovationInput& in, int subframe_start, int* fcb_extra,
                              Innovation* innovation);

}  // namespace KELG729F_TARGET
}  // namespace g729
