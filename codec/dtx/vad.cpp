#include "codec/dtx/vad.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/math.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

constexpr int kInitFrames = 32;           // frames that gather the first means
constexpr int kMinFrames = 128;           // frames until the minimum tracker has filled its buffer
constexpr int kMinBlock = 8;              // frames of a block of the minimum tracker
constexpr int kMinBlocks = 16;            // blocks it remembers
constexpr double kEnergyFloor = 21.0;     // dB; quieter frames are noise
constexpr double kNearNoise = 3.0;        // dB; frames this near the background may belong to it
constexpr double kSdNoise = 0.002532959;  // spectral distortion of background frames
constexpr double kTwoPiInverse = 0.15915494309189535;
static_assert(kMinFrames == kMinBlock * kMinBlocks);

// Correlation of the low-band filter's impulse response (0 to 1 kHz).
constexpr double kLowBand[kVadOrder + 1] = {
    0.24017939691329,  0.21398822343783,  0.14767692339633,  0.07018811903116,  0.00980856433051,
    -0.02015934721195, -0.02388269958005, -0.01480076155002, -0.00503292155509, 0.00012141366508,
    0.00119354245231,  0.00065908718613,  0.00015015782285};

// What the decision looks at (clause B.3.1).
struct Features {
  double energy;       // full band, dB
  double low;          // low band, dB
  double zc;           // zero crossings per sample
  double sd;           // spectral distortion against the background
  double lsf[kOrder];  // frequency / (2 pi)
};

double decibel(double r0) {
  return 10.0 * log10_of(r0 / kWindow + 1e-38);
}

double low_band_energy(const double* r) {
  double sum = 0.0;
  for (int i = 1; i <= kVadOrder; ++i) sum += kLowBand[i] * r[i];
  return decibel(std::max(kLowBand[0] * r[0] + 2.0 * sum, 0.0));
}

// Of the 80 samples that the look-ahead's middle ends.
double zero_crossings(const double* speech) {
  int count = 0;
  for (int n = 121; n <= 200; ++n) count += speech[n - 1] * speech[n] < 0.0 ? 1 : 0;
  return count * 0.0125;
}

double squared_distance(const double* x, const double* y) {
  double sum = 0.0;
  for (int i = 0; i < kOrder; ++i) sum += (x[i] - y[i]) * (x[i] - y[i]);
  return sum;
}

double least_block(const VadState& state) {
  double least = state.min_buffer[0];
  for (int i = 1; i < kMinBlocks; ++i) least = std::min(least, state.min_buffer[i]);
  return least;
}

// Minimum of the energy: block by block at the start, then over the last 16 blocks.
void track_minimum(VadState* state, double energy, int frame_count) {
  const int phase = frame_count % kMinBlock;
  if (frame_count <= kMinFrames) {
    if (energy < state->min) state->min = state->prev_min = energy;
    if (phase != 0) return;
    state->min_buffer[frame_count / kMinBlock - 1] = state->min;
    state->min = 1e38;
    state->prev_min = least_block(*state);
    return;
  }
  if (phase == 1) {
    state->min = std::min(state->prev_min, energy);
    state->next_min = energy;
    return;
  }
  state->min = std::min(state->min, energy);
  state->next_min = std::min(state->next_min, energy);
  if (phase != 0) return;
  for (int i = 0; i < kMinBlocks - 1; ++i) state->min_buffer[i] = state->min_buffer[i + 1];
  state->min_buffer[kMinBlocks - 1] = state->next_min;
  state->prev_min = least_block(*state);
}

// Means over the loud frames of the initialization period; returns its decision.
bool initialize(VadState* state, const Features& f, int frame_count) {
  if (f.energy < kEnergyFloor) {
    ++state->less_count;
    return false;
  }
  const double n = frame_count - 1 - state->less_count;
  const auto average = [n](double* mean, double x) { *mean = (n * *mean + x) / (n + 1.0); };
  average(&state->mean_e, f.energy);
  average(&state->mean_szc, f.zc);
  for (int i = 0; i < kOrder; ++i) average(&state->mean_lsf[i], f.lsf[i]);
  return true;
}

// The fourteen lines of the multi-boundary decision (clause B.3.5).
bool is_voice(const VadState& state, const Features& f) {
  const double dse = state.mean_se - f.energy;
  const double dsle = state.mean_sle - f.low;
  const double dszc = state.mean_szc - f.zc;
  const double sd = f.sd;
  return sd > 0.00175 * dszc + 0.00085 || sd > -0.004545455 * dszc + 0.001159091 ||
         dse < -25.0 * dszc - 5.0 || dse < 20.0 * dszc - 6.0 || dse < -4.7 ||
         dse < 8800.0 * sd - 12.2 || sd > 0.0009 || dse < 25.0 * dszc - 7.0 ||
         dse < -29.09091 * dszc - 4.8182 || dse < -5.3 || dsle < 14000.0 * sd - 15.5 ||
         dsle > 0.928571 * dse + 1.14285 || dsle < -1.5 * dse - 9.0 ||
         dsle < 0.714285 * dse - 2.1428571;
}

