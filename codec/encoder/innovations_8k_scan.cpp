#include "codec/encoder/innovations_8k_scan.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/simd/across.h"
#include "codec/encoder/acelp_8k_search.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

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

void set_scan(const InnovationSearch& s, double level, Scan* scan) {
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

Float16 scan_pairs(const InnovationSearch& s, const Scan& scan) {
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

// The `count` greatest lanes, the greatest first; fewer where nothing was scanned.
int best_lanes(Float16 best, int count, Start start[kMostStarts]) {
  alignas(kVectorAlign) float value[kFloatLanes];
  store(value, best);
  for (int n = 0; n < count; ++n) {
    const float most = largest_lane(load(value));
    if (!(most > 0.5F * kNothing)) return n;
    const int lane = first_lane(lanes_at_most(splat(most), load(value)));
    start[n] = {static_cast<int>(low_bits(most, kPairBits)), lane};
    value[lane] = kNothing;
  }
  return count;
}

}  // namespace

int scan_starts(const InnovationSearch& s, double level, int count, Start start[kMostStarts]) {
  Scan scan;
  set_scan(s, level, &scan);
  return best_lanes(scan_pairs(s, scan), count, start);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
