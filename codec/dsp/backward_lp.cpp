#include "codec/dsp/backward_lp.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/backward_lp_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

constexpr int kLags = 32;  // lags 0..30 and one to fill the vectors
constexpr int kNewest = kHybridWindow - kBackwardOrder - kFrame;  // samples outside the recursion
constexpr double kDecay = 0.31640625;  // a^160 = (3/4)^4: one frame's fading
constexpr double kSaturated = 8.0;
constexpr double kExpansion = 0.98;

// r[i] += sum of y[n] y[n - i] over n = first..last-1, i = 0..31. z holds y newest first: z[144 -
// n] = y[n], with room for lag 31.
void add_correlations(const double* z, int first, int last, double* r) {
  Vec8 s[kLags / kLanes];
  for (int b = 0; b < kLags / kLanes; ++b) s[b] = load(r + b * kLanes);
  for (int n = first; n < last; ++n) {
    const double* at = z + (kHybridWindow - 1 - n);
    for (int b = 0; b < kLags / kLanes; ++b) s[b] = s[b] + splat(*at) * load(at + b * kLanes);
  }
  for (int b = 0; b < kLags / kLanes; ++b) store(r + b * kLanes, s[b]);
}

// Autocorrelation r[0..30] of the past synthesis under the hybrid window.
void hybrid_autocorrelation(BackwardLpState* state, const double* past, double* r) {
  double z[kHybridWindow + kLanes] = {};
  for (int n = 0; n < kHybridWindow; ++n)
    z[kHybridWindow - 1 - n] = past[n] * kHybridWindowTable[n];
  double work[kLags] = {};
  for (int i = 0; i <= kBackwardOrder; ++i) work[i] = kDecay * state->recursive[i];
  add_correlations(z, kBackwardOrder, kBackwardOrder + kFrame, work);
  copy_vector(work, state->recursive, kBackwardCoeffs);
  add_correlations(z, kHybridWindow - kNewest, kHybridWindow, work);
  copy_vector(work, r, kBackwardCoeffs);
  if (r[0] < 1.0) r[0] = 1.0;
  for (int i = 1; i <= kBackwardOrder; ++i) r[i] *= kBackwardLagWindow[i - 1];
}

bool saturated(const double* a) {
  for (int i = 0; i <= kBackwardOrder; ++i)
    if (a[i] >= kSaturated) return true;
  return false;
}

}  // namespace

void backward_lp_analysis(BackwardLpState* state, const double* past, double* a) {
  double r[kBackwardCoeffs], rc[kBackwardOrder];
  hybrid_autocorrelation(state, past, r);
  levinson_durbin(kBackwardOrder, r, a, rc, &state->levinson);
  if (saturated(a))
    copy_vector(state->backward_a_mem, a, kBackwardCoeffs);
  else
    copy_vector(a, state->backward_a_mem, kBackwardCoeffs);
  weight_lpc(a, kExpansion, kBackwardOrder, a);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