// Hangover: voice goes on while the level holds, for at most five frames in a row.
bool extend_voice(VadState* state, const Features& f, const VadInput& in, bool marker) {
  state->v_flag = false;
  if (in.prev_marker && !marker && f.energy > state->mean_se + 2.0 && f.energy > kEnergyFloor) {
    marker = true;
    state->v_flag = true;
  }
  if (!state->flag) {
    state->flag = true;
    return marker;
  }
  if (in.pprev_marker && in.prev_marker && !marker &&
      std::fabs(state->prev_energy - f.energy) <= 3.0) {
    marker = true;
    state->v_flag = true;
    if (++state->count_ext > 4) {
      state->count_ext = 0;
      state->flag = false;
    }
  }
  return marker;
}

// Noise goes on after ten frames of it unless the level jumps.
bool extend_noise(VadState* state, const Features& f, bool marker) {
  if (!marker) {
    ++state->count_sil;
    return false;
  }
  if (state->count_sil > 10 && f.energy - state->prev_energy <= 3.0) marker = false;
  state->count_sil = 0;
  return marker;
}

// Smoothing of the decision (clause B.3.6).
bool smooth(VadState* state, const Features& f, const VadInput& in, bool marker) {
  marker = extend_voice(state, f, in, marker);
  marker = extend_noise(state, f, marker);
  const bool near_noise = in.frame_count > kMinFrames && !state->v_flag && in.rc < 0.6 &&
                          f.energy < state->mean_se + kNearNoise;
  return marker && !near_noise;
}

// Share of the old mean by the number of updates.
struct UpdateRate {
  int below;  // updates
  double energy;
  double zc;
  double lsf;
};
constexpr UpdateRate kUpdateRates[] = {
    {20, 0.75, 0.8, 0.6},   {30, 0.95, 0.92, 0.65},  {40, 0.97, 0.94, 0.7},
    {50, 0.99, 0.96, 0.75}, {60, 0.995, 0.99, 0.75},
};
constexpr UpdateRate kLastRate = {0, 0.995, 0.998, 0.75};

// Moves the background means to a frame that belongs to the background (clause B.3.7).
void update_background(VadState* state, const Features& f, double rc, int frame_count) {
  if (f.energy < state->mean_se + kNearNoise && rc < 0.75 && f.sd < kSdNoise) {
    ++state->count_update;
    const UpdateRate* rate = &kLastRate;
    for (const UpdateRate& r : kUpdateRates) {
      if (state->count_update < r.below) {
        rate = &r;
        break;
      }
    }
    const auto average = [](double* mean, double x, double old_share) {
      *mean = old_share * *mean + (1.0 - old_share) * x;
    };
    average(&state->mean_se, f.energy, rate->energy);
    average(&state->mean_sle, f.low, rate->energy);
    average(&state->mean_szc, f.zc, rate->zc);
    for (int i = 0; i < kOrder; ++i) average(&state->mean_lsf[i], f.lsf[i], rate->lsf);
  }
  const bool below = frame_count > kMinFrames && state->mean_se < state->min && f.sd < kSdNoise;
  if (below || state->mean_se > state->min + 10.0) {
    state->mean_se = state->min;
    state->count_update = 0;
  }
}

}  // namespace

VadDecision vad_decide(VadState* state, const VadInput& in) {
  Features f;
  f.energy = decibel(in.r[0]);
  f.low = low_band_energy(in.r.data());
  f.zc = zero_crossings(in.speech.data());
  for (int i = 0; i < kOrder; ++i) f.lsf[i] = in.lsf.data()[i] * kTwoPiInverse;
  f.sd = squared_distance(f.lsf, state->mean_lsf);
  if (in.wait_for_sound && in.frame_count <= kInitFrames && f.energy < kEnergyFloor) {
    state->prev_energy = f.energy;
    return {false, f.energy, true};
  }
  track_minimum(state, f.energy, in.frame_count);

  bool voice = false;
  if (in.frame_count <= kInitFrames) voice = initialize(state, f, in.frame_count);
  if (in.frame_count == kInitFrames) {
    state->mean_se = state->mean_e - 10.0;
    state->mean_sle = state->mean_e - 12.0;
  }
  if (in.frame_count >= kInitFrames) {
    voice = f.energy >= kEnergyFloor && is_voice(*state, f);
    voice = smooth(state, f, in, voice);
    update_background(state, f, in.rc, in.frame_count);
  }
  state->prev_energy = f.energy;
  return {voice, f.energy, false};
}

}  // namespace KELG729F_TARGET
}  // namespace g729
