// Several lags of a subframe (clause 3.7), for the codebooks to decide between.
#pragma once

#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/complexity.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct LagCandidate {
  PitchLag lag;
  double correlation;  // of target and filtered adaptive-codebook vector, its square the energy
                       // that the vector can take off the target's
};

// The `count` lags of greatest interpolated normalized correlation, the best first, among those
// that the subframe can send, which are kMostLags at least: what closed_loop_pitch finds the first
// of. Returns count.
int lag_candidates(const LagInput& in, int count, LagCandidate lag[kMostLags]);

}  // namespace KELG729F_TARGET
}  // namespace g729
