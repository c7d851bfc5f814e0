#include "codec/dsp/phase_dispersion.h"

#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/tables/phase_dispersion_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kOnsetRatio = 2.0;
constexpr double kLowGain = 0.6;
constexpr double kHighGain = 0.9;
constexpr int kLowGainsForStrong = 3;

void remember(DispersionState* state, const Gains& gains, int strength) {
  for (int i = kDispersionGains - 1; i > 0; --i) state->gain_pitch[i] = state->gain_pitch[i - 1];
  state->gain_pitch[0] = gains.gain_pitch;
  state->prev_gain_code = gains.gain_code;
  state->prev_strength = strength;
}

int count_low_gains(const DispersionState& state, double gain_pitch) {
  int low = gain_pitch < kLowGain;
  for (double g : state.gain_pitch) low += g < kLowGain;
  return low;
}

int strength_of_gain(double gain_pitch) {
  if (gain_pitch <= kLowGain) return kStrong;
  return gain_pitch < kHighGain ? kMedium : kNone;
}

// Sets the onset flag of this subframe, then decides.
int choose_strength(DispersionState* state, const Gains& gains) {
  if (gains.gain_code > kOnsetRatio * state->prev_gain_code)
    state->onset = 2;
  else if (state->onset > 0)
    --state->onset;
  int strength = strength_of_gain(gains.gain_pitch);
  if (state->onset) return strength < kNone ? strength + 1 : strength;
  if (count_low_gains(*state, gains.gain_pitch) >= kLowGainsForStrong) strength = kStrong;
  return strength > state->prev_strength + 1 ? strength - 1 : strength;
}

// out[n] += gain * sum_p code[p] h[(n - p) mod 40]; the code has few pulses.
void add_dispersed(const double* code, double gain, const DispersionResponse& response,
                   double* out) {
  for (int p = 0; p < kSubframe; ++p) {
    if (code[p] == 0.0) continue;
    const Vec8 pulse = splat(gain * code[p]);
    const double* shifted = response.h + (kSubframe - p);
    for (int n = 0; n < kSubframe; n += kLanes)
      store(out + n, load(out + n) + pulse * load(shifted + n));
  }
}

}  // namespace

void phase_dispersion_update(DispersionState* state, const Gains& gains) {
  remember(state, gains, kNone);
  state->onset = 0;
}

void phase_dispersion(DispersionState* state, const double* adaptive, const double* code,
                      const Gains& gains, double* exc) {
  const int strength = choose_strength(state, gains);
  for (int n = 0; n < kSubframe; ++n) exc[n] = gains.gain_pitch * adaptive[n];
  if (strength == kNone)
    for (int n = 0; n < kSubframe; ++n) exc[n] += gains.gain_code * code[n];
  else
    add_dispersed(code, gains.gain_code, kDispersionResponse[strength], exc);
  remember(state, gains, strength);
}

const double* total_excitation(DispersionState* state, bool disperse, const Gains& gains,
                               const double* code, double* exc, double* dispersed) {
  if (disperse)
    phase_dispersion(state, exc, code, gains, dispersed);
  else
    phase_dispersion_update(state, gains);
  const Vec8 pitch = splat(gains.gain_pitch), fixed = splat(gains.gain_code);
  for (int n = 0; n < kSubframe; n += kLanes)
    store(exc + n, pitch * load(exc + n) + fixed * load(code + n));
  return disperse ? dispersed : exc;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
