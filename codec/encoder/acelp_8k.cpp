#include "codec/encoder/acelp_8k.h"

#include <algorithm>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/float_lanes.h"
#include "codec/dsp/pitch.h"
#include "codec/encoder/fixed_codebook.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr int kPulses = 4;
constexpr unsigned kAllLanes = (1U << kFloatLanes) - 1;  // fourth pulses of tracks 3 and 4
constexpr int kBudget = 75;       // triples a subframe
constexpr int kFirstExtra = 30;   // on top in the first subframe
constexpr double kThresholdShare = 0.4;

// Most fourth pulses are far from winning, which single precision tells: the sixteen candidates of a
// triple at once, track 3 then track 4. Correlations come scaled so that four add up to 1 at most.
// Every energy is a sum of terms whose magnitudes add up to 16 times that of the response, so the
// margin, some 1000 units of its last place, is well above all rounding.
struct Screen {
  static constexpr double kMargin = 0x1p-14;  // of the response's energy
  double scale;
  alignas(kVectorAlign) float d[kFloatLanes];
  // What the fourth pulse adds to the energy alone and with third pulse [p2], less the margin.
  alignas(kVectorAlign) float energy[kTrackPositions][kFloatLanes];
};

struct Search {
  alignas(kVectorAlign) TrackVector d;
  alignas(kVectorAlign) TrackVector sign;
  ImpulseCorrelation rr;
  double threshold;
  Screen screen;
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

void set_screen(Search* s) {
  Screen* const screen = &s->screen;
  double largest = 0.0;
  for (const auto& track : s->d) largest = std::max(largest, largest_of(track));
  screen->scale = largest > 0.0 ? 0.25 / largest : 0.0;
  const Vec8 scale = splat(screen->scale);
  store(screen->d, narrow(load(s->d[3]) * scale, load(s->d[4]) * scale));
  const Vec8 margin = splat(Screen::kMargin * s->rr.diagonal[0][0]);
  const Vec8 third = load(s->rr.diagonal[3]) - margin, fourth = load(s->rr.diagonal[4]) - margin;
  for (int p2 = 0; p2 < kTrackPositions; ++p2) {
    const auto& row = s->rr.row[2][p2];
    store(screen->energy[p2], narrow(third + load(row[3]), fourth + load(row[4])));
  }
}

// The pairs of first and second pulses that some third pulse lifts over the threshold: bit
// 8 p0 + p1. Rounding is monotone, so the track's largest correlation tells for all of it.
KELG729F_VEC uint64_t promising_pairs(const Search& s) {
  const Vec8 d1 = load(s.d[1]), largest2 = splat(largest_of(s.d[2])),
             threshold = splat(s.threshold);
  uint64_t pairs = 0;
#pragma GCC unroll 8
  for (int p0 = 0; p0 < kTrackPositions; ++p0) {
    const Vec8 ps = (splat(s.d[0][p0]) + d1) + largest2;
    pairs |= static_cast<uint64_t>(lanes_greater(ps, threshold)) << (kLanes * p0);
  }
  return pairs;
}

// Up to eight pairs of first and second pulses with all third pulses of each, for the screen.
struct Triples {
  int p0[kLanes], p1[kLanes];
  alignas(kVectorAlign) float ps_energy[kLanes][2 * kTrackPositions];  // by p2: scaled sum of d,
                                                                       // then energy
  alignas(kVectorAlign) float cross[kLanes][kFloatLanes];  // of the pair with the fourth pulse
  uint64_t passing;  // over the threshold: bit 8 pair + p2
};

// Sum of d of the pulses p0, p1 and every p2, and their energy.
struct Third {
  Vec8 ps, energy;
};
KELG729F_VEC Third third_pulses(const Search& s, int p0, int p1) {
  const auto &row0 = s.rr.row[0][p0], &row1 = s.rr.row[1][p1];
  const double energy = s.rr.diagonal[0][p0] + s.rr.diagonal[1][p1] + row0[1][p1];
  return {splat(s.d[0][p0] + s.d[1][p1]) + load(s.d[2]),
          (splat(energy) + load(s.rr.diagonal[2])) + (load(row0[2]) + load(row1[2]))};
}

KELG729F_VEC void add_pair(const Search& s, int p0, int p1, int pair, Triples* triples) {
  const auto &row0 = s.rr.row[0][p0], &row1 = s.rr.row[1][p1];
  const Third third = third_pulses(s, p0, p1);
  store(triples->ps_energy[pair], narrow(third.ps * splat(s.screen.scale), third.energy));
  store(triples->cross[pair], narrow(load(row0[3]) + load(row1[3]), load(row0[4]) + load(row1[4])));
  triples->p0[pair] = p0;
  triples->p1[pair] = p1;
  triples->passing |= static_cast<uint64_t>(lanes_greater(third.ps, splat(s.threshold)))
                      << (kLanes * pair);
}

// Takes the first eight pairs; returns the others.
uint64_t collect_triples(const Search& s, uint64_t pairs, Triples* triples) {
  triples->passing = 0;
  for (int pair = 0; pair < kLanes && pairs != 0; ++pair, pairs &= pairs - 1) {
    const int first = __builtin_ctzll(pairs);
    add_pair(s, first / kLanes, first % kLanes, pair, triples);
  }
  return pairs;
}

// Tries a triple with the fourth pulses whose lanes are set, in order: each against the best of
// those before it.
void try_fourth(const Search& s, int p0, int p1, int p2, unsigned lanes, Winner* winner) {
  const auto &row0 = s.rr.row[0][p0], &row1 = s.rr.row[1][p1], &row2 = s.rr.row[2][p2];
  const double ps3 = (s.d[0][p0] + s.d[1][p1]) + s.d[2][p2];
  const double energy2 = s.rr.diagonal[0][p0] + s.rr.diagonal[1][p1] + row0[1][p1];
  const double energy3 = (energy2 + s.rr.diagonal[2][p2]) + (row0[2][p2] + row1[2][p2]);
  for (; lanes != 0; lanes &= lanes - 1) {
    const int track = 3 + first_lane(lanes) / kTrackPositions;
    const int p3 = first_lane(lanes) % kTrackPositions;
    const double ps = ps3 + s.d[track][p3], square = ps * ps;
    const double cross = (row0[track][p3] + row1[track][p3]) + row2[track][p3];
    const double energy = (energy3 + s.rr.diagonal[track][p3]) + cross;
    if (square * winner->best.energy > winner->best.square * energy)
      *winner = {{square, energy}, track, {p0, p1, p2, p3}};
  }
}

// The best candidate's criterion, on the screen's scale.
Float16 screen_bar(const Screen& screen, const BestCandidate& best) {
  return splat(static_cast<float>(best.square * (screen.scale * screen.scale) / best.energy));
}

// The fourth pulse for the triples given, in order.
void search_fourth(const Search& s, const Triples& triples, uint64_t passing, Winner* winner) {
  const Float16 d = load(s.screen.d);
  Float16 bar = screen_bar(s.screen, winner->best);
  for (; passing != 0; passing &= passing - 1) {
    const int lowest = __builtin_ctzll(passing);
    const int pair = lowest / kLanes, p2 = lowest % kLanes;
    const float* const third = triples.ps_energy[pair] + p2;
    const Float16 ps = splat(third[0]) + d;
    const Float16 energy = (splat(third[kTrackPositions]) + load(triples.cross[pair])) +
                           load(s.screen.energy[p2]);
    const unsigned left = lanes_above(ps * ps, bar * energy);
    if (left == 0) [[likely]]
      continue;
    try_fourth(s, triples.p0[pair], triples.p1[pair], p2, left, winner);
    bar = screen_bar(s.screen, winner->best);
  }
}

// The lowest n of the bits set.
uint64_t lowest_bits(uint64_t bits, int n) {
  uint64_t rest = bits;
  for (; n > 0; --n) rest &= rest - 1;
  return bits ^ rest;
}

// All triples in order until `time` of them had their fourth pulse searched; returns what is left.
int search_triples(const Search& s, uint64_t pairs, int time, Winner* winner) {
  Triples triples;
  while (pairs != 0 && time > 0) {
    pairs = collect_triples(s, pairs, &triples);
    const int count = __builtin_popcountll(triples.passing);
    search_fourth(s, triples, count <= time ? triples.passing : lowest_bits(triples.passing, time),
                  winner);
    time = std::max(time - count, 0);
  }
  return time;
}

int largest_place(const double* d) {
  return first_lane(~lanes_greater(splat(largest_of(d)), load(d)));
}

// The best fourth pulse for the three largest correlations; kStart when they pass no threshold.
BestCandidate strongest_triple(const Search& s) {
  const int p0 = largest_place(s.d[0]), p1 = largest_place(s.d[1]), p2 = largest_place(s.d[2]);
  Winner winner;
  if ((s.d[0][p0] + s.d[1][p1]) + s.d[2][p2] > s.threshold)
    try_fourth(s, p0, p1, p2, kAllLanes, &winner);
  return winner.best;
}

// A candidate that becomes the best for a while costs far more time than one that does not. So the
// search starts with a bar just below a candidate known to be strong. Whatever stays under the bar
// would have lost to that candidate by more than rounding can turn, so the winner is the same. When
// the time runs out before anything reaches the bar, the search starts anew without it.
int search_pulses(const Search& s, int budget, Winner* winner) {
  constexpr double kBelow = 1.0 - 1e-12;
  const uint64_t pairs = promising_pairs(s);
  const BestCandidate bar = strongest_triple(s);
  winner->best = {bar.square * kBelow, bar.energy};
  const int time = search_triples(s, pairs, budget, winner);
  if (winner->best.square * bar.energy >= bar.square * winner->best.energy) return time;
  *winner = {};
  return search_triples(s, pairs, budget, winner);
}

int write_codeword(const Search& s, const Winner& winner, const PaddedImpulse& impulse,
                   double* code, double* y, int* sign_index) {
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
  const PaddedImpulse padded = pad_impulse(impulse);
  impulse_energies(impulse, &s.rr);
  correlate_target_impulse(impulse, target, d);
  split_signs(d, s.d, s.sign);
  set_threshold(&s);
  correlate_impulse(impulse, s.sign, &s.rr, kFourPulses);
  set_screen(&s);

  Winner winner;
  const int budget = kBudget + (subframe_start == 0 ? kFirstExtra : *fcb_extra);
  *fcb_extra = search_pulses(s, budget, &winner);
  const int position_index = write_codeword(s, winner, padded, code, y, sign_index);
  pitch_sharpen(code, t0, pitch_sharp);
  return position_index;
}

}  // namespace g729::inline KELG729F_TARGET
