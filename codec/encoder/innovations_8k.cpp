#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/simd/across.h"
#include "codec/encoder/acelp_8k_search.h"
#include "codec/encoder/innovations.h"
#include "codec/encoder/innovations_8k_moves.h"
#include "codec/encoder/innovations_8k_scan.h"

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

constexpr double kProjected = 1.0 - 0x1p-10;
constexpr double kResidualShare = 1.0;      // of the innovation wanted in the choice of signs
constexpr double kLevelAboveGreedy = 1.05;  // where the best codewords are

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

void prepare(const JointTarget& in, const double* h, double share, InnovationSearch* s) {
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
  s->threshold = pulse_threshold(s->d, share);
}

// A pair of the scan with the fourth pulse of a lane and the best third one.
Codeword codeword_of(const InnovationSearch& s, Start start) {
  Codeword c = {{{0, start.pair / kTrackPositions, 1.0},
                 {1, start.pair % kTrackPositions, 1.0},
                 {2, 0, 1.0},
                 {3 + start.fourth / kTrackPositions, start.fourth % kTrackPositions, 1.0}},
                0.0,
                0.0};
  measure(s, &c);
  c.ps = std::max(c.ps, 0.0);
  c.energy = std::max(c.energy, kLeastEnergy);
  move_pulse(s, 2, &c);
  return c;
}

// The words sent.
void words_of(const InnovationSearch& s, const Codeword& c, int code[2]) {
  const Pulse* const p = c.pulse;
  code[0] =
      p[0].place | p[1].place << 3 | p[2].place << 6 | (p[3].track - 3) << 9 | p[3].place << 10;
  code[1] = 0;
  for (int k = 0; k < kInnovationPulses; ++k)
    code[1] |= (p[k].flip * s.sign[p[k].track][p[k].place] > 0.0) << k;
}

void write(const Codeword& c, const PaddedImpulse& impulse, const JointTarget& in, Candidate* out) {
  int position[kInnovationPulses];
  double sign[kInnovationPulses];
  zero_vector(out->innovation.code, kSubframe);
  for (int k = 0; k < kInnovationPulses; ++k) {
    position[k] = kTracks * c.pulse[k].place + c.pulse[k].track;
    sign[k] = out->code[1] >> k & 1 ? 1.0 : -1.0;
    out->innovation.code[position[k]] = sign[k];
  }
  filter_pulses(impulse, position, sign, kInnovationPulses, out->innovation.y);
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
  InnovationSearch s;
  alignas(kAlign) double h[kSubframe];
  copy_vector(in.h, h, kSubframe);
  pitch_sharpen(h, in.t0, in.sharp);
  const PaddedImpulse padded = pad_impulse(h);
  prepare(in, h, effort.threshold, &s);

  Start start[kMostStarts] = {};
  const double level = kLevelAboveGreedy * greedy_level(s);
  const int starts = std::max(scan_starts(s, level, effort.starts, start), 1);
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
