// What the search of the 8 kbit/s codebook and the screen before it share.
#pragma once

#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kPulses17 = 4;
inline constexpr int kBudget = 75;      // triples a subframe
inline constexpr int kFirstExtra = 30;  // on top in the first subframe
inline constexpr int kMostTriples = kBudget + kBudget + kFirstExtra;

// A search in preparation.
struct TripleSearch {
  alignas(kVectorAlign) TrackVector d;  // magnitudes of the backward-filtered target
  alignas(kVectorAlign) TrackVector sign;
  ImpulseCorrelation rr;
  double threshold;  // what the first three pulses' correlation must exceed
};

// The best candidate so far and its pulses.
struct Winner {
  BestCandidate best = {0.0, 1000000.0};
  int fourth_track = 3;
  int place[kPulses17] = {};  // position div 5
};

// What the correlation of the first three pulses must exceed: `share` of the way from its mean to
// its greatest value.
double pulse_threshold(const TrackVector d, double share);

// Largest of a track's eight values.
double largest_of(const double* x);

// Tries the triple 64 p0 + 8 p1 + p2 with the fourth pulses first..last, 8 (track - 3) + place, in
// order: each against the best of those before it.
inline void try_fourth(const TripleSearch& s, int triple, int first, int last, Winner* winner) {
  const int p0 = triple / 64, p1 = triple / 8 % 8, p2 = triple % 8;
  const auto &row0 = s.rr.row[0][p0], &row1 = s.rr.row[1][p1], &row2 = s.rr.row[2][p2];
  const double ps3 = (s.d[0][p0] + s.d[1][p1]) + s.d[2][p2];
  const double energy2 = s.rr.diagonal[0][p0] + s.rr.diagonal[1][p1] + row0[1][p1];
  const double energy3 = (energy2 + s.rr.diagonal[2][p2]) + (row0[2][p2] + row1[2][p2]);
  for (int i = first; i <= last; ++i) {
    const int track = 3 + i / kTrackPositions, p3 = i % kTrackPositions;
    const double ps = ps3 + s.d[track][p3], square = ps * ps;
    const double cross = (row0[track][p3] + row1[track][p3]) + row2[track][p3];
    const double energy = (energy3 + s.rr.diagonal[track][p3]) + cross;
    if (square * winner->best.energy > winner->best.square * energy)
      *winner = {{square, energy}, track, {p0, p1, p2, p3}};
  }
}

}  // namespace KELG729F_TARGET
}  // namespace g729
