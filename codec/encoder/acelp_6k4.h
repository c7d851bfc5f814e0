// Fixed codebook of the 6.4 kbit/s mode: two pulses, 11 bits (Annex D).
#pragma once

#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Searches the innovation of one subframe over all 512 pairs of positions; returns 9 bits of
// positions and 2 of signs. Both pulses may stand on one position, whose sample is then +2 or -2.
PulseWords acelp_search_11bit(const InnovationInput& in, Innovation* innovation);

}  // namespace KELG729F_TARGET
}  // namespace g729
