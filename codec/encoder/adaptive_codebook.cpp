#include "codec/encoder/adaptive_codebook.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/encoder/lag_correlation.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kMaxPitchGain = 1.2;
// Correlations are normalized eight at a time.
constexpr int kLagRoom = kLagMargin + (kLagWidth + kLagMargin + kLanes - 1) / kLanes * kLanes;

// The square root is a single-precision one, as decisions depend on its rounding.
KELG729F_VEC double normalize(double corr, double energy) {
  return corr / std::sqrt(static_cast<float>(energy));
}

// Position of the greatest of c[first..last], the last among equals.
int last_greatest(const double* c, int first, int last) {
  int best = first;
  for (int k = first + 1; k <= last; ++k)
    if (c[k] >= c[best]) best = k;
  return best;
}

// The best integer lag, and the normalized correlations of the lags up to kLagMargin around it:
// corr[k] is that of lag range.t0_min - kLagMargin + k. Beyond the range most are never asked for,
// as the best lag tends to be in the middle. So the shorter lags' vectors are kept until it is
// known, and the longer ones' not made.
int search_lags(const double* exc, const double* xn, const double* h, LagRange range,
                double* corr) {
  const int first = range.t0_min - kLagMargin, width = range.t0_max - range.t0_min + 1;
  // The first that lag first + k reads.
  const auto sample = [&](int k) { return exc[-(first + k)]; };
  alignas(kAlign) double start[kSubframe], energy[kLagRoom];
  convolve(exc - first, h, start);
  FilteredLag y, shorter[kLagMargin];
  load_filtered(start, &y);
  int k = 0;
  for (; k < kLagMargin; ++k) {
    shorter[k] = y;
    delay_filtered(&y, sample(k + 1), h);
  }
  for (int i = width; i < kLagRoom - kLagMargin; ++i) energy[kLagMargin + i] = 1.0;
  for (; k < kLagMargin + width; ++k) {
    measure(y, xn, corr + k, energy + k);
    delay_filtered(&y, sample(k + 1), h);
  }
  for (int i = kLagMargin; i < k; i += kLanes)
    for (int j = i; j < i + kLanes; ++j) corr[j] = normalize(corr[j], energy[j]);

  const int best = last_greatest(corr, kLagMargin, k - 1);
  for (int i = best - kLagMargin; i < kLagMargin; ++i) {
    measure(shorter[i], xn, corr + i, energy + i);
    corr[i] = normalize(corr[i], energy[i]);
  }
  for (; k <= best + kLagMargin; ++k) {
    measure(y, xn, corr + k, energy + k);
    corr[k] = normalize(corr[k], energy[k]);
    delay_filtered(&y, sample(k + 1), h);
  }
  return best;
}

// Correlation at c[0]'s lag + f / 3, f -2..2.
double interpolate(const double* c, int f) {
  if (f < 0) {
    f += 3;
    --c;
  }
  double value = 0.0;
  for (int i = 0; i < kLagMargin; ++i) {
    value += c[-i] * corr_interp_filter[f + 3 * i] + c[1 + i] * corr_interp_filter[3 - f + 3 * i];
  }
  return value;
}

// Fractions tried around an integer lag, in thirds; {0, 0} for none.
struct LagFractions {
  int first, last;
};

LagFractions fractions_of(int lag, const LagInput& in) {
  constexpr LagFractions kNone = {0, 0}, kAll = {-2, 2};
  if (in.i_subfr == 0) return lag > kLastFractionalLag ? kNone : kAll;
  if (in.rate != kRate6k4) return kAll;
  switch (in.range.t0_max - lag) {
    case 6:
      return {0, 2};
    case 5:
    case 4:
      return kAll;
    case 3:
      return {-2, 0};
    default:
      return kNone;
  }
}

// The fraction of the greatest interpolated correlation, the lowest among equals.
int best_fraction(const double* c, LagFractions tried) {
  int best = tried.first;
  if (tried.first == tried.last) return best;
  double greatest = interpolate(c, best);
  for (int f = tried.first + 1; f <= tried.last; ++f) {
    const double value = interpolate(c, f);
    if (value > greatest) {
      greatest = value;
      best = f;
    }
  }
  return best;
}

}  // namespace

PitchLag closed_loop_pitch(const LagInput& in) {
  double corr[kLagRoom] = {};
  const int best = search_lags(in.exc, in.xn.data(), in.h.data(), in.range, corr);
  const int lag = in.range.t0_min - kLagMargin + best;
  const int f = best_fraction(corr + best, fractions_of(lag, in));
  if (f == -2) return {lag - 1, 1};
  if (f == 2) return {lag + 1, -1};
  return {lag, f};
}

int encode_lag(PitchLag lag, LagRange* range, int i_subfr, Rate rate) {
  const auto [t0, frac] = lag;
  if (i_subfr == 0) {
    range->t0_min = second_lag_min(t0);
    range->t0_max = range->t0_min + kLagWidth - 1;
    return t0 <= kLastFractionalLag + 1 ? 3 * t0 - 58 + frac : t0 + 112;
  }
  const int offset = t0 - range->t0_min;
  if (rate != kRate6k4) return 3 * offset + 2 + frac;
  if (offset < 3) return offset;
  if (offset < 7) return 3 * (offset - 3) + 3 + frac;
  return offset + 6;
}

double pitch_gain(Subframe y1, Subframe xn, double g_coeff[2]) {
  const double xy = dot(xn.data(), y1.data(), kSubframe);
  const double yy = kLagEnergyFloor + dot(y1.data(), y1.data(), kSubframe);
  g_coeff[0] = yy;
  g_coeff[1] = 0.01 - 2.0 * xy;
  return std::clamp(xy / yy, 0.0, kMaxPitchGain);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
