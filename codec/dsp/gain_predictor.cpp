#include "codec/dsp/gain_predictor.h"

#include "codec/dsp/filters.h"
#include "codec/dsp/math.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kMeanEnergy = 36.0;                            // dB
constexpr double kMaCoefficient[4] = {0.68, 0.58, 0.34, 0.19};  // newest first

void push(GainHistory* history, double energy) {
  double* e = history->energy;
  for (int i = 3; i > 0; --i) e[i] = e[i - 1];
  e[0] = energy;
}

}  // namespace

double gain_predict(const GainHistory& history, const double* code, int n) {
  const double energy = 0.01 + dot(code, code, n);
  double predicted = kMeanEnergy - 10.0 * log10_of(energy / n);
  for (int i = 0; i < 4; ++i) predicted += kMaCoefficient[i] * history.energy[i];
  return power_of_10(0.05 * predicted);
}

void gain_history_push(GainHistory* history, double g) {
  push(history, 20.0 * log10_of(g));
}

void gain_history_conceal(GainHistory* history) {
  const double* e = history->energy;
  const double lowered = (e[0] + e[1] + e[2] + e[3]) / 4 - 4.0;
  push(history, lowered < kMinEnergy ? kMinEnergy : lowered);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
