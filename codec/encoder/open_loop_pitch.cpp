#include "codec/encoder/open_loop_pitch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/float_lanes.h"
#include "codec/dsp/simd/lane_minimum.h"
#include "codec/dsp/simd/whole_lanes.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

// Correlations are kept by position, 143 - lag, so that eight of them read consecutive samples:
//
//   position   0 ............ 63 | 64 ......... 103 | 104 ...... 123 | 124 ... 127
//   lag      143 ............ 80 | 79 .......... 40 | 39 ........ 20 | 19 ..... 16 (not used)
consteval int position_of(int lag) {
  return kPitchMax - lag;
}
constexpr int kPositions = (position_of(kPitchMin) / kLanes + 1) * kLanes;
static_assert(kPositions - kPitchMax <= 0, "the unused positions read inside the frame too");

constexpr double kEnergyFloor = 0.01;
constexpr double kShorterLagFavour = 0.85;

struct Section {
  int first, last;  // positions
};
constexpr Section kLong = {position_of(143), position_of(80)};
constexpr Section kMiddle = {position_of(79), position_of(40)};
constexpr Section kShort = {position_of(39), position_of(20)};

struct LagCandidate {
  int lag;
  double normalized;
};

// Vectors summed together: as many as the registers hold.
constexpr int kTile = kNativeLanes;
static_assert(kPositions % (kTile * kLanes) == 0);

// c[p] = sum over j = 0..79, in this order, of wsp[j] wsp[j - 143 + p].
void correlate(const double* wsp, double* c) {
  for (int p = 0; p < kPositions; p += kTile * kLanes) {
    const double* const delayed = wsp - kPitchMax + p;
    Vec8 acc[kTile];
    for (Vec8& a : acc) a = splat(0.0);
    for (int j = 0; j < kFrame; ++j) {
      const Vec8 sample = splat(wsp[j]);
      for (int t = 0; t < kTile; ++t) acc[t] = acc[t] + sample * load(delayed + j + t * kLanes);
    }
    for (int t = 0; t < kTile; ++t) store(c + p + t * kLanes, acc[t]);
  }
}

// Position of the section's greatest correlation, the first among equals. The last vector may
// overlap the one before.
int peak_position(const double* c, Section section) {
  LaneMinimum lowest;
  for (int p = section.first; p <= section.last; p += kLanes) {
    const int at = std::min(p, section.last - (kLanes - 1));
    consider(&lowest, splat(0.0) - load(c + at), at);
  }
  return lowest_index(lowest);
}

// A position's correlation and the energy of its delayed samples.
struct Measure {
  double correlation, energy;
};
KELG729F_VEC Measure measure(const double* wsp, int position) {
  const double* const delayed = wsp - kPitchMax + position;
  Vec8 c = splat(0.0), e = splat(0.0);
  for (int n = 0; n < kFrame; n += kLanes) {
    const Vec8 past = load(delayed + n);
    c = c + load(wsp + n) * past;
    e = e + past * past;
  }
  return {sum(c), kEnergyFloor + sum(e)};
}

// The square root is a single-precision one, as decisions depend on its rounding.
LagCandidate normalize(int position, const Measure& m) {
  const double root = std::sqrt(static_cast<float>(m.energy));
  return {kPitchMax - position, m.correlation / root};
}

int choose_lag(LagCandidate chosen, LagCandidate middle, LagCandidate short_lag) {
  for (const LagCandidate& shorter : {middle, short_lag})
    if (shorter.normalized > kShorterLagFavour * chosen.normalized) chosen = shorter;
  return chosen.lag;
}

// The search in two steps: numbers rounded to 16 bits leave only positions whose correlation comes
// within the error of the section's greatest, most often one, and double precision decides among
// them.
constexpr int kMaxSurvivors = 8;  // in a section; with more the plain search is faster
constexpr double kLeastNorms = 1e-20, kMostNorms = 1e20;  // well inside the range of floats

