#include "codec/encoder/acelp_8k.h"

#include <algorithm>

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
  TrackVector d;
  TrackVector sign;
  ImpulseCorrelation rr;
  double largest[3];  // of |d| on tracks 0, 1, 2
  double threshold;
  int time;
  BestCandidate best = {0.0, 1000000.0};
  int track[kPulses] = {0, 1, 2, 3};
  int place[kPulses] = {0, 0, 0, 0};  // position div 5
};

double largest_of(const double* x) {
  const double a = std::max(std::max(x[0], x[1]), std::max(x[2], x[3]));
  const double b = std::max(std::max(x[4], x[5]), std::max(x[6], x[7]));
  return std::max(a, b);
}

void set_threshold(Search* s) {
  const double mean = 0.125 * sum((load(s->d[0]) + load(s->d[1])) + load(s->d[2]));
  for (int t = 0; t < 3; ++t) s->largest[t] = largest_of(s->d[t]);
  const double max = s->largest[0] + s->largest[1] + s->largest[2];
  s->threshold = mean + kThresholdShare * (max - mean);
}

// What is known of a pair of pulses on tracks 0 and 1.
struct Pair {
  int p0, p1;
  double ps;  // correlation
  double energy;
  Vec8 cross[2];  // both pulses against track 3 and track 4
};

// The fourth pulse: track 3, then track 4.
KELG729F_VEC void search_fourth(Search* s, const Pair& pair, int p2, double ps2, double energy2) {
  for (int k = 0; k < 2; ++k) {
    const int t = 3 + k;
    const Vec8 ps = splat(ps2) + load(s->d[t]);
    const Vec8 energy =
        (splat(energy2) + load(s->rr.diagonal[t])) + (pair.cross[k] + load(s->rr.row[2][p2][t]));
    const int p3 = improve_best(ps, energy, &s->best);
    if (p3 < 0) continue;
    s->track[3] = t;
    const int place[kPulses] = {pair.p0, pair.p1, p2, p3};
    for (int i = 0; i < kPulses; ++i) s->place[i] = place[i];
  }
}

// All third pulses for a pair; false when the budget is used up.
KELG729F_VEC bool search_third(Search* s, int p0, int p1) {
  Pair pair = {p0, p1, s->d[0][p0] + s->d[1][p1], 0.0, {}};
  const Vec8 ps2 = splat(pair.ps) + load(s->d[2]);
  unsigned lanes = lanes_greater(ps2, splat(s->threshold));
  const auto& row0 = s->rr.row[0][p0];
  const auto& row1 = s->rr.row[1][p1];
  pair.energy = s->rr.diagonal[0][p0] + s->rr.diagonal[1][p1] + row0[1][p1];
  for (int k = 0; k < 2; ++k) pair.cross[k] = load(row0[3 + k]) + load(row1[3 + k]);
  double ps[kLanes], energy[kLanes];
  store(ps, ps2);
  store(energy, (splat(pair.energy) + load(s->rr.diagonal[2])) + (load(row0[2]) + load(row1[2])));
  for (; lanes != 0; lanes &= lanes - 1) {
    const int p2 = first_lane(lanes);
    search_fourth(s, pair, p2, ps[p2], energy[p2]);
    if (--s->time <= 0) return false;
  }
  return true;
}

// Pairs whose best third pulse stays below the threshold are left out; rounding is monotone, so
// none of their triples could have passed it.
void search_pulses(Search* s) {
  for (int p0 = 0; p0 < kTrackPositions; ++p0) {
    const Vec8 pairs = splat(s->d[0][p0]) + load(s->d[1]);
    unsigned lanes = lanes_greater(pairs + splat(s->largest[2]), splat(s->threshold));
    for (; lanes != 0; lanes &= lanes - 1)
      if (!search_third(s, p0, first_lane(lanes))) return;
  }
}

int write_codeword(const Search& s, const double* impulse, double* code, double* y,
                   int* sign_index) {
  int position[kPulses];
  double sign[kPulses];
  zero_vector(code, kSubframe);
  *sign_index = 0;
  for (int k = 0; k < kPulses; ++k) {
    position[k] = kTracks * s.place[k] + s.track[k];
    sign[k] = s.sign[s.track[k]][s.place[k]];
    code[position[k]] = sign[k];
    *sign_index |= (sign[k] > 0.0) << k;
  }
  filter_pulses(impulse, position, sign, kPulses, y);
  return s.place[0] | s.place[1] << 3 | s.place[2] << 6 | (s.track[3] - 3) << 9 | s.place[3] << 10;
}

}  // namespace

int acelp_search_17bit(const double* target, double* impulse, int t0, double pitch_sharp,
                       int subframe_start, double* code, double* y, int* sign_index,
                       int* fcb_extra) {
  Search s;
  double d[kSubframe];
  pitch_sharpen(impulse, t0, pitch_sharp);
  correlate_target_impulse(impulse, target, d);
  split_signs(d, s.d, s.sign);
  correlate_impulse(impulse, &s.rr, kFourPulses);
  fold_signs(s.sign, &s.rr, kFourPulses);
  set_threshold(&s);

  s.time = kBudget + (subframe_start == 0 ? kFirstExtra : *fcb_extra);
  search_pulses(&s);
  *fcb_extra = s.time;

  const int position_index = write_codeword(s, impulse, code, y, sign_index);
  pitch_sharpen(code, t0, pitch_sharp);
  return position_index;
}

}  // namespace g729::inline KELG729F_TARGET
