#include "codec/dtx/noise_level.h"

#include <algorithm>
#include <cmath>

#include "codec/dsp/filters.h"

namespace g729 {
inline namespace KELG729F_TARGET {

namespace {

// Descriptors that tell the energy as it is make noise this much quieter than the background, 2.06
// dB: the analysis window and the scale of the descriptor do not match.
constexpr double kFullLevel = 1.607;
// What the decoder's post-filter and rounding take away, about .2 dB: .05 of white noise, .3 of car
// noise at an RMS of 30.
constexpr double kPostfilter = 1.04;

constexpr double kNewShare = 1.0 / 32;  // of a frame in the mean of the background
constexpr double kFaintest = kFrame;    // background that counts, an RMS of 1
constexpr double kMostAtOnce = 10.0;    // a burst that the detector missed counts as so many frames
constexpr double kRepaid = 48.0;        // frames over which the debt is paid back
constexpr double kMostOwed = 32.0;      // frames; 2.2 dB of a descriptor's energy
constexpr double kWorthSending = 4.0;   // frames
constexpr double kJump = 4.0;           // dB; a change beyond it is sent whatever is owed

}  // namespace

void noise_level_update(NoiseLevel* level, std::span<const double, kFrame> background,
                        std::span<const double, kFrame> noise) {
  const double heard = kPostfilter * dot(background.data(), background.data(), kFrame);
  const double made = dot(noise.data(), noise.data(), kFrame);
  level->background += kNewShare * (heard - level->background);
  const double lacking = (heard - made) / std::max(level->background, kFaintest);
  level->owed += std::clamp(lacking, -kMostAtOnce, kMostAtOnce);
  level->owed = std::clamp(level->owed, -kMostOwed, kMostOwed);
}

double noise_level_factor(const NoiseLevel& level) {
  const double change = 1.0 + std::fabs(level.owed) / kRepaid;
  return level.owed > 0.0 ? kFullLevel * change : kFullLevel / change;
}

bool noise_level_worth_sending(const NoiseLevel& level, double change) {
  if (std::fabs(change) > kJump) return true;
  return change > 0.0 ? level.owed > kWorthSending : change < 0.0 && level.owed < -kWorthSending;
}

}  // namespace KELG729F_TARGET
}  // namespace g729
