#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/across.h"
#include "codec/encoder/innovations.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// The criterion. With the gains of both codebooks free, the innovation c takes (d c)^2 / (c' R c)
// off the error's energy, where d and R are what correlations of target and impulse response become
// when the adaptive vector's share is projected out of them:
//
//   d[n] = <x, h_n> - <x, y1> u[n],  R(i, j) = rr(i, j) - <y1, y1> u[i] u[j],  u[n] = <y1, h_n> /
//   <y1, y1>.
//
// A share of R is left in where an innovation resembles y1 so much that nothing else would remain.

constexpr int kPulses = 4;
constexpr double kLeastEnergy = 0x1p-12;
constexpr double kProjected = 1.0 - 0x1p-10;
constexpr double kResidualShare = 1.0;  // of the innovation wanted in the choice of signs

// All values have the signs folded in that the scan fixes.
struct Search {
  alignas(kVectorAlign) TrackVector d;
  alignas(kVectorAlign) TrackVector sign;
  ImpulseCorrelation rr;
  double threshold;
};

struct Pulse {
  int track, place;
  double flip;  // -1 when its sign is not the one that the scan fixed, else 1
};
struct Codeword {
  Pulse pulse[kPulses];
  double ps, energy;
};

void to_tracks(const double* x, TrackVector y) {
  for (int t = 0; t < kTracks; ++t)
    store(y[t], from_lanes([&](int p) { return x[kTracks * p + t]; }));
}

// Signs from a mix of d, which ignores how pulses interfere, with the innovation wanted, which
// knows no noise shaping.
void choose_signs(const double* d, const double* wanted, TrackVector sign) {
  double mix[kSubframe];
  TrackVector magnitude;
  const double norm_d = 1.0 / std::sqrt(dot(d, d, kSubframe) + 0.01);
  const double norm_w = kResidualShare / std::sqrt(dot(wanted, wanted, kSubframe) + 0.01);
  for (int n = 0; n < kSubframe; ++n) mix[n] = norm_d * d[n] + norm_w * wanted[n];
  split_signs(mix, magnitude, sign);
}

double largest_of(const double* x) {
  double most = x[0];
  for (int i = 1; i < kTrackPositions; ++i) most = std::max(most, x[i]);
  return most;
}

void set_threshold(double share, Search* s) {
  const double mean = 0.125 * sum((load(s->d[0]) + load(s->d[1])) + load(s->d[2]));
  const double max = largest_of(s->d[0]) + largest_of(s->d[1]) + largest_of(s->d[2]);
  s->threshold = mean + share * (max - mean);
}

// Takes the projection out of the correlations.
void project(const TrackVector u, double yy, ImpulseCorrelation* rr) {
  const double scale = kProjected * yy;
  for (int t = 0; t < kTracks; ++t)
    store(rr->diagonal[t], load(rr->diagonal[t]) - splat(scale) * load(u[t]) * load(u[t]));
  for (int t = 0; t < 3; ++t)
    for (int p = 0; p < kTrackPositions; ++p) {
      const Vec8 factor = splat(2.0 * scale * u[t][p]);
      for (int k = t + 1; k < kTracks; ++k)
        store(rr->row[t][p][k], load(rr->row[t][p][k]) - factor * load(u[k]));
    }
}

void prepare(const JointTarget& in, const double* h, double share, Search* s) {
  alignas(kAlign) double d[kSubframe], u[kSubframe], wanted[kSubframe];
  correlate_target_impulse(h, in.xn, d);
  correlate_target_impulse(h, in.y1, u);
  for (int n = 0; n < kSubframe; ++n) {
    u[n] /= in.yy;
    d[n] -= in.xy * u[n];
    wanted[n] = in.residual[n] - (n >= in.t0 ? in.sharp * in.residual[n - in.t0] : 0.0);
  }
  choose_signs(d, wanted, s->sign);
  alignas(kVectorAlign) TrackVector tracks;
  to_tracks(d, s->d);
  to_tracks(u, tracks);
  for (int t = 0; t < kTracks; ++t) {
    store(s->d[t], load(s->d[t]) * load(s->sign[t]));
    store(tracks[t], load(tracks[t]) * load(s->sign[t]));
  }
  impulse_energies(h, &s->rr);
  correlate_impulse(h, s->sign, &s->rr, kFourPulses);
  project(tracks, in.yy, &s->rr);
  set_threshold(share, s);
}

