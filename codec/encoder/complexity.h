// How far the encoder searches. Level 0 decides stage by stage (clause 3); the levels above it keep
// several possibilities of every stage and let the weighted error of the whole frame decide. They
// find the spectrum (search_autocorrelation) and weigh the error (kSearchWeightingFactors) in their
// own way, too.
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kHighestComplexity = 3;

struct Effort {
  int spectrum_rows;              // first-stage rows of each predictor that get a second stage
  int spectra;                    // quantized spectra that the subframes decide between
  int lags[kSubframes];           // lags of each path
  int pairs[kSubframes];          // pairs of path and lag whose fixed codebook is searched
  int starts;                     // codewords that each of these searches refines
  int sweeps;                     // rounds of refining, pulse by pulse
  double threshold;               // share of the greatest correlations that a codeword must exceed
  int gain_searches[kSubframes];  // codewords, of all pairs together, whose gains are searched
  int survivors;                  // paths from the first subframe to the second
};

inline constexpr Effort kEffort[kHighestComplexity] = {
    // rows, spectra, lags, pairs, starts, sweeps, threshold, gains, survivors
    {4, 2, {2, 2}, {1, 1}, 2, 1, 0.2, {2, 2}, 1},
    {4, 3, {2, 2}, {4, 3}, 2, 1, 0.2, {8, 8}, 4},
    {8, 6, {4, 4}, {12, 11}, 4, 2, 0.1, {24, 16}, 10},
};

// What level 1 and above need at most.
inline constexpr int kMostSpectra = 6;
inline constexpr int kMostSurvivors = 10;
inline constexpr int kMostLags = 4;
inline constexpr int kMostPairs = 12;
inline constexpr int kMostStarts = 4;
inline constexpr int kMostGainSearches = 24;

}  // namespace KELG729F_TARGET
}  // namespace g729
