// LSF codebooks of clause 3.2.4: two stages, radians.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kFirstStage = 128;   // rows of the first-stage codebook
inline constexpr int kSecondStage = 32;   // rows of the second-stage codebook
inline constexpr int kHalf = kOrder / 2;  // columns 0..4 lower half, 5..9 upper half

extern const double kLspFirstStage[kFirstStage][kOrder];
extern const double kLspSecondStage[kSecondStage][kOrder];

// A codebook for searches over sixteen rows at once in single precision: block[b][j][i] is column j
// of row 16 b + i, half_square[b][i] half the sum of that row's squares.
template <int Rows>
struct CodebookBlocks {
  static constexpr int kCount = Rows / 16;
  alignas(64) float block[kCount][kOrder][16];
  alignas(64) float half_square[kCount][16];
};
inline constexpr double kFirstStageMost = 3.0;   // no first-stage entry is as large
inline constexpr double kHalfSquareMost = 23.0;  // nor half the square sum of a row
inline constexpr double kSecondStageMost = 0.5;  // nor a second-stage entry in magnitude
extern const CodebookBlocks<kFirstStage> kLspFirstStageBlocks;
extern const CodebookBlocks<kSecondStage> kLspSecondStageBlocks;

}  // namespace KELG729F_TARGET
}  // namespace g729
