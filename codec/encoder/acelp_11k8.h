// Fixed codebooks of the 11.8 kbit/s mode (Annex E): 10 pulses, two a track, in forward frames; 12
// pulses, three on two neighbouring tracks and two on the others, in backward frames.
#pragma once

#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/parameter_set.h"
#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Searches the innovation of one subframe with the codebook of lp_mode; impulse[0] must be 1.
// Several pulses on one position have one sign and add up.
//
// Writes the five words in transmission order. A word is the pulses of one track: their places
// (position div 5) in bits 0-2, 4-6 and 7-9, and bit 3, set when the first pulse is negative.
// Each further pulse has the opposite sign of the one before it when it stands on a greater
// position, otherwise the same sign. Forward words belong to tracks 0 to 4 and hold two pulses;
// backward words start at the track that stands in bits 10-12 of the first word and go round, the
// first two holding three pulses.
void acelp_search_118(LpMode lp_mode, const InnovationInput& in, Innovation* innovation,
                      std::span<int, kMaxCodeWords> words);

}  // namespace KELG729F_TARGET
}  // namespace g729
