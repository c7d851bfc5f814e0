#include "codec/encoder/lag_candidates.h"

#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/across.h"
#include "codec/encoder/pool.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kLastFractionalLag = 84;  // first subframe
constexpr int kMargin = 4;              // lags that the interpolation reads beyond the range
constexpr int kWidth = 10;              // integer lags of the widest range
constexpr int kRoom = 3 * kLanes;
static_assert(kMargin - 1 + 2 * kLanes + kMargin <= kRoom && kWidth + 2 <= 2 * kLanes);
constexpr double kEnergyFloor = 0.01;
constexpr int kVectors = kSubframe / kLanes;

// A windowed sinc, by thirds of a sample.
constexpr double kCorrelationInterpolation[3 * kMargin + 1] = {
    0.900839, 0.760084, 0.424082, 0.084078, -0.10557,  -0.12112, -0.047624,
    0.016285, 0.031217, 0.015738, 0.0,      -0.005925, 0.0,
};

// corr[k], k = 0..count-1, is the normalized correlation of the integer lag first + k; there is
// room for kRoom.
void correlate_lags(const double* exc, const double* xn, const double* h, int first, int count,
                    double* corr) {
  alignas(kAlign) double start[kSubframe], energy[kRoom];
  for (int k = 0; k < kRoom; k += kLanes) {
    store(corr + k, splat(0.0));
    store(energy + k, splat(1.0));
  }
  convolve(exc - first, h, start);
  Vec8 y[kVectors];
  for (int v = 0; v < kVectors; ++v) y[v] = load(start + v * kLanes);
  for (int k = 0; k < count; ++k) {
    Vec8 xy = load(xn) * y[0], yy = y[0] * y[0];
    for (int v = 1; v < kVectors; ++v) {
      xy = xy + load(xn + v * kLanes) * y[v];
      yy = yy + y[v] * y[v];
    }
    corr[k] = sum(xy);
    energy[k] = kEnergyFloor + sum(yy);
    const Vec8 sample = splat(exc[-(first + k + 1)]);
    for (int v = kVectors - 1; v > 0; --v)
      y[v] = slide(y[v - 1], y[v]) + sample * load(h + v * kLanes);
    y[0] = slide(splat(0.0), y[0]) + sample * load(h);
  }
  for (int k = 0; k < kRoom; k += kLanes)
    store(corr + k, load(corr + k) / square_root(load(energy + k)));
}

// fine[f][k] is the correlation at the lag of c[k] and f thirds, k = kMargin - 1 .. kMargin +
// kWidth (and a few more of no meaning).
void interpolate(const double* c, double fine[3][kRoom]) {
  for (int f = 0; f < 3; ++f)
    for (int k = kMargin - 1; k <= kMargin + kWidth; k += kLanes) {
      Vec8 value = splat(0.0);
      for (int i = 0; i < kMargin; ++i)
        value = value + load(c + k - i) * splat(kCorrelationInterpolation[f + 3 * i]) +
                load(c + k + 1 + i) * splat(kCorrelationInterpolation[3 - f + 3 * i]);
      store(fine[f] + k, value);
    }
}

// Whether a subframe can send the lag of so many thirds.
bool can_send(int thirds, LagRange range, int i_subfr, Rate rate) {
  const bool whole = thirds % 3 == 0;
  if (i_subfr == 0) return whole || thirds < 3 * (kLastFractionalLag + 1);
  if (rate != kRate6k4) return true;
  const int offset = thirds - 3 * range.t0_min;
  if (offset < 0 || offset > 3 * (kWidth - 1)) return false;
  return whole || (offset >= 3 * 3 && offset <= 3 * 6);
}

}  // namespace

int lag_candidates(const double* exc, Subframe xn, Subframe h, LagRange range, int i_subfr,
                   Rate rate, int count, PitchLag lag[kMostLags]) {
  double corr[kRoom], fine[3][kRoom];
  const int first = range.t0_min - kMargin;
  correlate_lags(exc, xn.data(), h.data(), first, range.t0_max + kMargin - first + 1, corr);
  interpolate(corr, fine);
  Pool<int, kMostLags> best(count);
  for (int thirds = 3 * range.t0_min - 2; thirds <= 3 * range.t0_max + 2; ++thirds)
    if (can_send(thirds, range, i_subfr, rate))
      best.offer(-fine[thirds % 3][thirds / 3 - first], thirds);
  for (int i = 0; i < best.size(); ++i) {
    const int t0 = (best[i].value + 1) / 3;
    lag[i] = {t0, best[i].value - 3 * t0};
  }
  return best.size();
}

}  // namespace KELG729F_TARGET
}  // namespace g729
