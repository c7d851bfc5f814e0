#include "codec/encoder/lag_screen.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/across.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kLeastNorms = 1e-20, kMostNorms = 1e20;  // well inside the range of floats

constexpr int kTileBlocks = kNativeLanes >= 8 ? 8 : kNativeLanes >= 4 ? 4 : 2;
constexpr int kFrameBlocks = kFrame / kFloatLanes;
static_assert(kPositions % (kTileBlocks * kFloatLanes) == 0 && kFrame % kFloatLanes == 0);

// c[p + 16 t ...]. An element of `delayed` and `wsp` is a sample and the one behind it. The samples
// 16 k + r and 16 k + r + 1 meet the delayed ones: every load of those serves all blocks k.
void correlate_tile(const int32_t* delayed, const int32_t* wsp, float* c) {
  Whole16 acc[kTileBlocks];
  for (Whole16& a : acc) a = splat(0);
  for (int r = 0; r < kFloatLanes; r += 2) {
    Whole16 sample[kFrameBlocks];
    for (int k = 0; k < kFrameBlocks; ++k) sample[k] = splat(wsp[k * kFloatLanes + r]);
#pragma GCC unroll 12
    for (int m = 0; m < kTileBlocks + kFrameBlocks - 1; ++m) {
      const Whole16 past = load(delayed + m * kFloatLanes + r);
#pragma GCC unroll 5
      for (int k = 0; k < kFrameBlocks; ++k)
        if (m >= k && m - k < kTileBlocks)
          acc[m - k] = acc[m - k] + multiply_halves(sample[k], past);
    }
  }
  for (int t = 0; t < kTileBlocks; ++t) store(c + t * kFloatLanes, convert<float>(acc[t]));
}

// Block i of the samples; the last one overlaps the one before.
constexpr int kSamples = kPitchMax + kFrame;
constexpr int kSampleBlocks = (kSamples + kFloatLanes - 1) / kFloatLanes;
constexpr int block_start(int i) {
  return std::min(i * kFloatLanes, kSamples - kFloatLanes);
}

struct NarrowSamples {
  Float16 block[kSampleBlocks];
  double largest;  // magnitude
  double energy;   // at least that of all samples, but for rounding
};

KELG729F_VEC void narrow_samples(const double* oldest, NarrowSamples* s) {
  Float16 largest = splat(0.0F), energy[2] = {splat(0.0F), splat(0.0F)};
#pragma GCC unroll 14
  for (int i = 0; i < kSampleBlocks; ++i) {
    const double* const x = oldest + block_start(i);
    s->block[i] = narrow(load(x), load(x + kLanes));
    largest = larger(larger(s->block[i], splat(0.0F) - s->block[i]), largest);
    energy[i % 2] = energy[i % 2] + s->block[i] * s->block[i];
  }
  s->largest = largest_lane(largest);
  s->energy = sum(energy[0] + energy[1]);
}

// Each sample times `scale`, rounded, in the low half; the one behind it in the high half.
KELG729F_VEC void round_samples(const NarrowSamples& s, float scale, int32_t* pairs) {
  Whole16 x = convert<int32_t>(s.block[0] * splat(scale));
#pragma GCC unroll 14
  for (int i = 0; i < kSampleBlocks; ++i) {
    const Whole16 after =
        i + 1 < kSampleBlocks ? convert<int32_t>(s.block[i + 1] * splat(scale)) : splat(0);
    store(pairs + block_start(i), join_halves(x, next_lanes(x, after)));
    x = after;
  }
}

}  // namespace

// Correlations scaled so that they stay below 2^30: none is greater than |wsp| |delayed wsp|,
// Cauchy and Schwarz say. Rounding changes a sample by 1 at most, and so a correlation by the sum
// of both signals' magnitudes and 80, where such a sum is sqrt(80) |signal| at most. Two
// correlations are compared. The constants above 1 and 80 are for the roundings of this estimate
// and of floats. False when that does not work for the signal's level.
bool screen_positions(const double* wsp, LagScreen* s) {
  constexpr double kMostCorrelation = 0x1p30, kMostSample = 32767.0;
  const double root80 = std::sqrt(static_cast<double>(kFrame));
  alignas(64) int32_t pairs[kSampleBlocks * kFloatLanes];
  NarrowSamples samples;
  narrow_samples(wsp - kPitchMax, &samples);
  const double energy = dot(wsp, wsp, kFrame);
  const double norms = std::sqrt(energy * samples.energy);
  if (!(norms > kLeastNorms && norms < kMostNorms)) return false;
  const double scale = std::min(std::sqrt(kMostCorrelation / norms), kMostSample / samples.largest);
  round_samples(samples, static_cast<float>(scale), pairs);
  for (int p = 0; p < kPositions; p += kTileBlocks * kFloatLanes)
    correlate_tile(pairs + p, pairs + kPitchMax, s->c + p);
  s->slack = static_cast<float>(
      2.1 * (scale * root80 * (std::sqrt(energy) + std::sqrt(samples.energy)) + 256.0));
  return true;
}

uint64_t survivors(const LagScreen& s, Section section) {
  const auto place = [&](int p) { return std::min(p, section.last - (kFloatLanes - 1)); };
  Float16 largest = load(s.c + section.first);
  for (int p = section.first; p <= section.last; p += kFloatLanes)
    largest = larger(load(s.c + place(p)), largest);
  const Float16 bar = splat(largest_lane(largest) - s.slack);
  uint64_t left = 0;
  for (int p = section.first; p <= section.last; p += kFloatLanes)
    left |= uint64_t{lanes_at_most(bar, load(s.c + place(p)))} << (place(p) - section.first);
  return left;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
