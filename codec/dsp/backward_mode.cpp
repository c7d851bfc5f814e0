#include "codec/dsp/backward_mode.h"

#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/math.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Quieter frames do not count: synthesis_energy_db first reaches 40 dB at this energy, the least
// of five leading bits above 10^4.
constexpr double kDominanceEnergy = 10240.0;
constexpr double kEnergyFloor = 0.0001;
constexpr int kDominanceRatio = 4;
constexpr int kDominanceTotal = 100;

constexpr int kLeadingBits = 5;  // bits of the energy that synthesis_energy_db keeps

double next_share(const BackwardSmoothing& state) {
  const double share = state.backward_interp - kBackwardInterpStep;
  return share > 0.0 ? share : 0.0;
}

}  // namespace

void backward_filter_smooth(const BackwardSmoothing& state, const double* a, double* smoothed) {
  const double c = next_share(state);
  for (int i = 0; i < kBackwardCoeffs; ++i)
    smoothed[i] = (1.0 - c) * a[i] + c * state.prev_filter[i];
}

void backward_smoothing_accept(BackwardSmoothing* state, const double* smoothed) {
  state->backward_interp = next_share(*state);
  copy_vector(smoothed, state->prev_filter, kBackwardCoeffs);
}

void backward_smoothing_restart(BackwardSmoothing* state, const double* a) {
  state->backward_interp = kBackwardInterpStart;
  copy_vector(a, state->prev_filter, kCoeffs);
  zero_vector(state->prev_filter + kCoeffs, kBackwardCoeffs - kCoeffs);
}

void backward_dominance_update(BackwardDominance* state, LpMode lp_mode, const double* synthesis) {
  if (kEnergyFloor + dot(synthesis, synthesis, kFrame) < kDominanceEnergy) return;
  ++(lp_mode == kBackward ? state->count_bwd : state->count_fwd);
  if (state->count_bwd + state->count_fwd == kDominanceTotal) {
    state->count_bwd /= 2;
    state->count_fwd /= 2;
  }
  state->bwd_dominant = state->count_bwd > kDominanceRatio * state->count_fwd;
}

double synthesis_energy_db(const double* x, int n) {
  constexpr double kLog2Of10 = 3.321928094887362;
  constexpr double kInt32Max = 2147483647.0;
  const double energy = kEnergyFloor + dot(x, x, n);
  const double exponent = log10_of(energy) * kLog2Of10;
  if (exponent < kLeadingBits - 1) return 0.005;
  if (energy > kInt32Max) return 93.1814;
  const int cleared = static_cast<int>(exponent) - (kLeadingBits - 1);
  const int32_t leading = static_cast<int32_t>(energy) >> cleared << cleared;
  return 10.0 * log10_of(leading);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
