#include "codec/encoder/taming.h"

#include <algorithm>

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kErrorLimit = 60000.0;
constexpr double kNoError = -1.0;  // below every entry

// Samples beyond the lag that the fractional delay may read, before and behind the subframe.
constexpr int kReach = kInterpolationTaps;

}  // namespace

// A delay of t reads samples n - t - kReach .. n - t + kReach for n = 0..39, each entry of the
// record standing for 40 samples.
bool taming_test(const TamingState& state, int t0, int frac) {
  const int t1 = frac > 0 ? t0 + 1 : t0;
  const int first = std::max(0, t1 - kSubframe - kReach) / kSubframe;
  const int last = (t1 + kReach - 2) / kSubframe;
  double worst = kNoError;
  for (int i = first; i <= last; ++i) worst = std::max(worst, state.exc_err[i]);
  return worst > kErrorLimit;
}

void taming_update(TamingState* state, double g_p, int t0) {
  double* const err = state->exc_err;
  double worst = kNoError;
  if (t0 < kSubframe) {  // the subframe repeats its own beginning
    const double once = 1.0 + g_p * err[0];
    const double twice = 1.0 + g_p * once;
    worst = std::max(worst, std::max(once, twice));
  } else {
    for (int i = (t0 - kSubframe) / kSubframe; i <= (t0 - 1) / kSubframe; ++i)
      worst = std::max(worst, 1.0 + g_p * err[i]);
  }
  for (int i = 3; i > 0; --i) err[i] = err[i - 1];
  err[0] = worst;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
