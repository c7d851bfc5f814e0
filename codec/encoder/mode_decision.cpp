#include "codec/encoder/mode_decision.h"

#include <algorithm>

#include "codec/dsp/filters.h"
#include "codec/dsp/math.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr int kStationarityDecay = 2621;     // a frame without the full decision
constexpr int kStationarityEntered = 24000;  // speech hardly gets here: where a backward run starts
constexpr int kStationarityNeeded = 13000;   // below it forward mode
constexpr int kStationarityHeld = 32000;     // from it on backward mode holds
constexpr double kQuiet = 40.0;              // dB
constexpr double kHeldLspDistance = 0.03;

constexpr int kLongRun = 20;  // backward frames in a row that speak of stationarity
constexpr int kRunStepFirst = 500;
constexpr int kRunStepGrowth = 100;
constexpr int kRunStepMax = 2500;
constexpr int kEarlyEnd = 5000;  // fall when a shorter run ends

// The backward filter may predict worse by a gap that widens with the statistic: its frames have
// more pulses, and changing modes costs too.
constexpr double kGapNarrow = 1.0;           // dB
constexpr double kGapPerPoint = 1.0 / 8192;  // dB

constexpr double kGainStep = 1000.0;  // statistic per dB by which one gain exceeds the other
constexpr double kGainStepMax = 1500.0;

// Prediction gains of the frame in dB.
struct PredictionGains {
  double forward, backward, smoothed;
};

double to_gain(double energy, double residual) {
  return 10.0 * (log10_of(energy + 1.0) - log10_of(residual + 1.0));
}

double residual_energy(int order, const double* a, const double* speech, int n) {
  double residual[kFrame];
  residual_filter({a, order}, speech, residual, n);
  return dot(residual, residual, n);
}

PredictionGains prediction_gains(const ModeInput& in, const double* smoothed) {
  const double energy = dot(in.speech, in.speech, kFrame);
  const double forward = residual_energy(kOrder, in.aq, in.speech, kSubframe) +
                         residual_energy(kOrder, in.aq + kCoeffs, in.speech + kSubframe, kSubframe);
  return {to_gain(energy, forward),
          to_gain(energy, residual_energy(kBackwardOrder, in.backward, in.speech, kFrame)),
          to_gain(energy, residual_energy(kBackwardOrder, smoothed, in.speech, kFrame))};
}

double squared_distance(const double* x, const double* y, int n) {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += (x[i] - y[i]) * (x[i] - y[i]);
  return sum;
}

LpMode choose_mode(const ModeState& state, const ModeInput& in, const PredictionGains& gain) {
  if (state.stationarity >= kStationarityHeld && state.backward_run > 0 &&
      squared_distance(in.lsp_new, in.lsp_old, kOrder) < kHeldLspDistance)
    return kBackward;
  const int needed = state.backward_run > 0 ? kStationarityNeeded : kStationarityEntered;
  if (state.stationarity < needed) return kForward;
  const double lesser = std::min(gain.backward, gain.smoothed);
  const double gap = kGapNarrow + kGapPerPoint * state.stationarity;
  return lesser > 0.0 && lesser > gain.forward - gap ? kBackward : kForward;
}

void move_stationarity(ModeState* state, int step) {
  state->stationarity = std::min(std::max(state->stationarity + step, 0), kStationarityMax);
}

void follow_run(ModeState* state, LpMode lp_mode) {
  if (lp_mode == kBackward) {
    const int beyond = ++state->backward_run - kLongRun;
    if (beyond >= 0)
      move_stationarity(state, std::min(kRunStepFirst + beyond * kRunStepGrowth, kRunStepMax));
    return;
  }
  if (state->backward_run > 0 && state->backward_run < kLongRun)
    move_stationarity(state, -kEarlyEnd);
  state->backward_run = 0;
}

void follow_gains(ModeState* state, const PredictionGains& gain) {
  const double step = kGainStep * (gain.backward - gain.forward);
  move_stationarity(state, static_cast<int>(std::min(std::max(step, -kGainStepMax), kGainStepMax)));
}

}  // namespace

LpMode mode_decide(ModeState* state, const ModeInput& in, double* a_backward) {
  double smoothed[kBackwardCoeffs];
  backward_filter_smooth(state->smoothing, in.backward, smoothed);
  state->bwd_dominant = state->dominance.bwd_dominant;

  LpMode lp_mode = kForward;
  if (synthesis_energy_db(in.speech, kFrame) < kQuiet) {
    state->stationarity = std::min(state->stationarity, kStationarityNeeded);
    follow_run(state, lp_mode);
  } else {
    const PredictionGains gain = prediction_gains(in, smoothed);
    lp_mode = choose_mode(*state, in, gain);
    follow_run(state, lp_mode);
    follow_gains(state, gain);
  }
  if (lp_mode == kBackward) {
    backward_smoothing_accept(&state->smoothing, smoothed);
    copy_vector(smoothed, a_backward, kBackwardCoeffs);
  }
  return lp_mode;
}

void simple_mode_update(ModeState* state) {
  state->bwd_dominant = false;
  state->backward_run = 0;
  state->smoothing.backward_interp = kBackwardInterpStart;
  if (state->stationarity > kStationarityStart)
    state->stationarity = std::max(state->stationarity - kStationarityDecay, kStationarityStart);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
