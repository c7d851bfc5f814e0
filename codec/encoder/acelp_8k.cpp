#include "codec/encoder/acelp_8k.h"

#include <algorithm>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/encoder/fixed_codebook.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr int kPulses = 4;
constexpr int kBudget = 75;      // triples a subframe
constexpr int kFirstExtra = 30;  // on top in the first subframe
constexpr double kThresholdShare = 0.4;

struct Search {
  alignas(kVectorAlign) TrackVector d;
  alignas(kVectorAlign) TrackVector sign;
  ImpulseCorrelation rr;
  double threshold;
};

constexpr BestCandidate kStart = {0.0, 1000000.0};

// The best candidate so far and its pulses.
struct Winner {
  BestCandidate best = kStart;
  int fourth_track = 3;
  int place[kPulses] = {};  // position div 5
};

double largest_of(const double* x) {
  const double a = std::max(std::max(x[0], x[1]), std::max(x[2], x[3]));
  const double b = std::max(std::max(x[4], x[5]), std::max(x[6], x[7]));
  return std::max(a, b);
}

void set_threshold(Search* s) {
  const double mean = 0.125 * sum((load(s->d[0]) + load(s->d[1])) + load(s->d[2]));
  const double max = largest_of(s->d[0]) + largest_of(s->d[1]) + largest_of(s->d[2]);
  s->threshold = mean + kThresholdShare * (max - mean);
}

// All pairs of second and third pulses that go with one first pulse, [p1][p2].
struct Triples {
  alignas(kVectorAlign) double ps[kTrackPositions][kTrackPositions];
  alignas(kVectorAlign) double energy[kTrackPositions][kTrackPositions];
};

// The triples that pass the threshold: bit 8 p1 + p2.
KELG729F_VEC uint64_t correlate_triples(const Search& s, int p0, Triples* triples) {
  const Vec8 threshold = splat(s.threshold);
  const Vec8 d2 = load(s.d[2]);
  uint64_t passing = 0;
  for (int p1 = 0; p1 < kTrackPositions; ++p1) {
    const Vec8 ps = splat(s.d[0][p0] + s.d[1][p1]) + d2;
    store(triples->ps[p1], ps);
    passing |= static_cast<uint64_t>(lanes_greater(ps, threshold)) << (kLanes * p1);
  }
  return passing;
}

KELG729F_VEC void add_energies(const Search& s, int p0, Triples* triples) {
  const auto& row0 = s.rr.row[0][p0];
  const Vec8 diagonal2 = load(s.rr.diagonal[2]), cross02 = load(row0[2]);
  for (int p1 = 0; p1 < kTrackPositions; ++p1) {
    const double energy1 = s.rr.diagonal[0][p0] + s.rr.diagonal[1][p1] + row0[1][p1];
    store(triples->energy[p1], (splat(energy1) + diagonal2) + (cross02 + load(s.rr.row[1][p1][2])));
  }
}

// The fourth pulse for three given ones: the candidates of track 3, then those of track 4.
KELG729F_VEC void search_fourth(const Search& s, double ps2, double energy2, int p0, int p1, int p2,
                                Winner* winner) {
  Vec8 ps[2], energy[2];
  for (int k = 0; k < 2; ++k) {
    const int t = 3 + k;
    const Vec8 cross =
        (load(s.rr.row[0][p0][t]) + load(s.rr.row[1][p1][t])) + load(s.rr.row[2][p2][t]);
    ps[k] = splat(ps2) + load(s.d[t]);
    energy[k] = (splat(energy2) + load(s.rr.diagonal[t])) + cross;
  }
  const int fourth = improve_best<2>(ps, energy, &winner->best);
  if (fourth < 0) return;
  winner->fourth_track = 3 + fourth / kTrackPositions;
  winner->place[0] = p0;
  winner->place[1] = p1;
  winner->place[2] = p2;
  winner->place[3] = fourth % kTrackPositions;
}

