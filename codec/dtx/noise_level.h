// Comfort noise as loud as its background. Descriptors tell the energy of a moment, in steps of 2
// or 4 dB, and seldom; so the encoder keeps account of the noise that they make and lets later ones
// make up for what was too much or too little.
#pragma once

#include <span>

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

struct NoiseLevel {
  double background = 0;  // energy of a frame without speech, running mean
  double owed = 0;        // what the noise so far lacks, in frames of the background
};

// Takes a frame without speech and the noise that is synthesized in its place.
void noise_level_update(NoiseLevel* level, std::span<const double, kFrame> background,
                        std::span<const double, kFrame> noise);

// Factor on the energy that a descriptor tells.
double noise_level_factor(const NoiseLevel& level);

// Whether a descriptor is worth sending that changes the energy by `change` dB.
bool noise_level_worth_sending(const NoiseLevel& level, double change);

}  // namespace KELG729F_TARGET
}  // namespace g729
