// Fixed codebook of the 6.4 kbit/s mode: two pulses, 11 bits (Annex D).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Searches the innovation of one subframe over all 512 pairs of positions; arguments as for
// acelp_search_17bit. Both pulses may stand on one position, whose sample is then +2 or -2. Writes
// the 2-bit sign index and returns the 9-bit position index.
int acelp_search_11bit(const double* target, double* impulse, int t0, double pitch_sharp,
                       double* code, double* y, int* sign_index);

}  // namespace KELG729F_TARGET
}  // namespace g729
