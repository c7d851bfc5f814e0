#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lane_minimum.h"
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
  double response;  // energy of the impulse response
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
  s->response = s->rr.diagonal[0][0];
  correlate_impulse(h, s->sign, &s->rr, kFourPulses);
  project(tracks, in.yy, &s->rr);
  set_threshold(share, s);
}

// The scan: sixteen fourth pulses at once, track 3 then track 4, in single precision, behind all
// pairs of first and second pulses above the threshold with all third ones. Each lane keeps its
// best pair, which stands in the last bits of the square; the third pulse is found again
// afterwards. Every energy is a sum of terms whose magnitudes add up to 16 times that of the
// response, so that the bias keeps all of them above 0, whatever the rounding.
constexpr unsigned kPairBits = 6;
constexpr double kBias = 0x1p-14;  // of the response's energy
struct Scan {
  alignas(kVectorAlign) float third[2][kTrackPositions][kFloatLanes];
  alignas(kVectorAlign) float fourth[3][kTrackPositions][kFloatLanes];
  alignas(kVectorAlign) float pair[kTrackPositions][kTrackPositions];
  alignas(kVectorAlign) float d[kFloatLanes];
  double scale;
  float bias;
};

void set_scan(const Search& s, Scan* scan) {
  double largest = 0.0;
  for (const auto& track : s.d)
    for (const double d : track) largest = std::max(largest, std::fabs(d));
  scan->scale = largest > 0.0 ? 0.25 / largest : 0.0;
  const Vec8 scale = splat(scan->scale);
  const auto& diagonal = s.rr.diagonal;
  scan->bias = static_cast<float>(kBias * s.response);
  store(scan->d, narrow(load(s.d[3]) * scale, load(s.d[4]) * scale));
  for (int p = 0; p < kTrackPositions; ++p) {
    const auto &row0 = s.rr.row[0][p], &row1 = s.rr.row[1][p], &row2 = s.rr.row[2][p];
    store(scan->third[0][p], narrow((splat(s.d[0][p]) + load(s.d[2])) * scale,
                                    (splat(diagonal[0][p]) + load(diagonal[2])) + load(row0[2])));
    store(scan->third[1][p],
          narrow(splat(s.d[1][p]) * scale, splat(diagonal[1][p]) + load(row1[2])));
    store(scan->fourth[0][p], narrow(load(row0[3]), load(row0[4])));
    store(scan->fourth[1][p], narrow(load(row1[3]), load(row1[4])));
    store(scan->fourth[2][p],
          narrow(load(diagonal[3]) + load(row2[3]), load(diagonal[4]) + load(row2[4])));
  }
  for (int p = 0; p < kTrackPositions; p += 2)
    store(scan->pair[p], narrow(load(s.rr.row[0][p][1]), load(s.rr.row[0][p + 1][1])));
}

// Lane-wise the greater of the fractions a / b and *c / *d, of positive denominators; *c / *d where
// they are equal.
KELG729F_VEC void keep_greater(Float16 a, Float16 b, Float16* c, Float16* d) {
  const auto greater = a * *d > *c * b;
  *c = select(greater, a, *c);
  *d = select(greater, b, *d);
}

KELG729F_VEC void scan_third(const Scan& scan, int p0, int p1, Float16* square, Float16* energy) {
  const Float16 d = load(scan.d);
  alignas(kVectorAlign) float third[kFloatLanes];
  store(third, load(scan.third[0][p0]) + load(scan.third[1][p1]));
  const Float16 fourth =
      (load(scan.fourth[0][p0]) + load(scan.fourth[1][p1])) + splat(scan.pair[p0][p1] + scan.bias);
  *square = splat(0.0F);
  *energy = splat(1.0F);
#pragma GCC unroll 8
  for (int p2 = 0; p2 < kTrackPositions; ++p2) {
    const Float16 ps = splat(third[p2]) + d;
    const Float16 e = (splat(third[kTrackPositions + p2]) + fourth) + load(scan.fourth[2][p2]);
    keep_greater(ps * ps, e, square, energy);
  }
}

Float16 scan_pairs(const Search& s, const Scan& scan) {
  const Vec8 threshold = splat(s.threshold - largest_of(s.d[2])), d1 = load(s.d[1]);
  Float16 best_square = splat(0.0F), best_energy = splat(1.0F);
  for (int p0 = 0; p0 < kTrackPositions; ++p0)
    for (unsigned passing = lanes_greater(splat(s.d[0][p0]) + d1, threshold); passing != 0;
         passing &= passing - 1) {
      const int p1 = first_lane(passing);
      Float16 square, energy;
      scan_third(scan, p0, p1, &square, &energy);
      keep_greater(with_low_bits(square, kPairBits, splat(kTrackPositions * p0 + p1)), energy,
                   &best_square, &best_energy);
    }
  return with_low_bits(best_square / best_energy, kPairBits,
                       bits_as<int32_t>(best_square) & splat((1 << kPairBits) - 1));
}

// A lane of the scan: its criterion, in whose last bits the pair stands.
struct Start {
  unsigned pair;
  int lane;
};

// The `count` greatest criteria above 0, the greatest first.
int best_lanes(Float16 best, int count, Start start[kMostStarts]) {
  alignas(kVectorAlign) float value[kFloatLanes];
  store(value, best);
  for (int n = 0; n < count; ++n) {
    const float most = largest_lane(load(value));
    if (!(most > 0.0F)) return n;
    const int lane = first_lane(lanes_at_most(splat(most), load(value)));
    start[n] = {low_bits(most, kPairBits), lane};
    value[lane] = 0.0F;
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

// Moves pulse k to the best place of its tracks.
void move_pulse(const Search& s, int k, Codeword* c) {
  const Pulse moved = c->pulse[k];
  Codeword rest = *c;
  rest.ps -= moved.flip * s.d[moved.track][moved.place];
  rest.energy -= s.rr.diagonal[moved.track][moved.place];
  Vec8 with_rest[2] = {splat(0.0), splat(0.0)};
  const int tracks = k == 3 ? 2 : 1;
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
  }
}

void refine(const Search& s, int sweeps, Codeword* c) {
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    const double before = c->ps;
    for (int k = 0; k < kPulses; ++k) move_pulse(s, k, c);
    if (c->ps == before) return;
  }
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

void write(const Search& s, const Codeword& c, const PaddedImpulse& impulse, const JointTarget& in,
           Candidate* out) {
  int position[kPulses];
  double sign[kPulses];
  zero_vector(out->innovation.code, kSubframe);
  out->code[1] = 0;
  for (int k = 0; k < kPulses; ++k) {
    const Pulse& p = c.pulse[k];
    position[k] = kTracks * p.place + p.track;
    sign[k] = p.flip * s.sign[p.track][p.place];
    out->innovation.code[position[k]] = sign[k];
    out->code[1] |= (sign[k] > 0.0) << k;
  }
  out->code[0] = c.pulse[0].place | c.pulse[1].place << 3 | c.pulse[2].place << 6 |
                 (c.pulse[3].track - 3) << 9 | c.pulse[3].place << 10;
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
  set_scan(s, &scan);

  Start start[kMostStarts];
  const int starts = best_lanes(scan_pairs(s, scan), effort.starts, start);
  int count = 0;
  for (int i = 0; i < starts; ++i) {
    Codeword c = codeword_of(s, start[i]);
    refine(s, effort.sweeps, &c);
    write(s, c, padded, in, candidate + count);
    if (is_new(candidate, count)) ++count;
  }
  if (count > 0) return count;
  write(s, codeword_of(s, {0, 0}), padded, in, candidate);  // silence
  return 1;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
