// A screen before the search of the 8 kbit/s codebook.
//
// Single precision tells the best of some thousand candidates, unless another comes close: the
// sixteen fourth pulses of a triple at once, track 3 then track 4. The winner is taken only when
// every other candidate's bound lies below it, so it is the one that the search would have found.
#pragma once

#include "codec/encoder/acelp_8k_search.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Finds the winner among the first `budget` triples over the threshold; *tried becomes their
// number. False when another candidate comes too close to tell; the winner is undefined then.
bool screen_triples(const TripleSearch& s, int budget, int* tried, Winner* winner);

}  // namespace KELG729F_TARGET
}  // namespace g729