// The scan: sixteen fourth pulses at once, track 3 then track 4, in single precision, behind all
// pairs of first and second pulses above the threshold with all third ones. It ranks by
// (d c)^2 - level c' R c, which is positive where the criterion exceeds the level. With
// a = d p0 + d p1 + d p2 and E the energies of what its arguments share,
//
//   (d c)^2 - level c' R c = [a^2 - level E(p0, p1, p2)] + 2 a d[p3]
//                            + [d[p3]^2 - level E(p2, p3)] - level E(p0, p1; p3).
//
// less kShift, which leaves nothing near 0: correlations come scaled so that four add up to 1 at
// most. Each lane keeps its best pair, whose number stands in the last bits; the third pulse is
// found again afterwards.
constexpr unsigned kPairBits = 6;
constexpr double kLevelAboveGreedy = 1.05;  // where the best codewords are
constexpr double kShift = 2.0;
constexpr float kNothing = -0x1p126F;
using Float8 = Lanes<float, kLanes>;
struct Scan {
  // Lanes 0..7 the correlation, lanes 8..15 the energy: a first pulse [0] with every third one, and
  // what a second one [1] adds to that.
  alignas(kVectorAlign) float third[2][kTrackPositions][kFloatLanes];
  alignas(kVectorAlign) float with[2][kTrackPositions][kFloatLanes];  // E(p0; p3), E(p1; p3)
  alignas(kVectorAlign) float fourth[kTrackPositions][kFloatLanes];   // by third pulse
  alignas(kVectorAlign) float pair[kTrackPositions][kTrackPositions];
  alignas(kVectorAlign) float d[kFloatLanes];  // 2 d[p3]
};

void set_scan(const Search& s, double level, Scan* scan) {
  double largest = 0.0;
  for (const auto& track : s.d)
    for (const double d : track) largest = std::max(largest, std::fabs(d));
  const double unit = largest > 0.0 ? 0.25 / largest : 0.0;
  const Vec8 scale = splat(unit), cost = splat(level * unit * unit);
  const auto& diagonal = s.rr.diagonal;
  const Vec8 d3 = load(s.d[3]) * scale, d4 = load(s.d[4]) * scale;
  store(scan->d, narrow(d3 + d3, d4 + d4));
  for (int p = 0; p < kTrackPositions; ++p) {
    const auto &row0 = s.rr.row[0][p], &row1 = s.rr.row[1][p], &row2 = s.rr.row[2][p];
    store(scan->third[0][p],
          narrow((splat(s.d[0][p]) + load(s.d[2])) * scale,
                 ((splat(diagonal[0][p]) + load(diagonal[2])) + load(row0[2])) * cost));
    store(scan->third[1][p],
          narrow(splat(s.d[1][p]) * scale, (splat(diagonal[1][p]) + load(row1[2])) * cost));
    store(scan->with[0][p], narrow(load(row0[3]) * cost, load(row0[4]) * cost));
    store(scan->with[1][p], narrow(load(row1[3]) * cost, load(row1[4]) * cost));
    store(scan->fourth[p], narrow(d3 * d3 - (load(diagonal[3]) + load(row2[3])) * cost,
                                  d4 * d4 - (load(diagonal[4]) + load(row2[4])) * cost));
  }
  for (int p = 0; p < kTrackPositions; p += 2)
    store(scan->pair[p], narrow(load(s.rr.row[0][p][1]) * cost + splat(kShift),
                                load(s.rr.row[0][p + 1][1]) * cost + splat(kShift)));
}

KELG729F_VEC Float16 scan_third(const Scan& scan, int p0, int p1) {
  const Float16 third = load(scan.third[0][p0]) + load(scan.third[1][p1]);
  alignas(kVectorAlign) float a[kTrackPositions], alone[kTrackPositions];
  const Float8 sum = low(third);
  store(a, sum);
  store(alone, sum * sum - (high(third) + splat_as<Float8>(scan.pair[p0][p1])));
  const Float16 d = load(scan.d);
  Float16 best = splat(kNothing);
#pragma GCC unroll 8
  for (int p2 = 0; p2 < kTrackPositions; ++p2)
    best = larger(splat(a[p2]) * d + (splat(alone[p2]) + load(scan.fourth[p2])), best);
  return best - (load(scan.with[0][p0]) + load(scan.with[1][p1]));
}

