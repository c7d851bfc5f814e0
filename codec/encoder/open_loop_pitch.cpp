#include "codec/encoder/open_loop_pitch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "codec/dsp/filters.h"
#include "codec/dsp/simd/lane_minimum.h"
#include "codec/encoder/lag_screen.h"

namespace g729 {
inline namespace KELG729F_TARGET {
namespace {

constexpr double kEnergyFloor = 0.01;
constexpr double kShorterLagFavour = 0.85;

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

constexpr int kMaxSurvivors = 8;  // in a section; with more the plain search is faster

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
