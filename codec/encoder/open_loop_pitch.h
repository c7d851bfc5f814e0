// Open-loop pitch analysis (clause 3.4).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

// Pitch lag, kPitchMin..kPitchMax, of the weighted speech wsp[0..79]; wsp[-143..-1] must be valid.
// Three sections of lags (80..143, 40..79, 20..39) compete by their greatest normalized
// correlation, each shorter one favoured over the longer; among equal correlations of a section
// the largest lag wins, so that silence gives kPitchMax.
int open_loop_pitch(const double* wsp);

// The same in double precision throughout, what the search falls back to where its screen cannot
// tell.
int open_loop_pitch_plain(const double* wsp);

}  // namespace KELG729F_TARGET
}  // namespace g729
