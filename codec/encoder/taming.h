// Taming: a bound on how far an error in the past excitation can grow through the long-term
// predictor (clause 3.10's instability guard).
#pragma once

namespace g729 {
inline namespace KELG729F_TARGET {

// Worst-case error gain of the excitation, subframe by subframe, newest first.
struct TamingState {
  double exc_err[4] = {1.0, 1.0, 1.0, 1.0};
};

// Whether the pitch gain of lag T0 + frac/3 must be limited. T0 is 19..144.
bool taming_test(const TamingState& state, int t0, int frac);

// Pushes the subframe coded with the quantized pitch gain g_p and the integer lag T0.
void taming_update(TamingState* state, double g_p, int t0);

}  // namespace KELG729F_TARGET
}  // namespace g729
