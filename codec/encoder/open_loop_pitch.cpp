#include "codec/encoder/open_loop_pitch.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"
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
Candidate section_candidate(const double* wsp, const double* c, Section section) {
  const int position = peak_position(c, section);
  const int lag = kPitchMax - position;
  const double energy = kEnergyFloor + dot(wsp - lag, wsp - lag, kFrame);
  const double root = std::sqrt(static_cast<float>(energy));
  return {lag, c[position] / root};
}

}  // namespace

int open_loop_pitch(const double* wsp) {
  double c[kPositions];
  correlate(wsp, c);
  Candidate chosen = section_candidate(wsp, c, kLong);
  for (const Section section : {kMiddle, kShort}) {
    const Candidate shorter = section_candidate(wsp, c, section);
    if (shorter.normalised > kShorterLagFavour * chosen.normalised) chosen = shorter;
  }
  return chosen.lag;
}

}  // namespace g729::inline KELG729F_TARGET
