// What the scan for several 8 kbit/s innovations and the moves of their pulses share.
#pragma once

#include "codec/encoder/fixed_codebook.h"

namespace g729 {
inline namespace KELG729F_TARGET {

inline constexpr int kInnovationPulses = 4;
inline constexpr double kLeastEnergy = 0x1p-12;

// All values have the signs folded in that the scan fixes.
struct InnovationSearch {
  alignas(kVectorAlign) TrackVector d;
  alignas(kVectorAlign) TrackVector sign;
  ImpulseCorrelation rr;
  double threshold;
};

struct Pulse {
  int track, place;
  double flip;  // -1 when its sign is not the one that the scan fixed, else 1
};
struct Codeword {
  Pulse pulse[kInnovationPulses];
  double ps, energy;
};

}  // namespace KELG729F_TARGET
}  // namespace g729
