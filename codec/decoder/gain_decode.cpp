#include "codec/decoder/gain_decode.h"

#include "codec/dsp/tables/gain_tables.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kMaxConcealedPitch = 0.9;
constexpr double kPitchFading = 0.9;
constexpr double kCodeFading = 0.98;

constexpr double kFading11k8 = 0.98;
constexpr double kStationaryFading11k8 = 0.995;
constexpr int kHeldSubframes = 2;         // erased subframes before 11.8 kbit/s gains fade
constexpr int kStationarySubframes = 10;  // the same for the attenuation of a stationary signal

// Returns the correction factor that the predictor memory receives.
double set_gains(const GainPair& a, const GainPair& b, const double* code,
                 GainDecoderState* state) {
  const double factor = a.code + b.code;
  state->gain_pitch = a.pitch + b.pitch;
  state->gain_code = factor * gain_predict(state->past_energy, code, kSubframe);
  return factor;
}

}  // namespace

void gain_decode(int index, const double* code, GainDecoderState* state) {
  const GainPair& a = kGainA[kGainIndexA[(index >> 4) & (kGainStageA - 1)]];
  const GainPair& b = kGainB[kGainIndexB[index & (kGainStageB - 1)]];
  gain_history_push(&state->past_energy, set_gains(a, b, code, state));
}

void gain_decode_6k4(int index, const double* code, GainDecoderState* state) {
  const GainPair& a = kGainA6k4[kGainIndexA6k4[(index >> 3) & (kGainStageA - 1)]];
  const GainPair& b = kGainB6k4[kGainIndexB6k4[index & (kGainStageB6k4 - 1)]];
  const double factor = set_gains(a, b, code, state);
  gain_history_push(&state->past_energy, factor < kGainFloor6k4 ? kGainFloor6k4 : factor);
}

void gain_conceal(GainDecoderState* state) {
  const double faded = kPitchFading * state->gain_pitch;
  state->gain_pitch = faded < kMaxConcealedPitch ? faded : kMaxConcealedPitch;
  state->gain_code *= kCodeFading;
  gain_history_conceal(&state->past_energy);
}

void gain_conceal_11k8(bool bwd_stationary, GainDecoderState* state) {
  if (state->erasure_count < kHeldSubframes) {
    state->gain_pitch = bwd_stationary ? 1.0 : 0.95;
  } else {
    state->gain_pitch *= state->erasure_attenuation;
    state->gain_code *= state->erasure_attenuation;
    if (!bwd_stationary)
      state->erasure_attenuation *= kFading11k8;
    else if (state->erasure_count > kStationarySubframes)
      state->erasure_attenuation *= kStationaryFading11k8;
  }
  gain_history_conceal(&state->past_energy);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
