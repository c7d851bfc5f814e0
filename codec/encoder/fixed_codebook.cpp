#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kGroups = kSubframe / kLanes;

constexpr bool holds(CorrelationLayout layout, int t, int u) {
  switch (layout) {
    case kFourPulses:
      return t < 3 && u > t;
    case kTwoPulses:
      return (t == 1 || t == 3) && u != 3;
    default:
      return true;
  }
}

// Whether some row of the layout is u tracks (modulo 5) above its own.
constexpr bool reaches(CorrelationLayout layout, int above) {
  for (int t = 0; t < kTracks; ++t)
    if (holds(layout, t, (t + above) % kTracks)) return true;
  return false;
}

// x[0], x[step], ..., x[7 step].
KELG729F_VEC Vec8 load_every(const double* x, int step) {
  return from_lanes([&](int i) { return x[i * step]; });
}

// One block of eight taps k: group g holds the outputs 8 g .. 8 g + 7, which end at tap 39 - 8 g.
// The last group's targets, which run over the end, come as end[k] = target[32 + k..39 + k].
template <int kBlock>
KELG729F_VEC void correlate_block(const double* impulse, const double* target, const Vec8* end,
                                  Vec8* acc) {
#pragma GCC unroll 8
  for (int k = 0; k < kLanes; ++k) {
    const Vec8 tap = splat(impulse[kBlock * kLanes + k]);
    constexpr int kLast = kGroups - 1 - kBlock;
    for (int g = 0; g < kLast; ++g)
      acc[g] = acc[g] + load(target + (g + kBlock) * kLanes + k) * tap;
    acc[kLast] = acc[kLast] + end[k] * tap;
  }
}

// Rows from the last position to the first: rr(i, j) = rr(i+1, j+1) + h[39-i] h[39-j]. In track
// order the shift by one position is a move to the next track, and from the last track to the
// first one place further on. So a row's distance to its own track stays, and a distance that the
// layout never reaches need not be summed.
template <CorrelationLayout kLayout>
void correlate_rows(const double* impulse, const TrackVector sign, ImpulseCorrelation* rr) {
  alignas(kVectorAlign) TrackVector factor[2];  // 2 sign(i) sign(j) for sign(i) = 1 and -1
  Vec8 h[kTracks], row[kTracks] = {};           // row[u - t modulo 5]
  for (int t = 0; t < kTracks; ++t) {
    h[t] = load_every(impulse + kSubframe - 1 - t, -kTracks);
    store(factor[0][t], splat(2.0) * load(sign[t]));
    store(factor[1][t], splat(-2.0) * load(sign[t]));
  }
  for (int p = kTrackPositions - 1; p >= 0; --p) {
#pragma GCC unroll 5
    for (int t = kTracks - 1; t >= 0; --t) {
      const Vec8 scale = splat(impulse[kSubframe - 1 - kTracks * p - t]);
      const TrackVector& signs = factor[sign[t][p] < 0.0];
#pragma GCC unroll 5
      for (int above = 0; above < kTracks; ++above) {
        if (!reaches(kLayout, above)) continue;
        const int u = (t + above) % kTracks;
        if (u == kTracks - 1) row[above] = next_lanes(row[above]);
        row[above] = row[above] + scale * h[u];
        if (holds(kLayout, t, u)) store(rr->row[t][p][u], row[above] * load(signs[u]));
      }
    }
  }
}

}  // namespace

void correlate_target_impulse(const double* impulse, const double* target, double* d) {
  Vec8 end[kLanes];
  end[0] = load(target + kSubframe - kLanes);
  for (int k = 1; k < kLanes; ++k) end[k] = next_lanes(end[k - 1]);
  Vec8 acc[kGroups] = {};
  correlate_block<0>(impulse, target, end, acc);
  correlate_block<1>(impulse, target, end, acc);
  correlate_block<2>(impulse, target, end, acc);
  correlate_block<3>(impulse, target, end, acc);
  correlate_block<4>(impulse, target, end, acc);
  for (int g = 0; g < kGroups; ++g) store(d + g * kLanes, acc[g]);
}

void impulse_energies(const double* impulse, ImpulseCorrelation* rr) {
  double energy = 0.0;
  int k = 0;
  for (int p = kTrackPositions - 1; p >= 0; --p)
    for (int t = kTracks - 1; t >= 0; --t, ++k) {
      energy += impulse[k] * impulse[k];
      rr->diagonal[t][p] = energy;
    }
}

void correlate_impulse(const double* impulse, const TrackVector sign, ImpulseCorrelation* rr,
                       CorrelationLayout layout) {
  if (layout == kFourPulses)
    correlate_rows<kFourPulses>(impulse, sign, rr);
  else if (layout == kTwoPulses)
    correlate_rows<kTwoPulses>(impulse, sign, rr);
  else
    correlate_rows<kAllPairs>(impulse, sign, rr);
}

void split_signs(const double* d, TrackVector magnitude, TrackVector sign) {
  for (int t = 0; t < kTracks; ++t) {
    const Vec8 value = load_every(d + t, kTracks);
    const Vec8 one = select(splat(0.0) <= value, splat(1.0), splat(-1.0));
    store(sign[t], one);
    store(magnitude[t], value * one);
  }
}

PaddedImpulse pad_impulse(const double* impulse) {
  PaddedImpulse padded;
  for (int n = 0; n < kSubframe; n += kLanes) {
    store(padded.zeros + n, splat(0.0));
    store(padded.h + n, load(impulse + n));
  }
  return padded;
}

void filter_pulses(const PaddedImpulse& impulse, const int* position, const double* sign,
                   int pulses, double* y) {
  Vec8 acc[kGroups] = {};
  for (int k = 0; k < pulses; ++k) {
    const double* h = impulse.zeros + kSubframe - position[k];
    for (int g = 0; g < kGroups; ++g) acc[g] = acc[g] + splat(sign[k]) * load(h + g * kLanes);
  }
  for (int g = 0; g < kGroups; ++g) store(y + g * kLanes, acc[g]);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
