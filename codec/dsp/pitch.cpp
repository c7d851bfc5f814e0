#include "codec/dsp/pitch.h"

#include "codec/dsp/simd/lanes.h"
#include "codec/dsp/simd/sample_run.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// clang-format off
// 0.898517 sinc(0.9 n / 3) (0.54 + 0.46 cos(pi n / 29.5)), n = 0..29, and 0.
const double kPitchInterpolation[3 * kInterpolationTaps + 1] = {
    0.898517, 0.769271, 0.448635, 0.095915, -0.134333, -0.178528, -0.084919, 0.036952,
    0.095533, 0.068936, 0.000000, -0.050404, -0.050835, -0.014169, 0.023083, 0.033543,
    0.016774, -0.007466, -0.019340, -0.013755, 0.000000, 0.009400, 0.009029, 0.002381,
    -0.003658, -0.005027, -0.002405, 0.001050, 0.002780, 0.002145, 0.000000,
};
// clang-format on

void pitch_excitation_interpolate(double* exc, int t0, int frac, int n) {
  if (frac > 0) {
    frac -= 3;
    ++t0;
  }
  const double* older = kPitchInterpolation - frac;      // taps of x[0], x[-1], ...
  const double* newer = kPitchInterpolation + 3 + frac;  // taps of x[1], x[2], ...
  // Eight samples at once: the newest read, x[10], lies at least 10 samples before the output.
  // What the run holds beyond it is not used.
  static_assert(kPitchMin - kInterpolationTaps >= kLanes);
  constexpr Constant<kInterpolationTaps - 1> kX;  // place of exc[k - t0] in the run
  for (int k = 0; k < n; k += kLanes) {
    const SampleRun<4> run(exc + k - t0 - kX);
    Vec8 past = splat(0.0), future = splat(0.0);
    for_places<kInterpolationTaps>([&](auto i) __attribute__((always_inline)) {
      past = past + splat(older[3 * i]) * run.from(kX - i);
      future = future + splat(newer[3 * i]) * run.from(kX + Constant<1>() + i);
    });
    store(exc + k, past + future);
  }
}

void pitch_sharpen(double* code, int t0, double sharp) {
  for (int i = t0; i < kSubframe; ++i) code[i] += sharp * code[i - t0];
}

int pitch_parity(int index) {
  return 1 - __builtin_parity(static_cast<unsigned>(index >> 2) & 0x3F);
}

bool pitch_parity_check(int index, int parity) {
  return pitch_parity(index) != parity;
}

double sharpening_gain(double gain_pitch) {
  if (gain_pitch < kSharpMin) return kSharpMin;
  return gain_pitch > kSharpMax ? kSharpMax : gain_pitch;
}

int second_lag_min(int t0) {
  const int lowest = t0 - 5 < kPitchMin ? kPitchMin : t0 - 5;
  return lowest + 9 > kPitchMax ? kPitchMax - 9 : lowest;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
