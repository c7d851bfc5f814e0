#include "codec/encoder/lag_candidates.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/across.h"
#include "codec/encoder/lag_correlation.h"
#include "codec/encoder/pool.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kRoom = 3 * kLanes;
static_assert(kLagMargin - 1 + 2 * kLanes + kLagMargin <= kRoom && kLagWidth + 2 <= 2 * kLanes);

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

// fine[f][k] is the correlation at the lag of c[k] and f thirds, k = kLagMargin - 1 .. kLagMargin +
// kLagWidth (and a few more of no meaning).
void interpolate(const double* c, double fine[3][kRoom]) {
  for (int f = 0; f < 3; ++f)
    for (int k = kLagMargin - 1; k <= kLagMargin + kLagWidth; k += kLanes) {
      Vec8 value = splat(0.0);
      for (int i = 0; i < kLagMargin; ++i)
        value = value + load(c + k - i) * splat(corr_interp_filter[f + 3 * i]) +
                load(c + k + 1 + i) * splat(corr_interp_filter[3 - f + 3 * i]);
      store(fine[f] + k, value);
    }
}

// Whether a subframe can send the lag of so many thirds.
bool can_send(int thirds, const LagInput& in) {
  const bool whole = thirds % 3 == 0;
  if (in.i_subfr == 0) return whole || thirds < 3 * (kLastFractionalLag + 1);
  if (in.rate != kRate6k4) return true;
  const int offset = thirds - 3 * in.range.t0_min;
  if (offset < 0 || offset > 3 * (kLagWidth - 1)) return false;
  return whole || (offset >= 3 * 3 && offset <= 3 * 6);
}

}  // namespace

int lag_candidates(const LagInput& in, int count, LagCandidate lag[kMostLags]) {
  double corr[kRoom], fine[3][kRoom];
  const int first = in.range.t0_min - kLagMargin;
  correlate_lags(in, first, corr);
  interpolate(corr, fine);
  Pool<int, kMostLags> best(count);
  for (int thirds = 3 * in.range.t0_min - 2; thirds <= 3 * in.range.t0_max + 2; ++thirds)
    if (can_send(thirds, in)) best.offer(-fine[thirds % 3][thirds / 3 - first], thirds);
  for (int i = 0; i < best.size(); ++i) {
    const int t0 = (best[i].value + 1) / 3;
    lag[i] = {{t0, best[i].value - 3 * t0}, -best[i].error};
  }
  return best.size();
}

}  // namespace KELG729F_TARGET
}  // namespace g729
