// A screen before the search of the LSF codebooks: which rows may be nearest to a target.
//
// Single precision scores sixteen rows at once and leaves those within its rounding error of the
// least score, most often one. So the nearest row in double precision is always among them.
#pragma once

#include <cstdint>

#include "codec/dsp/constants.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dsp/tables/lsp_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Rows that the screen leaves, one at least: bit i of word[w] is row 64 w + i.
struct NearRows {
  uint64_t word[kFirstStage / 64];
};

// First-stage rows that may be nearest to each mode's target.
void screen_first_stage(const double target[kPredictorModes][kOrder],
                        NearRows near[kPredictorModes]);

// Second-stage rows whose columns from..from+4 may be nearest, weighted, to what the first stage
// leaves in each mode.
void screen_half(const double rest[kPredictorModes][kOrder], const double* weight, int from,
                 NearRows near[kPredictorModes]);

}  // namespace KELG729F_TARGET
}  // namespace g729
