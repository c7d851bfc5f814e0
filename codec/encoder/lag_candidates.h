// Several lags of a subframe (clause 3.7), for the codebooks to decide between.
#pragma once

#include <span>

#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/complexity.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct LagCandidate {
  PitchLag lag;
  double correlation;  // of target and filtered adaptive-codebook vector, its square the energy
                       // that the vector can take off the target's
};

// Fills `lags`, kMostLags of them at most, with those of greatest interpolated normalized
// correlation, the best first, among what the subframe can send: what closed_loop_pitch finds the
// first of.
void lag_candidates(const LagInput& in, std::span<LagCandidate> lags);

}  // namespace KELG729F_TARGET
}  // namespace g729
