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
  TrackVector d;
  TrackVector sign;
  ImpulseCorrelation rr;
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
  const double max = largest_of(s->d[0]) + largest_of(s->d[1]) + largest_of(s->d[2]);
  s->threshold = mean + kThresholdShare * (max - mean);
}

// The triples with one first pulse that pass the threshold: bit 8 p1 + p2.
KELG729F_VEC uint64_t passing_triples(const Search& s, int p0) {
  const Vec8 threshold = splat(s.threshold);
  const Vec8 d2 = load(s.d[2]);
  uint64_t triples = 0;
  for (int p1 = 0; p1 < kTrackPositions; ++p1) {
    const Vec8 ps2 = splat(s.d[0][p0] + s.d[1][p1]) + d2;
    triples |= static_cast<uint64_t>(lanes_greater(ps2, threshold)) << (kLanes * p1);
  }
  return triples;
}

// The fourth pulse for three given ones: track 3, then track 4. One branch covers both tracks, and
// only when a candidate of either beats the best are they gone through in order.
KELG729F_VEC void search_fourth(Search* s, int p0, int p1, int p2) {
  const auto& rr = s->rr;
  const auto& row0 = rr.row[0][p0];
  const auto& row1 = rr.row[1][p1];
  const auto& row2 = rr.row[2][p2];
  const double ps2 = s->d[0][p0] + s->d[1][p1] + s->d[2][p2];
  const double energy1 = rr.diagonal[0][p0] + rr.diagonal[1][p1] + row0[1][p1];
  const double energy2 = energy1 + rr.diagonal[2][p2] + (row0[2][p2] + row1[2][p2]);
  Vec8 ps[2], energy[2];
  unsigned better = 0;
  for (int k = 0; k < 2; ++k) {
    const int t = 3 + k;
    ps[k] = splat(ps2) + load(s->d[t]);
    energy[k] =
        (splat(energy2) + load(rr.diagonal[t])) + ((load(row0[t]) + load(row1[t])) + load(row2[t]));
    better |= lanes_better(ps[k] * ps[k], energy[k], s->best);
  }
  if (better == 0) [[likely]]
    return;
  for (int k = 0; k < 2; ++k) {
    const int p3 = improve_best(ps[k], energy[k], &s->best);
    if (p3 < 0) continue;
    s->track[3] = 3 + k;
    s->place[0] = p0;
    s->place[1] = p1;
    s->place[2] = p2;
    s->place[3] = p3;
  }
}

void search_pulses(Search* s) {
  for (int p0 = 0; p0 < kTrackPositions; ++p0)
    for (uint64_t triples = passing_triples(*s, p0); triples != 0; triples &= triples - 1) {
      const int lowest = __builtin_ctzll(triples);
      search_fourth(s, p0, lowest / kLanes, lowest % kLanes);
      if (--s->time <= 0) return;
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
  correlate_impulse(impulse, &s.rr, kFourPulses);
  split_signs(d, s.d, s.sign);
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
