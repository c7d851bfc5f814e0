#include "codec/encoder/music_detector.h"

#include <algorithm>
#include <cmath>

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kPitchGainMemory = 0.8;
constexpr double kSteadyLag = 1.3;          // standard deviation, samples
constexpr double kPitchGainMusic = 0.6;     // mean; frames of noise count 0.5
constexpr double kSharpSpectrum = 0.1;      // partial residual energy: 10 dB of prediction gain
constexpr double kFarFromBackground = 0.1;  // squared distance of reflection coefficients
constexpr double kNearBackground = 0.02;
constexpr double kAboveBackground = 6.0;  // dB
constexpr double kAudible = 21.0;         // dB, the voice activity detector's floor
constexpr int kBackgroundFrames = 20;     // length of the background averages
constexpr int kEvidenceNeeded = 8;        // frames
constexpr int kEvidenceMax = 24;

double partial_residual_energy(const double* rc) {
  double energy = 1.0;
  for (int i = 0; i < kMusicOrder; ++i) energy *= 1.0 - rc[i] * rc[i];
  return energy;
}

double lag_deviation(const int* lag_buf) {
  double mean = 0.0, variance = 0.0;
  for (int i = 0; i < kMusicHistory; ++i) mean += lag_buf[i] * (1.0 / kMusicHistory);
  for (int i = 0; i < kMusicHistory; ++i) variance += (lag_buf[i] - mean) * (lag_buf[i] - mean);
  return std::sqrt(variance / kMusicHistory);
}

double background_distance(const MusicDetectorState& state, const double* rc) {
  double sum = 0.0;
  for (int i = 0; i < kMusicOrder; ++i)
    sum += (rc[i] - state.mean_rc[i]) * (rc[i] - state.mean_rc[i]);
  return sum;
}

void follow_pitch_gain(MusicDetectorState* state, const double* pgain_buf) {
  double mean = 0.0;
  for (int i = 0; i < kMusicHistory; ++i) mean += pgain_buf[i] * (1.0 / kMusicHistory);
  state->mean_pitch_gain =
      kPitchGainMemory * state->mean_pitch_gain + (1.0 - kPitchGainMemory) * mean;
}

// A plain mean over the first frames, then an exponential one.
void follow_background(MusicDetectorState* state, const double* rc, double energy_db) {
  state->backgrounds = std::min(state->backgrounds + 1, kBackgroundFrames);
  const double step = 1.0 / state->backgrounds;
  for (int i = 0; i < kMusicOrder; ++i) state->mean_rc[i] += step * (rc[i] - state->mean_rc[i]);
  state->mean_energy += step * (energy_db - state->mean_energy);
}

bool looks_like_music(const MusicDetectorState& state, const MusicInput& in) {
  const double* const rc = in.rc.data();
  if (in.energy_db < kAudible) return false;
  if (in.prev_lp_mode == kBackward) return true;
  if (state.backgrounds > 0 && in.energy_db < state.mean_energy + kAboveBackground) return false;
  const bool steady_pitch =
      lag_deviation(in.lag_buf.data()) < kSteadyLag && state.mean_pitch_gain > kPitchGainMusic;
  const bool sharp = partial_residual_energy(rc) < kSharpSpectrum &&
                     background_distance(state, rc) > kFarFromBackground;
  return steady_pitch || sharp;
}

}  // namespace

bool music_detect(MusicDetectorState* state, const MusicInput& in) {
  const double* const rc = in.rc.data();
  follow_pitch_gain(state, in.pgain_buf.data());
  const bool music = looks_like_music(*state, in);
  state->evidence = std::min(std::max(state->evidence + (music ? 1 : -2), 0), kEvidenceMax);

  const bool like_background =
      state->backgrounds == 0 || background_distance(*state, rc) < kNearBackground;
  if (!in.vad && !music && (!in.past_vad || like_background))
    follow_background(state, rc, in.energy_db);
  return in.vad || (in.rate == kRate11k8 && state->evidence >= kEvidenceNeeded);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
