// The scan of the 8 kbit/s codebook: pairs of pulses that promise most.
#pragma once

#include "codec/encoder/complexity.h"
#include "codec/encoder/innovations_8k_search.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// A place where pulses are moved from: a pair of first and second pulses, 8 p0 + p1, and a fourth
// one, 8 (track - 3) + place.
struct Start {
  int pair, fourth;
};

// The up to `count` best starts with different fourth pulses, the best first; none where nothing
// exceeds the threshold. The ranking is for codewords whose criterion is about `level`.
int scan_starts(const InnovationSearch& s, double level, int count, Start start[kMostStarts]);

}  // namespace KELG729F_TARGET
}  // namespace g729
