// What the fixed-codebook searches of all rates share (clause 3.8): correlations, signs, the best
// candidate so far and the filtered innovation.
//
// Inside the searches everything is kept in track order: a value of position n stands at
// [n mod 5][n div 5], so that the eight positions of a track are one Vec8.
#pragma once

#include <span>

#include "codec/dsp/constants.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/algebraic_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

static_assert(kTrackPositions == kLanes, "a track is one vector");

// What a search starts from. impulse is pitch-sharpened in place, with the lag t0.
struct InnovationInput {
  Subframe target;                       // what the adaptive codebook left over
  std::span<double, kSubframe> impulse;  // response of the weighted synthesis filter
  int t0;
  double pitch_sharp;
};

// What it finds.
struct Innovation {
  alignas(kAlign) double code[kSubframe];  // sharpened
  alignas(kAlign) double y[kSubframe];     // unsharpened, through the sharpened response
};

// The words of the codebooks of 6.4 and 8 kbit/s.
struct PulseWords {
  int position_index, sign_index;
};

using TrackVector = double[kTracks][kTrackPositions];
inline constexpr int kVectorAlign = kLanes * sizeof(double);

// d[n] = sum_{i=n..39} target[i] impulse[i-n], n = 0..39: the backward-filtered target.
void correlate_target_impulse(const double* impulse, const double* target, double* d);

// Correlations of the impulse response, rr(i, j) = sum_{k=0..39-max(i,j)} h[k] h[k + |i-j|], ready
// for a search to add: the cross terms come multiplied by 2 sign(i) sign(j). row[t][p][u][q]
// belongs to the positions 5 p + t and 5 q + u, diagonal[t][p] to 5 p + t alone.
struct ImpulseCorrelation {
  alignas(kVectorAlign) TrackVector diagonal;
  alignas(kVectorAlign) TrackVector row[kTracks][kTrackPositions];
};

// Fills the diagonal.
void impulse_energies(const double* impulse, ImpulseCorrelation* rr);

// The rows that correlate_impulse fills.
enum CorrelationLayout : int {
  kAllPairs = 0,    // every row
  kFourPulses = 1,  // rows of tracks 0, 1 and 2, each against the tracks above its own
  kTwoPulses = 2    // rows of tracks 1 and 3 against tracks 0, 1, 2 and 4
};
void correlate_impulse(const double* impulse, const TrackVector sign, ImpulseCorrelation* rr,
                       CorrelationLayout layout);

// The signs fixed before a search, +1 where d[n] >= 0 and -1 elsewhere, and |d|; both in track
// order.
void split_signs(const double* d, TrackVector magnitude, TrackVector sign);

// The best candidate so far: its squared correlation and its energy.
struct BestCandidate {
  double square;
  double energy;
};

// Compares 8 n candidates with the best, n <= 4, in order, each with the best of those before it:
// one replaces it when its correlation^2 * best energy > best square * its energy. Returns the
// index of the last one that did, -1 when none did. Most often none does, and that costs a single
// branch.
template <int n>
KELG729F_VEC int improve_best(const Vec8* correlation, const Vec8* energy, BestCandidate* best) {
  Vec8 square[n];
  for (int k = 0; k < n; ++k) square[k] = correlation[k] * correlation[k];
  const auto lanes_better = [&] {
    unsigned better = 0;
    for (int k = 0; k < n; ++k)
      better |= lanes_greater(square[k] * splat(best->energy), splat(best->square) * energy[k])
                << (kLanes * k);
    return better;
  };
  unsigned better = lanes_better();
  if (better == 0) [[likely]]
    return -1;
  double squares[n * kLanes], energies[n * kLanes];
  for (int k = 0; k < n; ++k) {
    store(squares + k * kLanes, square[k]);
    store(energies + k * kLanes, energy[k]);
  }
  int winner;
  do {
    winner = first_lane(better);
    *best = {squares[winner], energies[winner]};
    better = lanes_better() & (~1U << winner);  // of those behind it
  } while (better != 0);
  return winner;
}

// An impulse response after as many zeros: readable from any pulse position on. Made well before
// it is used, or its vectors are still on their way to memory.
struct PaddedImpulse {
  alignas(kAlign) double zeros[kSubframe];
  double h[kSubframe];
};
PaddedImpulse pad_impulse(const double* impulse);

// y[n] = sum_k sign[k] impulse[n - position[k]], n = 0..39, in the order of k.
void filter_pulses(const PaddedImpulse& impulse, const int* position, const double* sign,
                   int pulses, double* y);

}  // namespace KELG729F_TARGET
}  // namespace g729