// All triples in order until `time` of them had their fourth pulse searched; returns what is left.
int search_triples(const Search& s, int time, Winner* winner) {
  Triples triples;
  for (int p0 = 0; p0 < kTrackPositions; ++p0) {
    uint64_t passing = correlate_triples(s, p0, &triples);
    if (passing == 0) continue;
    add_energies(s, p0, &triples);
    for (; passing != 0; passing &= passing - 1) {
      const int lowest = __builtin_ctzll(passing);
      const int p1 = lowest / kLanes, p2 = lowest % kLanes;
      search_fourth(s, triples.ps[p1][p2], triples.energy[p1][p2], p0, p1, p2, winner);
      if (--time <= 0) return 0;
    }
  }
  return time;
}

int largest_place(const double* d) {
  return first_lane(~lanes_greater(splat(largest_of(d)), load(d)));
}

// The best fourth pulse for the three largest correlations; kStart when they pass no threshold.
BestCandidate strongest_triple(const Search& s) {
  const int p0 = largest_place(s.d[0]), p1 = largest_place(s.d[1]), p2 = largest_place(s.d[2]);
  const auto& rr = s.rr;
  const double ps2 = s.d[0][p0] + s.d[1][p1] + s.d[2][p2];
  const double energy2 = rr.diagonal[0][p0] + rr.diagonal[1][p1] + rr.diagonal[2][p2] +
                         (rr.row[0][p0][1][p1] + rr.row[0][p0][2][p2] + rr.row[1][p1][2][p2]);
  Winner winner;
  if (ps2 > s.threshold) search_fourth(s, ps2, energy2, p0, p1, p2, &winner);
  return winner.best;
}

// A candidate that becomes the best for a while costs far more time than one that does not. So the
// search starts with a bar just below a candidate known to be strong. Whatever stays under the bar
// would have lost to that candidate by more than rounding can turn, so the winner is the same. When
// the time runs out before anything reaches the bar, the search starts anew without it.
int search_pulses(const Search& s, int budget, Winner* winner) {
  constexpr double kBelow = 1.0 - 1e-12;
  const BestCandidate bar = strongest_triple(s);
  winner->best = {bar.square * kBelow, bar.energy};
  const int time = search_triples(s, budget, winner);
  if (winner->best.square * bar.energy >= bar.square * winner->best.energy) return time;
  *winner = {};
  return search_triples(s, budget, winner);
}

int write_codeword(const Search& s, const Winner& winner, const double* impulse, double* code,
                   double* y, int* sign_index) {
  const int* place = winner.place;
  int position[kPulses];
  double sign[kPulses];
  zero_vector(code, kSubframe);
  *sign_index = 0;
  for (int k = 0; k < kPulses; ++k) {
    const int track = k == 3 ? winner.fourth_track : k;
    position[k] = kTracks * place[k] + track;
    sign[k] = s.sign[track][place[k]];
    code[position[k]] = sign[k];
    *sign_index |= (sign[k] > 0.0) << k;
  }
  filter_pulses(impulse, position, sign, kPulses, y);
  return place[0] | place[1] << 3 | place[2] << 6 | (winner.fourth_track - 3) << 9 | place[3] << 10;
}

}  // namespace

int acelp_search_17bit(const double* target, double* impulse, int t0, double pitch_sharp,
                       int subframe_start, double* code, double* y, int* sign_index,
                       int* fcb_extra) {
  Search s;
  double d[kSubframe];
  pitch_sharpen(impulse, t0, pitch_sharp);
  correlate_target_impulse(impulse, target, d);
  correlate_impulse(impulse, &s.rr, kFourPulses);
  split_signs(d, s.d, s.sign);
  fold_signs(s.sign, &s.rr, kFourPulses);
  set_threshold(&s);

  Winner winner;
  const int budget = kBudget + (subframe_start == 0 ? kFirstExtra : *fcb_extra);
  *fcb_extra = search_pulses(s, budget, &winner);
  const int position_index = write_codeword(s, winner, impulse, code, y, sign_index);
  pitch_sharpen(code, t0, pitch_sharp);
  return position_index;
}

}  // namespace g729::inline KELG729F_TARGET
