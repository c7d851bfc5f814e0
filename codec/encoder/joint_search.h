// A frame coded by delayed decision: several spectra, lags, innovations and gains are kept, and the
// weighted error of both subframes together decides. Every frame ends with one path.
#pragma once

#include <span>

#include "codec/encoder/adaptive_codebook.h"
#include "codec/encoder/complexity.h"
#include "codec/encoder/encoder_state.h"
#include "codec/encoder/frame_work.h"
#include "codec/encoder/lsp_candidates.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// The frame's quantized spectra, the best first.
struct Spectra {
  int count;
  LspCandidate candidate[kMostSpectra];
  double filter[kMostSpectra][kSubframes * kCoeffs];  // a[0..10] of both subframes
};

// Quantizes the LSFs of a frame (radians, increasing) in several ways; the best one goes to w.
void find_spectra(const EncoderCoreState& state, std::span<const double, kOrder> lsf, FrameWork* w,
                  Spectra* spectra);

// Codes both subframes of a forward frame and moves every memory past them, but for those of the
// spectrum; the one chosen goes to w. range holds the first subframe's lags. w->quantized is left
// as it happens to be.
void search_jointly(EncoderCoreState* state, FrameWork* w, const Spectra& spectra, Rate rate,
                    LagRange range, SubframeParameters coded[kSubframes]);

}  // namespace KELG729F_TARGET
}  // namespace g729
