// What the closed-loop searches of the adaptive codebook share (clause 3.7): the correlation of the
// target with the filtered past excitation, lag by lag, and its interpolation between lags.
#pragma once

#include "codec/dsp/constants.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kLastFractionalLag = 84;  // first subframe
inline constexpr int kLagWidth = 10;           // integer lags of the widest range
inline constexpr int kLagMargin = 4;           // lags that the interpolation reads beyond the range
static_assert(kPitchMax + kLagMargin <= kExcitationPast);

// Interpolation of the normalized correlation by thirds of a sample: a windowed sinc.
inline constexpr double corr_interp_filter[3 * kLagMargin + 1] = {
    0.900839, 0.760084, 0.424082, 0.084078, -0.10557,  -0.12112, -0.047624,
    0.016285, 0.031217, 0.015738, 0.0,      -0.005925, 0.0,
};

inline constexpr double kLagEnergyFloor = 0.01;
inline constexpr int kSubframeVectors = kSubframe / kLanes;

// The past excitation of a lag, filtered by the impulse response h.
struct FilteredLag {
  Vec8 y[kSubframeVectors];
};

KELG729F_VEC void load_filtered(const double* y, FilteredLag* f) {
  for (int v = 0; v < kSubframeVectors; ++v) f->y[v] = load(y + v * kLanes);
}

// Moves to the next lag: y[i] <- y[i - 1] + sample * h[i], where `sample` is the excitation that
// the longer lag brings in.
KELG729F_VEC void delay_filtered(FilteredLag* f, double sample, const double* h) {
  const Vec8 s = splat(sample);
  for (int v = kSubframeVectors - 1; v > 0; --v)
    f->y[v] = slide(f->y[v - 1], f->y[v]) + s * load(h + v * kLanes);
  f->y[0] = slide(splat(0.0), f->y[0]) + s * load(h);
}

// Correlation with the target xn, and the energy.
KELG729F_VEC void measure(const FilteredLag& f, const double* xn, double* corr, double* energy) {
  Vec8 xy = load(xn) * f.y[0], yy = f.y[0] * f.y[0];
  for (int v = 1; v < kSubframeVectors; ++v) {
    xy = xy + load(xn + v * kLanes) * f.y[v];
    yy = yy + f.y[v] * f.y[v];
  }
  *corr = sum(xy);
  *energy = kLagEnergyFloor + sum(yy);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
