#include "codec/encoder/lag_candidates.h"

#include <algorithm>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/across.h"
#include "codec/dsp/simd/lane_minimum.h"
#include "codec/encoder/lag_correlation.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Of the correlations at integer lags; where those lie whose neighbourhood is looked at.
constexpr int kRoom = 3 * kLanes;
constexpr int kLooked = kLagMargin - 1, kLookedEnd = kLooked + 2 * kLanes;
static_assert(kLookedEnd + kLagMargin <= kRoom && kLagMargin + kLagWidth <= kLookedEnd);
constexpr double kOut = 1e30;  // no correlation

// corr[k] is the normalized correlation of the integer lag first + k, throughout the range and the
// margins; there is room for kRoom.
void correlate_lags(const LagInput& in, int first, double* corr) {
  alignas(kAlign) double start[kSubframe], energy[kRoom];
  for (int k = 0; k < kRoom; k += kLanes) {
    store(corr + k, splat(0.0));
    store(energy + k, splat(1.0));
  }
  convolve(in.exc - first, in.h.data(), start);
  FilteredLag y;
  load_filtered(start, &y);
  for (int k = 0; first + k <= in.range.t0_max + kLagMargin; ++k) {
    measure(y, in.xn.data(), corr + k, energy + k);
    delay_filtered(&y, in.exc[-(first + k + 1)], in.h.data());
  }
  for (int k = 0; k < kRoom; k += kLanes)
    store(corr + k, load(corr + k) / square_root(load(energy + k)));
}

// Where the lags of so many thirds that a subframe can send lie among the integer ones; nowhere
// when high is kLooked - 1.
struct Reach {
  int low, high;
};

Reach reach_of(int thirds, const LagInput& in) {
  const int last = kLagMargin + in.range.t0_max - in.range.t0_min;
  if (thirds == 0) return {kLagMargin, last};
  if (in.i_subfr == 0) {
    const int last_fractional = kLagMargin + kLastFractionalLag - in.range.t0_min;
    return {kLooked, std::clamp(last_fractional, kLooked - 1, last)};
  }
  if (in.rate == kRate6k4) return {kLagMargin + 3, kLagMargin + 5};
  return {kLooked, last};
}

// fine[f][k] is the correlation at the lag of c[k] and f thirds, negated; kOut where a subframe
// cannot send that.
void interpolate(const double* c, const LagInput& in, double fine[3][kRoom]) {
  for (int f = 0; f < 3; ++f) {
    for (int k = kLooked; k < kLookedEnd; k += kLanes) {
      Vec8 value = splat(0.0);
      for (int i = 0; i < kLagMargin; ++i)
        value = value - load(c + k - i) * splat(corr_interp_filter[f + 3 * i]) -
                load(c + k + 1 + i) * splat(corr_interp_filter[3 - f + 3 * i]);
      store(fine[f] + k, value);
    }
    const auto [low, high] = reach_of(f, in);
    std::fill(fine[f] + kLooked, fine[f] + low, kOut);
    std::fill(fine[f] + high + 1, fine[f] + kLookedEnd, kOut);
  }
}

// Takes out the lag of the greatest correlation; the integer lag at 0 is `first`.
LagCandidate take_best(double fine[3][kRoom], int first) {
  LaneMinimum least;
  for (int f = 0; f < 3; ++f)
    for (int k = kLooked; k < kLookedEnd; k += kLanes)
      consider(&least, load(fine[f] + k), kRoom * f + k);
  const int best = lowest_index(least), f = best / kRoom, k = best % kRoom;
  const double correlation = -fine[f][k];
  fine[f][k] = kOut;
  const int nearest = first + k + f / 2;
  return {{nearest, f == 2 ? -1 : f}, correlation};
}

}  // namespace

void lag_candidates(const LagInput& in, std::span<LagCandidate> lags) {
  double corr[kRoom], fine[3][kRoom];
  const int first = in.range.t0_min - kLagMargin;
  correlate_lags(in, first, corr);
  interpolate(corr, in, fine);
  for (LagCandidate& lag : lags) lag = take_best(fine, first);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
