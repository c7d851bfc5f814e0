#include "codec/encoder/fixed_codebook.h"

#include "codec/dsp/filters.h"

namespace g729::inline KELG729F_TARGET {
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

// One block of eight taps k: group g holds the outputs 8 g .. 8 g + 7, which end at tap 39 - 8 g.
template <int kBlock>
KELG729F_VEC void correlate_block(const double* impulse, const double* padded, Vec8* acc) {
  for (int k = kBlock * kLanes; k < (kBlock + 1) * kLanes; ++k) {
    const Vec8 tap = splat(impulse[k]);
    for (int g = 0; g < kGroups - kBlock; ++g)
      acc[g] = acc[g] + load(padded + g * kLanes + k) * tap;
  }
}

// Rows from the last position to the first: rr(i, j) = rr(i+1, j+1) + h[39-i] h[39-j]. In track
// order the shift by one position is a move to the next track, and from the last track to the
// first one place further on.
template <CorrelationLayout kLayout>
void correlate_rows(const double* impulse, ImpulseCorrelation* rr) {
  TrackVector reversed;
  for (int t = 0; t < kTracks; ++t)
    for (int p = 0; p < kTrackPositions; ++p)
      reversed[t][p] = impulse[kSubframe - 1 - kTracks * p - t];
  Vec8 h[kTracks], row[kTracks] = {};
  for (int t = 0; t < kTracks; ++t) h[t] = load(reversed[t]);

  for (int p = kTrackPositions - 1; p >= 0; --p) {
#pragma GCC unroll 5
    for (int t = kTracks - 1; t >= 0; --t) {
      const Vec8 scale = splat(reversed[t][p]);
      const Vec8 wrapped = shift_down(row[0]);
      for (int u = 0; u < kTracks - 1; ++u) row[u] = row[u + 1] + scale * h[u];
      row[kTracks - 1] = wrapped + scale * h[kTracks - 1];
      for (int u = 0; u < kTracks; ++u)
        if (holds(kLayout, t, u)) store(rr->row[t][p][u], row[u]);
    }
  }
}

template <CorrelationLayout kLayout>
void fold_rows(const TrackVector sign, ImpulseCorrelation* rr) {
  Vec8 signs[kTracks];
  for (int t = 0; t < kTracks; ++t) signs[t] = load(sign[t]);
#pragma GCC unroll 5
  for (int t = 0; t < kTracks; ++t)
    for (int p = 0; p < kTrackPositions; ++p) {
      const Vec8 scale = splat(2.0 * sign[t][p]);
#pragma GCC unroll 5
      for (int u = 0; u < kTracks; ++u) {
        double* row = rr->row[t][p][u];
        if (holds(kLayout, t, u)) store(row, load(row) * (scale * signs[u]));
      }
    }
}

}  // namespace

void correlate_target_impulse(const double* impulse, const double* target, double* d) {
  double padded[2 * kSubframe] = {};
  copy_vector(target, padded, kSubframe);
  Vec8 acc[kGroups] = {};
  correlate_block<0>(impulse, padded, acc);
  correlate_block<1>(impulse, padded, acc);
  correlate_block<2>(impulse, padded, acc);
  correlate_block<3>(impulse, padded, acc);
  correlate_block<4>(impulse, padded, acc);
  for (int g = 0; g < kGroups; ++g) store(d + g * kLanes, acc[g]);
}

void correlate_impulse(const double* impulse, ImpulseCorrelation* rr, CorrelationLayout layout) {
  double energy = 0.0;
  int k = 0;
  for (int p = kTrackPositions - 1; p >= 0; --p)
    for (int t = kTracks - 1; t >= 0; --t, ++k) {
      energy += impulse[k] * impulse[k];
      rr->diagonal[t][p] = energy;
    }
  if (layout == kFourPulses)
    correlate_rows<kFourPulses>(impulse, rr);
  else if (layout == kTwoPulses)
    correlate_rows<kTwoPulses>(impulse, rr);
  else
    correlate_rows<kAllPairs>(impulse, rr);
}

void fold_signs(const TrackVector sign, ImpulseCorrelation* rr, CorrelationLayout layout) {
  if (layout == kFourPulses)
    fold_rows<kFourPulses>(sign, rr);
  else if (layout == kTwoPulses)
    fold_rows<kTwoPulses>(sign, rr);
  else
    fold_rows<kAllPairs>(sign, rr);
}

void split_signs(const double* d, TrackVector magnitude, TrackVector sign) {
  double magnitudes[kSubframe], signs[kSubframe];
  for (int n = 0; n < kSubframe; n += kLanes) {
    const Vec8 value = load(d + n);
    const Vec8 one = select(splat(0.0) <= value, splat(1.0), splat(-1.0));
    store(signs + n, one);
    store(magnitudes + n, value * one);
  }
  for (int t = 0; t < kTracks; ++t)
    for (int p = 0; p < kTrackPositions; ++p) {
      magnitude[t][p] = magnitudes[kTracks * p + t];
      sign[t][p] = signs[kTracks * p + t];
    }
}

void filter_pulses(const double* impulse, const int* position, const double* sign, int pulses,
                   double* y) {
  double padded[2 * kSubframe] = {};
  copy_vector(impulse, padded + kSubframe, kSubframe);
  Vec8 acc[kGroups] = {};
  for (int k = 0; k < pulses; ++k)
    for (int g = 0; g < kGroups; ++g)
      acc[g] = acc[g] + splat(sign[k]) * load(padded + kSubframe + g * kLanes - position[k]);
  for (int g = 0; g < kGroups; ++g) store(y + g * kLanes, acc[g]);
}

}  // namespace g729::inline KELG729F_TARGET