Float16 scan_pairs(const Search& s, const Scan& scan) {
  const Vec8 threshold = splat(s.threshold - largest_of(s.d[2])), d1 = load(s.d[1]);
  Float16 best = splat(kNothing);
  for (int p0 = 0; p0 < kTrackPositions; ++p0)
    for (unsigned passing = lanes_greater(splat(s.d[0][p0]) + d1, threshold); passing != 0;
         passing &= passing - 1) {
      const int p1 = first_lane(passing);
      const Float16 value = scan_third(scan, p0, p1);
      best = larger(with_low_bits(value, kPairBits, splat(kTrackPositions * p0 + p1)), best);
    }
  return best;
}

// A lane of the scan, in whose last bits the pair stands.
struct Start {
  unsigned pair;
  int lane;
};

// The `count` greatest lanes, the greatest first; fewer where nothing was scanned.
int best_lanes(Float16 best, int count, Start start[kMostStarts]) {
  alignas(kVectorAlign) float value[kFloatLanes];
  store(value, best);
  for (int n = 0; n < count; ++n) {
    const float most = largest_lane(load(value));
    if (!(most > 0.5F * kNothing)) return n;
    const int lane = first_lane(lanes_at_most(splat(most), load(value)));
    start[n] = {low_bits(most, kPairBits), lane};
    value[lane] = kNothing;
  }
  return count;
}

// 2 rr between a pulse and every place of another track, signs folded in.
KELG729F_VEC Vec8 cross(const ImpulseCorrelation& rr, const Pulse& pulse, int track) {
  if (pulse.track < track) return load(rr.row[pulse.track][pulse.place][track]);
  return from_lanes([&](int p) { return rr.row[track][p][pulse.track][pulse.place]; });
}

double cross(const ImpulseCorrelation& rr, const Pulse& a, const Pulse& b) {
  return a.track < b.track ? rr.row[a.track][a.place][b.track][b.place]
                           : rr.row[b.track][b.place][a.track][a.place];
}

void measure(const Search& s, Codeword* c) {
  c->ps = c->energy = 0.0;
  for (int k = 0; k < kPulses; ++k) {
    const Pulse& p = c->pulse[k];
    c->ps += p.flip * s.d[p.track][p.place];
    c->energy += s.rr.diagonal[p.track][p.place];
    for (int i = 0; i < k; ++i)
      c->energy += p.flip * c->pulse[i].flip * cross(s.rr, c->pulse[i], p);
  }
}

// A pulse in the best place of a track, with the better sign.
struct Move {
  double ps, energy, flip;
  int place;
};

// Position of the greatest of eight, the first among equals.
KELG729F_VEC int greatest_lane(Vec8 v) {
  const double most = -smallest_lane(splat(0.0) - v);
  return first_lane(~lanes_greater(splat(most), v));
}

KELG729F_VEC Move best_move(const Search& s, const Codeword& rest, Vec8 with_rest, int track) {
  const Vec8 d = load(s.d[track]), alone = splat(rest.energy) + load(s.rr.diagonal[track]);
  const Vec8 zero = splat(0.0), least = splat(kLeastEnergy);
  Vec8 ps_up = splat(rest.ps) + d, ps_down = splat(rest.ps) - d;
  Vec8 up = alone + with_rest, down = alone - with_rest;
  ps_up = select(zero < ps_up, ps_up, zero);
  ps_down = select(zero < ps_down, ps_down, zero);
  up = select(up < least, least, up);
  down = select(down < least, least, down);
  const auto turned = ps_up * ps_up * down < ps_down * ps_down * up;
  const Vec8 ps = select(turned, ps_down, ps_up), energy = select(turned, down, up);
  const int place = greatest_lane(ps * ps / energy);
  double lane[3][kLanes];
  store(lane[0], ps);
  store(lane[1], energy);
  store(lane[2], select(turned, splat(-1.0), splat(1.0)));
  return {lane[0][place], lane[1][place], lane[2][place], place};
}

// Moves pulse k to the best place of its tracks; returns whether that is another one.
bool move_pulse(const Search& s, int k, Codeword* c) {
  const Pulse moved = c->pulse[k];
  Codeword rest = *c;
  rest.ps -= moved.flip * s.d[moved.track][moved.place];
  rest.energy -= s.rr.diagonal[moved.track][moved.place];
  Vec8 with_rest[2] = {splat(0.0), splat(0.0)};
  const int tracks = k == 3 ? 2 : 1;
  bool moved_away = false;
  for (int i = 0; i < kPulses; ++i) {
    if (i == k) continue;
    const Pulse& p = c->pulse[i];
    rest.energy -= moved.flip * p.flip * cross(s.rr, p, moved);
    for (int t = 0; t < tracks; ++t)
      with_rest[t] = with_rest[t] + splat(p.flip) * cross(s.rr, p, k + t);
  }
  for (int t = 0; t < tracks; ++t) {
    const Move move = best_move(s, rest, with_rest[t], k + t);
    if (!(move.ps * move.ps * c->energy > c->ps * c->ps * move.energy)) continue;
    c->pulse[k] = {k + t, move.place, move.flip};
    c->ps = move.ps;
    c->energy = move.energy;
    moved_away = true;
  }
  return moved_away;
}

