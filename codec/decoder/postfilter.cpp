#include "codec/decoder/postfilter.h"

#include <cmath>
#include <cstring>

#include "codec/dsp/filters.h"
#include "codec/dsp/vec.h"

namespace g729::inline KELG729F_TARGET {
namespace {

constexpr double kTiltPositive = 0.2;  // share of the first reflection that is compensated
constexpr double kTiltNegative = 0.9;
constexpr double kGainMemory = 0.9875;  // what a sample keeps of the gain before it

// memory[n] = kGainMemory^(n + 1).
struct GainFading {
  double memory[kSubframe];
};
consteval GainFading gain_fading() {
  GainFading fading{};
  double power = 1.0;
  for (double& m : fading.memory) m = power *= kGainMemory;
  return fading;
}
constexpr GainFading kGainFading = gain_fading();

// out[n] = r0 / (r0 - |mu|) (x[n] - mu x[n-1]) with mu from the impulse response of num / den;
// x[-1] must be valid.
void tilt_filter(int order, const double* num, const double* den, int response_length,
                 const double* x, double* out) {
  double h[kSubframe];
  impulse_response(order, num, den, h, response_length);
  const double r0 = dot(h, h, response_length);
  const double k = dot(h, h + 1, response_length - 1) / r0;
  const double mu = (k > 0.0 ? kTiltPositive : kTiltNegative) * k;
  const Vec8 scale = splat(r0 / (r0 - std::fabs(mu)));
  for (int n = 0; n < kSubframe; n += kLanes)
    store(out + n, scale * (load(x + n) - splat(mu) * load(x + n - 1)));
}

// 1/A(z) in place; order 10 runs on the newest of the 30 past outputs.
void formant_filter(PostFilterState* state, int order, const double* a, double* x) {
  synthesis_filter(order, a, x, x, kSubframe, state->formant_mem + kBackwardOrder - order, false);
  copy_vector(x + kSubframe - kBackwardOrder, state->formant_mem, kBackwardOrder);
}

// Brings x to the level of speech: the gain g[n] = 0.9875 g[n-1] + 0.0125 target, solved for each
// n.
void gain_control(PostFilterState* state, const double* speech, const double* x, double* out) {
  const double energy_in = dot(speech, speech, kSubframe), energy_out = dot(x, x, kSubframe);
  if (energy_out == 0.0) {
    copy_vector(x, out, kSubframe);
    return;
  }
  const double target = std::sqrt(energy_in / energy_out);
  const double distance = state->past_gain - target;
  for (int n = 0; n < kSubframe; n += kLanes) {
    const Vec8 gain = splat(target) + splat(distance) * load(kGainFading.memory + n);
    store(out + n, gain * load(x + n));
  }
  state->past_gain = target + distance * kGainFading.memory[kSubframe - 1];
}

}  // namespace

int postfilter_subframe(PostFilterState* state, int t0, const double* speech, const double* a,
                        double* out, const PostFilterSettings& settings, int order,
                        int frame_type) {
  double denominator[kBackwardCoeffs], numerator[kBackwardCoeffs];
  weight_lpc(a, settings.gamma_d, order, denominator);
  weight_lpc(a, settings.gamma_n, order, numerator);
  double* residual = state->residual + kResidualPast;
  residual_filter(order, numerator, speech, residual, kSubframe);

  double history[1 + kSubframe];  // the long-term filter's output behind the sample before it
  double* filtered = history + 1;
  history[0] = state->tilt_mem;
  int delay = 0;
  if (frame_type < kSpeech6k4)
    copy_vector(residual, filtered, kSubframe);
  else
    delay = long_term_postfilter(residual, t0, settings.gamma_h, filtered);
  state->tilt_mem = filtered[kSubframe - 1];

  double synthesis[kSubframe];
  tilt_filter(order, numerator, denominator, settings.response_length, filtered, synthesis);
  formant_filter(state, order, denominator, synthesis);
  gain_control(state, speech, synthesis, out);
  std::memmove(state->residual, state->residual + kSubframe, kResidualPast * sizeof(double));
  return delay;
}

}  // namespace g729::inline KELG729F_TARGET
