#include "codec/encoder/acelp_11k8.h"

#include <cmath>
#include <cstddef>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/algebraic_tables.h"
#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kForwardPulses = 10;
constexpr int kBackwardPulses = 12;
constexpr int kMaxPerTrack = 3;
constexpr double kResidualShare = 2.0;  // of the residual-domain target in the choice of signs

struct TrackSearch {
  TrackVector d;  // backward-filtered target times the signs
  TrackVector sign;
  TrackVector merit;  // what the signs were taken from, in magnitude: how promising a position is
  ImpulseCorrelation rr;
};

// The pulses placed so far and what another one would add to the energy.
struct PulseSet {
  double ps = 0.0;
  double energy = 0.0;
  Vec8 cross[kTracks] = {};
  int pulses = 0;
  int track[kBackwardPulses];
  int place[kBackwardPulses];
};

// x with impulse response h becomes the innovation that would meet the target exactly.
void deconvolve(const double* h, const double* target, double* x) {
  double work[2 * kSubframe] = {};
  double tail[2 * kSubframe] = {};
  copy_vector(target, work, kSubframe);
  copy_vector(h + 1, tail, kSubframe - 1);
  for (int n = 0; n < kSubframe; ++n) {
    x[n] = work[n];
    const Vec8 scale = splat(x[n]);
    for (int k = 0; n + 1 + k < kSubframe; k += kLanes) {
      double* rest = work + n + 1 + k;
      store(rest, load(rest) - scale * load(tail + k));
    }
  }
}

// Signs from a mix of the backward-filtered target, which ignores how pulses interfere, with the
// residual-domain target, which knows no noise shaping.
void choose_signs(const double* impulse, const double* target, TrackSearch* s) {
  double d[kSubframe], residual[kSubframe], mix[kSubframe];
  correlate_target_impulse(impulse, target, d);
  deconvolve(impulse, target, residual);
  const double norm_d = 1.0 / std::sqrt(dot(d, d, kSubframe) + 0.01);
  const double norm_r = kResidualShare / std::sqrt(dot(residual, residual, kSubframe) + 0.01);
  for (int n = 0; n < kSubframe; ++n) mix[n] = norm_d * d[n] + norm_r * residual[n];
  split_signs(mix, s->merit, s->sign);
  for (int t = 0; t < kTracks; ++t)
    for (int p = 0; p < kTrackPositions; ++p) s->d[t][p] = d[kTracks * p + t] * s->sign[t][p];
}

void add_pulse(const TrackSearch& s, int t, int p, PulseSet* set) {
  double cross[kLanes];
  store(cross, set->cross[t]);
  set->ps += s.d[t][p];
  set->energy += s.rr.diagonal[t][p] + cross[p];
  for (int u = 0; u < kTracks; ++u) set->cross[u] = set->cross[u] + load(s.rr.row[t][p][u]);
  set->track[set->pulses] = t;
  set->place[set->pulses++] = p;
}

// The candidates of one lane compete from row to row without a branch; the lanes meet at the end.
struct LaneWinners {
  Vec8 square = splat(0.0);
  Vec8 energy = splat(1e38);
  Vec8 row = splat(0.0);
};

KELG729F_VEC void compete(Vec8 correlation, Vec8 energy, int row, LaneWinners* best) {
  // A negative correlation is no match, however large.
  const Vec8 positive = select(splat(0.0) < correlation, correlation, splat(0.0));
  const Vec8 square = positive * positive;
  const auto better = best->square * energy < square * best->energy;
  best->square = select(better, square, best->square);
  best->energy = select(better, energy, best->energy);
  best->row = select(better, splat(static_cast<double>(row)), best->row);
}

KELG729F_VEC int winning_lane(const LaneWinners& best) {
  double merit[kLanes];
  store(merit, best.square / best.energy);
  int winner = 0;
  for (int k = 1; k < kLanes; ++k) winner = merit[k] > merit[winner] ? k : winner;
  return winner;
}

void add_best_pulse(const TrackSearch& s, int t, PulseSet* set) {
  LaneWinners best;
  compete(splat(set->ps) + load(s.d[t]),
          splat(set->energy) + (load(s.rr.diagonal[t]) + set->cross[t]), 0, &best);
  add_pulse(s, t, winning_lane(best), set);
}

void add_best_pair(const TrackSearch& s, int t0, int t1, PulseSet* set) {
  double energy0[kLanes], row[kLanes];
  store(energy0, splat(set->energy) + (load(s.rr.diagonal[t0]) + set->cross[t0]));
  const Vec8 energy1 = load(s.rr.diagonal[t1]) + set->cross[t1];
  const Vec8 d1 = load(s.d[t1]);
  LaneWinners best;
  for (int p = 0; p < kTrackPositions; ++p)
    compete(splat(set->ps + s.d[t0][p]) + d1,
            splat(energy0[p]) + (energy1 + load(s.rr.row[t0][p][t1])), p, &best);
  const int lane = winning_lane(best);
  store(row, best.row);
  add_pulse(s, t0, static_cast<int>(row[lane]), set);
  add_pulse(s, t1, lane, set);
}

