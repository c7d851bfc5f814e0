#include "codec/decoder/postfilter.h"

#include <cmath>
#include <cstring>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {
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

// out[n] = r0 / (r0 - |mu|) (x[n] - mu x[n-1]) with mu from the impulse response h; x[-1] must be
// valid.
void tilt_filter(const double* h, int response_length, const double* x, double* out) {
  const double r0 = dot(h, h, response_length);
  const double k = dot(h, h + 1, response_length - 1) / r0;
  const double mu = (k > 0.0 ? kTiltPositive : kTiltNegative) * k;
  const Vec8 scale = splat(r0 / (r0 - std::fabs(mu)));
  for (int n = 0; n < kSubframe; n += kLanes)
    store(out + n, scale * (load(x + n) - splat(mu) * load(x + n - 1)));
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

void postfilter_weigh(LpFilter filter, const PostFilterSettings& settings, PostFilterWork* work) {
  weight_lpc(filter.a, settings.gamma_d, filter.order, work->denominator);
  weight_lpc(filter.a, settings.gamma_n, filter.order, work->numerator);
}

void postfilter_flatten(PostFilterState* state, const PostFilterInput& in,
                        const PostFilterSettings& settings, PostFilterWork* work) {
  double* residual = state->residual + kResidualPast;
  residual_filter({work->numerator, in.filter.order}, in.speech, residual, kSubframe);
  double* filtered = work->harmonic + 1;
  work->harmonic[0] = state->tilt_mem;
  work->delay = 0;
  if (in.type < kSpeech6k4)
    copy_vector(residual, filtered, kSubframe);
  else
    work->delay = long_term_postfilter(residual, in.t0, settings.gamma_h, filtered);
  tilt_filter(work->response, settings.response_length, filtered, work->signal);
}

int postfilter_finish(PostFilterState* state, const double* speech, const PostFilterWork& work,
                      double* out) {
  gain_control(state, speech, work.signal, out);
  copy_vector(work.signal + kSubframe - kBackwardOrder, state->formant_mem, kBackwardOrder);
  state->tilt_mem = work.harmonic[kSubframe];
  std::memmove(state->residual, state->residual + kSubframe, kResidualPast * sizeof(double));
  return work.delay;
}

int postfilter_subframe(PostFilterState* state, const PostFilterInput& in,
                        const PostFilterSettings& settings, double* out) {
  const int order = in.filter.order;
  PostFilterWork work;
  postfilter_weigh(in.filter, settings, &work);
  impulse_response(order, work.numerator, work.denominator, work.response,
                   settings.response_length);
  postfilter_flatten(state, in, settings, &work);
  synthesis_filter({work.denominator, order}, work.signal, work.signal, kSubframe,
                   state->formant_mem + kBackwardOrder - order, false);
  return postfilter_finish(state, in.speech, work, out);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
