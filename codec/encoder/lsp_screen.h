// A screen before the search of the LSF codebooks: which rows may be nearest to a target.
//
// Single precision scores sixteen rows at once and leaves those within its rounding error of the
// least score, most often one. So the nearest row in double precision is always among them.
#pragma once

#include <bit>
#include <cstdint>

#include "codec/dsp/constants.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Rows that the screen leaves, one at least: bit i of word[w] is row 64 w + i.
struct NearRows {
  uint64_t word[kFirstStage / 64];
};

// The rows within `margin` of the least score, sixteen scores a vector.
template <int kBlocks>
KELG729F_VEC NearRows rows_within(const Float16 (&score)[kBlocks], float margin) {
  Float16 least = score[0];
  for (int b = 1; b < kBlocks; ++b) least = smaller(least, score[b]);
  const Float16 limit = splat(smallest_lane(least) + margin);
  constexpr int kBlocksOfWord = 64 / kFloatLanes;
  NearRows near = {};
  for (int b = 0; b < kBlocks; ++b)
    near.word[b / kBlocksOfWord] |= uint64_t{lanes_at_most(score[b], limit)}
                                    << (b % kBlocksOfWord * kFloatLanes);
  return near;
}

inline int lowest_row(const NearRows& near) {
  const auto [low, high] = near.word;
  return low ? std::countr_zero(low) : 64 + std::countr_zero(high);
}

// First-stage rows that may be nearest to each mode's target.
void screen_first_stage(const double target[kPredictorModes][kOrder],
                        NearRows near[kPredictorModes]);

// Second-stage rows whose columns from..from+4 may be nearest, weighted, to what the first stage
// leaves in each mode.
void screen_half(const double rest[kPredictorModes][kOrder], const double* weight, int from,
                 NearRows near[kPredictorModes]);

}  // namespace KELG729F_TARGET
}  // namespace g729
