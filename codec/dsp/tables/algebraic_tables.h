// Pulse positions of the 6.4 kbit/s codebook (Annex D) and the tracks of the others (clause 3.8).
#pragma once

#include "codec/dsp/constants.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kTracks = 5;                            // track t holds t, t+5, ..., t+35
inline constexpr int kTrackPositions = kSubframe / kTracks;  // eight positions each

inline constexpr int kPulse0Positions6k4 = 16;
inline constexpr int kPulse1Positions6k4 = 32;
extern const int kPulse0Track6k4[kPulse0Positions6k4];
extern const int kPulse1Track6k4[kPulse1Positions6k4];

// Gray code of a table index, and its inverse.
extern const int kGray[kPulse1Positions6k4];
extern const int kGrayInverse[kPulse1Positions6k4];

}  // namespace KELG729F_TARGET
}  // namespace g729
