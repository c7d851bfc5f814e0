// MA predictors of the LSF quantizer (clause 3.2.4) and of silence descriptors (Annex B).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// An MA predictor of the LSF vector with what follows from its coefficients, column by column.
struct LspPredictor {
  double coefficient[kMaOrder][kOrder];  // newest vector first
  double sum[kOrder];                    // 1 - (c0 + c1 + c2 + c3)
  double inverse[kOrder];                // 1 / sum
};
inline constexpr int kPredictorModes = 2;
extern const LspPredictor kSpeechPredictor[kPredictorModes];
extern const LspPredictor kNoisePredictor[kPredictorModes];  // of silence descriptors

}  // namespace KELG729F_TARGET
}  // namespace g729