int most_promising(const double* merit) {
  int best = 0;
  for (int p = 1; p < kTrackPositions; ++p)
    if (merit[p] > merit[best]) best = p;
  return best;
}

// Pulse k goes to track first + k: two rounds of the tracks, and the backward codebook's last two
// pulses to the first two tracks again.
PulseSet search_from(const TrackSearch& s, int first, int pulses) {
  PulseSet set;
  add_pulse(s, first, most_promising(s.merit[first]), &set);
  add_best_pulse(s, (first + 1) % kTracks, &set);
  while (set.pulses < pulses) {
    const int t = first + set.pulses;
    add_best_pair(s, t % kTracks, (t + 1) % kTracks, &set);
  }
  return set;
}

PulseSet search_pulses(const TrackSearch& s, int pulses) {
  PulseSet best = search_from(s, 0, pulses);
  for (int first = 1; first < kTracks; ++first) {
    const PulseSet set = search_from(s, first, pulses);
    if (set.ps > 0.0 && set.ps * set.ps * best.energy > best.ps * best.ps * set.energy) best = set;
  }
  return best;
}

struct SignedPulse {
  int place;
  bool negative;
};

// Whether b, sent after a, is understood with its sign.
bool may_follow(SignedPulse a, SignedPulse b) {
  return (b.place > a.place) == (a.negative != b.negative);
}

int pack(const SignedPulse* p, int n) {
  int word = p[0].place | p[0].negative << 3 | p[1].place << 4;
  if (n == kMaxPerTrack) word |= p[2].place << 7;
  return word;
}

// One track's pulses in an order that tells their signs; some order always does, because pulses
// of one position have one sign.
int track_word(const SignedPulse* p, int n) {
  static constexpr int kOrders[][kMaxPerTrack] = {{0, 1, 2}, {1, 0, 2}, {0, 2, 1},
                                                  {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  SignedPulse sent[kMaxPerTrack] = {};
  for (int k = 0; k < (n == kMaxPerTrack ? 6 : 2); ++k) {
    bool valid = true;
    for (int i = 0; i < n; ++i) {
      sent[i] = p[kOrders[k][i]];
      valid = valid && (i == 0 || may_follow(sent[i - 1], sent[i]));
    }
    if (valid) break;
  }
  return pack(sent, n);
}

void write_words(LpMode lp_mode, const TrackSearch& s, const PulseSet& set, std::span<int> words) {
  SignedPulse pulse[kTracks][kMaxPerTrack];
  int count[kTracks] = {};
  for (int k = 0; k < set.pulses; ++k) {
    const int t = set.track[k], p = set.place[k];
    pulse[t][count[t]++] = {p, s.sign[t][p] < 0.0};
  }
  const int first = lp_mode == kBackward ? set.track[0] : 0;
  for (int w = 0; w < kMaxCodeWords; ++w) {
    const int t = (first + w) % kTracks;
    words[static_cast<size_t>(w)] = track_word(pulse[t], count[t]);
  }
  if (lp_mode == kBackward) words[0] |= first << 10;
}

}  // namespace

void acelp_search_118(LpMode lp_mode, const InnovationInput& in, Innovation* innovation,
                      std::span<int, kMaxCodeWords> words) {
  TrackSearch s;
  double* const impulse = in.impulse.data();
  pitch_sharpen(impulse, in.t0, in.pitch_sharp);
  const PaddedImpulse padded = pad_impulse(impulse);
  impulse_energies(impulse, &s.rr);
  choose_signs(impulse, in.target.data(), &s);
  correlate_impulse(impulse, s.sign, &s.rr, kAllPairs);
  const PulseSet set = search_pulses(s, lp_mode == kBackward ? kBackwardPulses : kForwardPulses);
  write_words(lp_mode, s, set, words);

  int position[kBackwardPulses];
  double sign[kBackwardPulses];
  zero_vector(innovation->code, kSubframe);
  for (int k = 0; k < set.pulses; ++k) {
    position[k] = kTracks * set.place[k] + set.track[k];
    sign[k] = s.sign[set.track[k]][set.place[k]];
    innovation->code[position[k]] += sign[k];
  }
  filter_pulses(padded, position, sign, set.pulses, innovation->y);
  pitch_sharpen(innovation->code, in.t0, in.pitch_sharp);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
