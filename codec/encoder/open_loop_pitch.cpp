#include "codec/encoder/open_loop_pitch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/float_lanes.h"
#include "codec/dsp/lane_minimum.h"

namespace g729::inline KELG729F_TARGET {
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

struct Candidate {
  int lag;
  double normalised;
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

// The square root is a single-precision one, as decisions depend on its rounding.
Candidate normalise(const double* wsp, int position, double correlation) {
  const int lag = kPitchMax - position;
  const double energy = kEnergyFloor + dot(wsp - lag, wsp - lag, kFrame);
  const double root = std::sqrt(static_cast<float>(energy));
  return {lag, correlation / root};
}

int choose_lag(Candidate chosen, Candidate middle, Candidate short_lag) {
  for (const Candidate& shorter : {middle, short_lag})
    if (shorter.normalised > kShorterLagFavour * chosen.normalised) chosen = shorter;
  return chosen.lag;
}

// The search in two steps: single precision leaves only positions whose correlation comes within
// its error of the section's greatest, most often one, and double precision decides among them.
//
// Each of the 80 products and sums is off by at most 2^-24 of what it could be at most, and that
// totals |wsp| |delayed wsp|, Cauchy and Schwarz say. Two correlations are compared.
constexpr double kScreenError = 2 * 0x1p-17;
constexpr float kLeastSlack = 1e-30F, kMostSlack = 1e30F;  // well inside the range of floats
constexpr int kMaxSurvivors = 8;  // in a section; with more the plain search is faster

struct Screen {
  alignas(64) float c[kPositions];
  float slack;
};

constexpr int kFloatTile = kNativeLanes >= 8 ? 8 : kNativeLanes >= 4 ? 4 : 2;
constexpr int kFloatBlocks = kFrame / kFloatLanes;
static_assert(kPositions % (kFloatTile * kFloatLanes) == 0 && kFrame % kFloatLanes == 0);

// c[p + 16 t ...] from the samples 16 k + r times the delayed ones: every load of those serves all
// blocks k.
void correlate_tile(const float* delayed, const float* wsp, float* c) {
  Float16 acc[kFloatTile];
  for (Float16& a : acc) a = splat(0.0F);
  for (int r = 0; r < kFloatLanes; ++r) {
    Float16 sample[kFloatBlocks];
    for (int k = 0; k < kFloatBlocks; ++k) sample[k] = splat(wsp[k * kFloatLanes + r]);
#pragma GCC unroll 12
    for (int m = 0; m < kFloatTile + kFloatBlocks - 1; ++m) {
      const Float16 past = load(delayed + m * kFloatLanes + r);
#pragma GCC unroll 5
      for (int k = 0; k < kFloatBlocks; ++k)
        if (m >= k && m - k < kFloatTile) acc[m - k] = acc[m - k] + sample[k] * past;
    }
  }
  for (int t = 0; t < kFloatTile; ++t) store(c + t * kFloatLanes, acc[t]);
}

void screen_positions(const double* wsp, Screen* s) {
  constexpr int kSamples = kPitchMax + kFrame;
  const double* const oldest = wsp - kPitchMax;
  alignas(64) float samples[kSamples + 1];
  for (int n = 0; n < kSamples; n += kFloatLanes) {
    const int at = std::min(n, kSamples - kFloatLanes);  // the last one overlaps
    store(samples + at, narrow(load(oldest + at), load(oldest + at + kLanes)));
  }
  for (int p = 0; p < kPositions; p += kFloatTile * kFloatLanes)
    correlate_tile(samples + p, samples + kPitchMax, s->c + p);
  const double energy = dot(wsp, wsp, kFrame), past = dot(oldest, oldest, kSamples - kPitchMin);
  s->slack = static_cast<float>(kScreenError * std::sqrt(energy * past));
}

// The section's positions that may have its greatest correlation, bit i for first + i.
uint64_t survivors(const Screen& s, Section section) {
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
Candidate section_candidate(const double* wsp, Section section, uint64_t left) {
  int best = 0;
  double greatest = 0.0;
  for (bool first = true; left != 0; left &= left - 1, first = false) {
    const int position = section.first + std::countr_zero(left);
    const double c = dot(wsp, wsp - kPitchMax + position, kFrame);
    if (!first && !(c > greatest)) continue;
    greatest = c;
    best = position;
  }
  return normalise(wsp, best, greatest);
}

}  // namespace

int open_loop_pitch_plain(const double* wsp) {
  double c[kPositions];
  correlate(wsp, c);
  const auto candidate = [&](Section section) {
    const int position = peak_position(c, section);
    return normalise(wsp, position, c[position]);
  };
  return choose_lag(candidate(kLong), candidate(kMiddle), candidate(kShort));
}

int open_loop_pitch(const double* wsp) {
  Screen screen;
  screen_positions(wsp, &screen);
  if (!(screen.slack > kLeastSlack && screen.slack < kMostSlack))
    return is_silent(wsp) ? kPitchMax : open_loop_pitch_plain(wsp);
  Candidate candidate[3];
  int i = 0;
  for (const Section section : {kLong, kMiddle, kShort}) {
    const uint64_t left = survivors(screen, section);
    if (left == 0 || std::popcount(left) > kMaxSurvivors) return open_loop_pitch_plain(wsp);
    candidate[i++] = section_candidate(wsp, section, left);
  }
  return choose_lag(candidate[0], candidate[1], candidate[2]);
}

}  // namespace g729::inline KELG729F_TARGET
