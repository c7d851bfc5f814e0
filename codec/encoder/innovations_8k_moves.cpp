#include "codec/encoder/innovations_8k_moves.h"

#include <algorithm>

#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// 2 rr between a pulse and every place of another track, signs folded in.
KELG729F_VEC Vec8 cross(const ImpulseCorrelation& rr, const Pulse& pulse, int track) {
  if (pulse.track < track) return load(rr.row[pulse.track][pulse.place][track]);
  return from_lanes([&](int p) { return rr.row[track][p][pulse.track][pulse.place]; });
}

double cross(const ImpulseCorrelation& rr, const Pulse& a, const Pulse& b) {
  return a.track < b.track ? rr.row[a.track][a.place][b.track][b.place]
                           : rr.row[b.track][b.place][a.track][a.place];
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

KELG729F_VEC Move best_move(const InnovationSearch& s, const Codeword& rest, Vec8 with_rest,
                            int track) {
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

}  // namespace

void measure(const InnovationSearch& s, Codeword* c) {
  c->ps = c->energy = 0.0;
  for (int k = 0; k < kInnovationPulses; ++k) {
    const Pulse& p = c->pulse[k];
    c->ps += p.flip * s.d[p.track][p.place];
    c->energy += s.rr.diagonal[p.track][p.place];
    for (int i = 0; i < k; ++i)
      c->energy += p.flip * c->pulse[i].flip * cross(s.rr, c->pulse[i], p);
  }
}

bool move_pulse(const InnovationSearch& s, int k, Codeword* c) {
  const Pulse moved = c->pulse[k];
  Codeword rest = *c;
  rest.ps -= moved.flip * s.d[moved.track][moved.place];
  rest.energy -= s.rr.diagonal[moved.track][moved.place];
  Vec8 with_rest[2] = {splat(0.0), splat(0.0)};
  const int tracks = k == 3 ? 2 : 1;
  bool moved_away = false;
  for (int i = 0; i < kInnovationPulses; ++i) {
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

void refine(const InnovationSearch& s, int sweeps, Codeword* c) {
  for (int n = 0, settled = 1; n < sweeps * kInnovationPulses && settled < kInnovationPulses; ++n)
    settled = move_pulse(s, (n + 3) % kInnovationPulses, c) ? 1 : settled + 1;
}

double greedy_level(const InnovationSearch& s) {
  Codeword c;
  for (int k = 0; k < kInnovationPulses; ++k) c.pulse[k] = {k, greatest_lane(load(s.d[k])), 1.0};
  const int other = greatest_lane(load(s.d[4]));
  if (s.d[4][other] > s.d[3][c.pulse[3].place]) c.pulse[3] = {4, other, 1.0};
  measure(s, &c);
  if (c.ps <= 0.0) return 0.0;
  c.energy = std::max(c.energy, kLeastEnergy);
  refine(s, 1, &c);
  return c.ps * c.ps / c.energy;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