// Moves one pulse after the other, until every one is where it is best. The third one is already.
void refine(const Search& s, int sweeps, Codeword* c) {
  for (int n = 0, settled = 1; n < sweeps * kPulses && settled < kPulses; ++n)
    settled = move_pulse(s, (n + 3) % kPulses, c) ? 1 : settled + 1;
}

// The criterion of the codeword with the greatest correlation, refined once, or 0.
double greedy_level(const Search& s) {
  Codeword c;
  for (int k = 0; k < kPulses; ++k) c.pulse[k] = {k, greatest_lane(load(s.d[k])), 1.0};
  const int other = greatest_lane(load(s.d[4]));
  if (s.d[4][other] > s.d[3][c.pulse[3].place]) c.pulse[3] = {4, other, 1.0};
  measure(s, &c);
  if (c.ps <= 0.0) return 0.0;
  c.energy = std::max(c.energy, kLeastEnergy);
  refine(s, 1, &c);
  return c.ps * c.ps / c.energy;
}

// A pair of the scan with the fourth pulse of a lane and the best third one.
Codeword codeword_of(const Search& s, Start start) {
  const int p = static_cast<int>(start.pair);
  Codeword c = {{{0, p / kTrackPositions, 1.0},
                 {1, p % kTrackPositions, 1.0},
                 {2, 0, 1.0},
                 {3 + start.lane / kLanes, start.lane % kLanes, 1.0}},
                0.0,
                0.0};
  measure(s, &c);
  c.ps = std::max(c.ps, 0.0);
  c.energy = std::max(c.energy, kLeastEnergy);
  move_pulse(s, 2, &c);
  return c;
}

// The words sent.
void words_of(const Search& s, const Codeword& c, int code[2]) {
  const Pulse* const p = c.pulse;
  code[0] =
      p[0].place | p[1].place << 3 | p[2].place << 6 | (p[3].track - 3) << 9 | p[3].place << 10;
  code[1] = 0;
  for (int k = 0; k < kPulses; ++k)
    code[1] |= (p[k].flip * s.sign[p[k].track][p[k].place] > 0.0) << k;
}

void write(const Codeword& c, const PaddedImpulse& impulse, const JointTarget& in, Candidate* out) {
  int position[kPulses];
  double sign[kPulses];
  zero_vector(out->innovation.code, kSubframe);
  for (int k = 0; k < kPulses; ++k) {
    position[k] = kTracks * c.pulse[k].place + c.pulse[k].track;
    sign[k] = out->code[1] >> k & 1 ? 1.0 : -1.0;
    out->innovation.code[position[k]] = sign[k];
  }
  filter_pulses(impulse, position, sign, kPulses, out->innovation.y);
  pitch_sharpen(out->innovation.code, in.t0, in.sharp);
  out->merit = c.ps * c.ps / c.energy;
}

bool is_new(const Candidate* candidate, int count) {
  const int* const word = candidate[count].code;
  for (int i = 0; i < count; ++i)
    if (candidate[i].code[0] == word[0] && candidate[i].code[1] == word[1]) return false;
  return true;
}

}  // namespace

int innovations_8k(const JointTarget& in, const Effort& effort, Candidate candidate[kMostStarts]) {
  Search s;
  Scan scan;
  alignas(kAlign) double h[kSubframe];
  copy_vector(in.h, h, kSubframe);
  pitch_sharpen(h, in.t0, in.sharp);
  const PaddedImpulse padded = pad_impulse(h);
  prepare(in, h, effort.threshold, &s);
  set_scan(s, kLevelAboveGreedy * greedy_level(s), &scan);

  Start start[kMostStarts] = {};
  const int starts = std::max(best_lanes(scan_pairs(s, scan), effort.starts, start), 1);
  int count = 0;
  for (int i = 0; i < starts; ++i) {
    Codeword c = codeword_of(s, start[i]);
    refine(s, effort.sweeps, &c);
    words_of(s, c, candidate[count].code);
    if (is_new(candidate, count)) write(c, padded, in, candidate + count++);
  }
  return count;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
