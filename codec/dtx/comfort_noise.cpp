#include "codec/dtx/comfort_noise.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/lpc.h"
#include "codec/dsp/math.h"
#include "codec/dsp/pitch.h"
#include "codec/dsp/random.h"
#include "codec/dsp/tables/lsp_predictors.h"
#include "codec/dtx/gaussian_noise.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

constexpr double kRoot10 = 3.16227766;    // the Gaussian part has the energy 10 gain^2
constexpr double kMaxAmplitude = 5000.0;  // of a pulse
constexpr double kSmoothing = 0.875;      // of the gain from frame to frame
constexpr int kLagMin = 40;               // lowest lag of the adaptive part
constexpr int kSilentLag = kLagMin + 1;   // lag that a silent subframe reports
constexpr int kPulses = 4;

// The random choices of a subframe, save its Gaussian part.
struct Draws {
  int lag;
  int fraction;
  int position[kPulses];
  double sign[kPulses];
  double gain_pitch;
};

double sign_of(int word, int bit) {
  return (word >> bit & 1) != 0 ? 1.0 : -1.0;
}

Draws draw(int16_t* seed) {
  const int t = random16(seed);
  const int u = random16(seed);
  const int v = random16(seed);
  Draws d;
  d.lag = (t >> 2 & 63) + kLagMin;
  d.fraction = (t & 3) == 3 ? 0 : (t & 3) - 1;
  d.position[0] = 5 * (t >> 8 & 7);
  d.position[1] = 5 * (t >> 12 & 7) + 1;
  d.position[2] = 5 * (u & 7) + 2;
  d.position[3] = 5 * (u >> 5 & 7) + 3 + (u >> 4 & 1);
  d.sign[0] = sign_of(t, 11);
  d.sign[1] = sign_of(t, 15);
  d.sign[2] = sign_of(u, 3);
  d.sign[3] = sign_of(u, 8);
  d.gain_pitch = (v & 0x1FFF) * (1.0 / 16384);
  return d;
}

// Adds the four pulses whose common amplitude x brings the energy of e[0..39] to 40 gain^2, the
// smaller root of 4 x^2 + 2 b x + c = 0. Returns false when no amplitude does.
bool add_pulses(const Draws& d, double gain, double* e) {
  double b = 0.0;
  for (int k = 0; k < kPulses; ++k) b += d.sign[k] * e[d.position[k]];
  const double c = dot(e, e, kSubframe) - kSubframe * gain * gain;
  const double discriminant = b * b - 4.0 * c;
  if (discriminant < 0.0) return false;
  const double root = std::sqrt(discriminant);
  const double x1 = 0.25 * (root - b);
  const double x2 = -0.25 * (root + b);
  double x = std::fabs(x2) < std::fabs(x1) ? x2 : x1;
  x = std::min(std::max(x, -kMaxAmplitude), kMaxAmplitude);
  for (int k = 0; k < kPulses; ++k) e[d.position[k]] += d.sign[k] * x;
  return true;
}

NoiseSubframe noise_subframe(double gain, double* exc, int16_t* seed) {
  const Draws d = draw(seed);
  double gaussian[kSubframe];
  gaussian_noise(seed, gaussian);
  const double scale = gain * kRoot10 / std::sqrt(dot(gaussian, gaussian, kSubframe));
  for (int i = 0; i < kSubframe; ++i) gaussian[i] *= scale;

  pitch_excitation_interpolate(exc, d.lag, d.fraction, kSubframe);
  for (int i = 0; i < kSubframe; ++i) exc[i] = d.gain_pitch * exc[i] + gaussian[i];
  if (add_pulses(d, gain, exc)) return {{d.gain_pitch, gain}, d.lag};
  copy_vector(gaussian, exc, kSubframe);
  return {{0.0, gain}, d.lag};
}

// Takes a descriptor's gain and LSPs into the state.
Remarks receive_sid(ComfortNoiseState* state, const SidParameters& sid, LspHistory* history) {
  state->sid_gain = kSidGain[sid.energy];
  double buf[kOrder];
  double lsf[kOrder];
  sid_codevector(sid.first, sid.second, buf);
  lsp_predict(kNoisePredictor[sid.mode], *history, buf, lsf);
  lsp_history_push(buf, history);
  const Remarks remarks = lsp_stabilize(lsf);
  cosine(lsf, state->lsp_sid, kOrder);
  return remarks;
}

// The gain of a pause that began without a descriptor.
double gain_from_energy(double frame_energy) {
  int index;
  sid_gain_quantize(&frame_energy, 0, &index);
  return kSidGain[index];
}

}  // namespace

void comfort_noise_excitation(double gain, double* exc, int16_t* seed,
                              NoiseSubframe applied[kSubframes]) {
  for (int s = 0; s < kSubframes; ++s) {
    if (gain == 0.0) {
      zero_vector(exc + s * kSubframe, kSubframe);
      applied[s] = {{0.0, 0.0}, kSilentLag};
    } else {
      applied[s] = noise_subframe(gain, exc + s * kSubframe, seed);
    }
  }
}

NoiseFrame comfort_noise_decode(ComfortNoiseState* state, const NoiseInput& in, double* exc,
                                std::span<double, kOrder> lsp_old, LspHistory* history) {
  NoiseFrame frame;
  frame.remarks = 0;
  const bool after_speech = in.previous_type > kSid;
  if (in.sid != nullptr) {
    frame.remarks = receive_sid(state, *in.sid, history);
  } else if (after_speech) {
    state->sid_gain = gain_from_energy(in.frame_energy);
  }
  state->cur_gain = after_speech
                        ? state->sid_gain
                        : kSmoothing * state->cur_gain + (1.0 - kSmoothing) * state->sid_gain;

  comfort_noise_excitation(state->cur_gain, exc, &state->noise_seed, frame.applied);
  interpolate_quantized_lpc(lsp_old.data(), state->lsp_sid, frame.a);
  copy_vector(state->lsp_sid, lsp_old.data(), kOrder);
  return frame;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