struct LagScreen {
  alignas(64) float c[kPositions];
  float slack;
};

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
  for (int t = 0; t < kTileBlocks; ++t) store(c + t * kFloatLanes, to_floats(acc[t]));
}

// Block i of the samples; the last one overlaps the one before.
constexpr int kSamples = kPitchMax + kFrame;
constexpr int kSampleBlocks = (kSamples + kFloatLanes - 1) / kFloatLanes;
constexpr int block_start(int i) {
  return std::min(i * kFloatLanes, kSamples - kFloatLanes);
}

struct Samples {
  Float16 block[kSampleBlocks];
  double largest;  // magnitude
  double energy;   // at least that of all samples, but for rounding
};

KELG729F_VEC void narrow_samples(const double* oldest, Samples* s) {
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
KELG729F_VEC void round_samples(const Samples& s, float scale, int32_t* pairs) {
  Whole16 x = truncate(s.block[0] * splat(scale));
#pragma GCC unroll 14
  for (int i = 0; i < kSampleBlocks; ++i) {
    const Whole16 after =
        i + 1 < kSampleBlocks ? truncate(s.block[i + 1] * splat(scale)) : splat(0);
    store(pairs + block_start(i), join_halves(x, next_lanes(x, after)));
    x = after;
  }
}

// Correlations scaled so that they stay below 2^30: none is greater than |wsp| |delayed wsp|,
// Cauchy and Schwarz say. Rounding changes a sample by 1 at most, and so a correlation by the sum
// of both signals' magnitudes and 80, where such a sum is sqrt(80) |signal| at most. Two
// correlations are compared. The constants above 1 and 80 are for the roundings of this estimate
// and of floats. False when that does not work for the signal's level.
bool screen_positions(const double* wsp, LagScreen* s) {
  constexpr double kMostCorrelation = 0x1p30, kMostSample = 32767.0;
  const double root80 = std::sqrt(static_cast<double>(kFrame));
  alignas(64) int32_t pairs[kSampleBlocks * kFloatLanes];
  Samples samples;
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

// The section's positions that may have its greatest correlation, bit i for first + i.
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

bool is_silent(const double* wsp) {
  return std::all_of(wsp, wsp + kFrame, [](double x) { return x == 0.0; });
}

// The first of the greatest correlations among the positions left.
LagCandidate section_candidate(const double* wsp, Section section, uint64_t left) {
  int best = section.first + std::countr_zero(left);
  Measure greatest = measure(wsp, best);
  for (left &= left - 1; left != 0; left &= left - 1) {
    const int position = section.first + std::countr_zero(left);
    const Measure m = measure(wsp, position);
    if (!(m.correlation > greatest.correlation)) continue;
    greatest = m;
    best = position;
  }
  return normalize(best, greatest);
}

}  // namespace

int open_loop_pitch_plain(const double* wsp) {
  double c[kPositions];
  correlate(wsp, c);
  const auto candidate = [&](Section section) {
    const int position = peak_position(c, section);
    return normalize(position, {c[position], measure(wsp, position).energy});
  };
  return choose_lag(candidate(kLong), candidate(kMiddle), candidate(kShort));
}

int open_loop_pitch(const double* wsp) {
  LagScreen screen;
  if (!screen_positions(wsp, &screen))
    return is_silent(wsp) ? kPitchMax : open_loop_pitch_plain(wsp);
  LagCandidate candidate[3];
  int i = 0;
  for (const Section section : {kLong, kMiddle, kShort}) {
    const uint64_t left = survivors(screen, section);
    if (left == 0 || std::popcount(left) > kMaxSurvivors) return open_loop_pitch_plain(wsp);
    candidate[i++] = section_candidate(wsp, section, left);
  }
  return choose_lag(candidate[0], candidate[1], candidate[2]);
}

}  // namespace KELG729F_TARGET
}  // namespace g729
