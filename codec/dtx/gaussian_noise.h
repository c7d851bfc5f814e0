// The Gaussian part of the comfort noise: 480 draws of the codec's generator a subframe.
#pragma once

#include <cstdint>

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kGaussianDraws = 12;  // draws summed for one sample

// out[0..39] = sums of twelve draws, shifted right by seven (arithmetic) and divided by 512; moves
// the seed by 480 draws.
void gaussian_noise(int16_t* seed, double* out);

// The same, draw by draw.
void gaussian_noise_plain(int16_t* seed, double* out);

}  // namespace KELG729F_TARGET
}  // namespace g729
